// The response state machine as the reader drives it: blocks in, results and
// the rest it keeps for the next block out, whatever the printer sends.

#include "parser/reply_fixture.h"

#include <string>
#include <vector>

namespace langmon {
namespace {

const std::string Page = "@PJL USTATUS PAGE\r\n3\r\n\f";
const std::string Job = "@PJL USTATUS JOB\r\nEND\r\nNAME=\"X\"\r\n\f";

class ResponseParserTest : public testing::ReplyTest {
protected:
    bool Between() const { return port->parser->LastResult == 5 && port->parser->SkippingToFormFeed == 0; }
};

TEST_F(ResponseParserTest, APartlyArrivedFirstLineWaitsAndAStuckRestFallsOnItsThirdAttempt) {
    // The first line, cut: all of it waits for the next block.
    EXPECT_EQ(Feed({"@PJL USTATUS PA"}), std::vector<int>{1});
    EXPECT_EQ(Tail(), "@PJL USTATUS PA");
    EXPECT_EQ(Feed({"GE\r\n3\r\n\f"}), std::vector<int>{0});
    EXPECT_TRUE(Between());

    // The same rest twice more, nothing new behind it: given up on the third
    // attempt, and what follows its form feed is read as new.
    EXPECT_EQ(Feed({"@PJL INFO ST", "", ""}), (std::vector<int>{1, 1, 1}));
    EXPECT_EQ(Tail(), "") << "given up: nothing waits";
    EXPECT_EQ(port->parser->SkippingToFormFeed, 1u);
    EXPECT_EQ(Feed({"rest of it\r\n\f" + Page}), std::vector<int>{0});
    EXPECT_TRUE(Between());
}

TEST_F(ResponseParserTest, GarbageIsSkippedToItsFormFeedAndAByteOtherThanAnAtBehindOneStopsTheBlock) {
    // Text that is no response is dropped up to the next form feed, across
    // blocks; a response behind that form feed is read.
    EXPECT_EQ(Feed({"\r\nnoise without end"}), std::vector<int>{6});
    EXPECT_EQ(Tail(), "");
    EXPECT_EQ(Feed({"more noise\f" + Page}), std::vector<int>{0});
    EXPECT_TRUE(Between());
    // A CR LF behind a form feed: the rest of the block is let go.
    EXPECT_EQ(Feed({Page + "\r\n" + Job}), std::vector<int>{2});
    EXPECT_EQ(Tail(), "");
    EXPECT_TRUE(Between());
    // An unknown response, a known one behind it in the same block.
    EXPECT_EQ(Feed({"@PJL ECHO hello\r\n\f" + Page}), std::vector<int>{0});
}

}  // namespace
}  // namespace langmon
