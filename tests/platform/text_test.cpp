// UTF-8 to UTF-16 as the host converts it: the size query, the buffer that
// is too small, and what becomes of bytes that are no UTF-8.

#include "platform/text.h"

#include "platform/last_error.h"
#include "support/platform_fixture.h"

#include <string>

namespace langmon {
namespace {

using TextTest = testing::PlatformTest;

constexpr DWORD Unset = 0xdeadbeef;

// The units written, or what the call returned and the last error it left.
std::u16string Convert(const std::string& text, DWORD flags = 0) {
    WCHAR wide[16] = {};
    const int units = MultiByteToWideChar(CP_UTF8, flags, text.data(), static_cast<int>(text.size()), wide, 16);
    return {wide, static_cast<std::size_t>(units)};
}

TEST_F(TextTest, Utf8ConvertsInTwoCallsAndIllFormedBytesBecomeTheReplacementCharacter) {
    // "a", "ñ", "€", U+1F5A8 and the NUL, which a count of -1 takes along.
    const char text[] = "a\xC3\xB1\xE2\x82\xAC\xF0\x9F\x96\xA8";
    SetLastError(Unset);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0), 6);
    EXPECT_EQ(GetLastError(), Unset);

    WCHAR wide[6] = {};
    SetLastError(Unset);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, 5), 0);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INSUFFICIENT_BUFFER));
    SetLastError(Unset);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, 6), 6);
    EXPECT_EQ(GetLastError(), Unset);
    EXPECT_EQ(std::u16string(wide, 6), std::u16string(u"añ€\U0001F5A8", 6));

    // A lone continuation byte, an overlong form and an encoded surrogate:
    // each ill-formed byte is one U+FFFD.
    EXPECT_EQ(Convert("x\xA8y"), u"x\uFFFDy");
    EXPECT_EQ(Convert("\xC0\xAF"), u"\uFFFD\uFFFD");
    EXPECT_EQ(Convert("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
    // Asked to refuse them, the call fails instead.
    SetLastError(Unset);
    EXPECT_EQ(Convert("x\xA8y", MB_ERR_INVALID_CHARS), u"");
    EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    EXPECT_EQ(Convert("ok\xC3\xB1", MB_ERR_INVALID_CHARS), u"okñ");

    // UTF-8 is the one code page; nothing at all is no text.
    SetLastError(Unset);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "a", 1, wide, 6), 0);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
    SetLastError(Unset);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a", 0, wide, 6), 0);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_PARAMETER));
}

}  // namespace
}  // namespace langmon
