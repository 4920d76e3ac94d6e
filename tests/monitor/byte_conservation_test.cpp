// Whatever the port monitor does to a job's writes (takes part, one byte,
// nothing, refuses), the printer receives the header, then the job's bytes
// once and in order, then the trailer; and a job that is discarded sends
// nothing more of its data. Thousands of seeded schedules per strategy; a
// failing one prints its seed, and LANGMON_SEED=<seed> replays it alone.

#include "support/job_road_fixture.h"
#include "support/port_waits.h"
#include "background/status_thread.h"

#include <cstdlib>
#include <map>
#include <random>
#include <string>

namespace langmon {
namespace {

using testing::ExpectedHeader;
using testing::ExpectedTrailer;
using testing::JobRoadTest;
using testing::Uel;
using testing::WriteAnswer;

// The thread sanitizer makes each schedule some twenty times slower; there
// the schedules are about the threads' hand-overs, and a fifth of them do.
#if defined(__SANITIZE_THREAD__)
constexpr uint32_t SchedulesPerStrategy = 200;
#else
constexpr uint32_t SchedulesPerStrategy = 1000;
#endif
constexpr int CallLimit = 200000;

enum class Strategy { Direct, Capped, Behind };

class ByteConservationTest : public JobRoadTest {
protected:
    // One job under one schedule; false once a check failed.
    bool RunSchedule(Strategy strategy, uint32_t seed);

    uint32_t Pick(uint32_t n) { return static_cast<uint32_t>(rng_() % n); }
    // Each port is opened once and carries job after job.
    PortContext* PortFor(const char* name) {
        PortContext*& port = ports_[name];
        if (port == nullptr) port = Open(name);
        return port;
    }

    std::mt19937 rng_;
    std::map<std::string, PortContext*> ports_;
};

bool ByteConservationTest::RunSchedule(Strategy strategy, uint32_t seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    rng_.seed(seed);
    const char* name = strategy == Strategy::Direct ? "USB001" : "LPT1";
    FixPortMode(strategy == Strategy::Capped ? PM_ECP : PM_COMPAT);
    PortContext* port = PortFor(name);
    if (port == nullptr) return false;
    auto& below = lower.Port(name);

    // The job: random bytes behind the start of PostScript, of a PJL job, or
    // of neither; sometimes tiny, sometimes many blocks long.
    const uint32_t kind = Pick(3);
    const std::string start = kind == 0 ? "" : kind == 1 ? "%!PS-Adobe-3.0\n" : Uel + "@PJL JOB\r\n";
    const uint32_t sizes[] = {30, 300, 20000};
    std::string job = start;
    const uint32_t extra = Pick(sizes[Pick(3)]);
    for (uint32_t i = 0; i < extra; ++i) job += static_cast<char>(rng_());
    if (kind == 0 && !job.empty()) job[0] = 'x';  // not by chance a UEL or "%!PS"
    std::size_t block = 1 + Pick(6000);
    if (job.size() > 2000 && block < 256) block = 256;

    const bool client = Pick(2) == 1;
    if (client) {
        GiveClient(port);
    } else {
        TakeClientAway(port);
    }
    for (uint32_t n = Pick(60); n > 0; --n) {
        const uint32_t roll = Pick(10);
        below.QueueWrite(roll < 5   ? WriteAnswer::TakeAll()
                         : roll < 7 ? WriteAnswer::Take(1 + Pick(200))
                         : roll < 8 ? WriteAnswer::Take(1)
                         : roll < 9 ? WriteAnswer::TakeNothing(ERROR_TIMEOUT)
                                    : WriteAnswer::Refuse(ERROR_TIMEOUT));
    }
    const bool discard = Pick(6) == 0;
    const int discardAfter = discard ? static_cast<int>(Pick(8)) : -1;

    EXPECT_TRUE(Start(port));
    const std::string id = port->jobIdentifier;
    std::size_t taken = 0;
    std::size_t takenBeforeDiscard = std::string::npos;
    for (int call = 0; taken < job.size() && call < CallLimit; ++call) {
        if (call == discardAfter) {
            // As the printer going silent after the header would do.
            SetPortFlag(port, PF_DISCARD | PF_JOB_GONE);
            takenBeforeDiscard = taken;
        }
        DWORD written = 0;
        std::string piece = job.substr(taken, std::min(block, job.size() - taken));
        // A left-over error of the spooler's thread, as the port's own
        // time-outs leave it: no call fails for it, a swallowed block neither.
        SetLastError(ERROR_TIMEOUT);
        EXPECT_TRUE(WritePort(port, reinterpret_cast<LPBYTE>(piece.data()), static_cast<DWORD>(piece.size()), &written));
        taken += written;
    }
    EXPECT_EQ(taken, job.size()) << "the spooler's job never went";
    EXPECT_TRUE(EndDocPort(port));
    // With a client the status thread sends what the port left over.
    EXPECT_TRUE(testing::WaitUntilPendingSent(port));

    const bool looked = !job.empty();
    const bool headed = client && looked;
    const bool uelDropped = headed && kind == 2 && std::min(block, job.size()) >= 20;
    const std::string header = headed ? ExpectedHeader(id) : "";
    const std::string trailer = looked ? ExpectedTrailer(port->trailerIdentifier) : "";
    const std::string data = job.substr(uelDropped ? 9 : 0);
    std::string received = below.Received();
    // A printer that stays idle through three polls has lost the job: the
    // status thread winds it up and says goodbye behind the job's end, as
    // much of it as the port takes at once.
    const std::string_view goodbye = UstatusOffText;
    if (const std::size_t end = received.rfind(trailer); !trailer.empty() && end != std::string::npos &&
        goodbye.starts_with(std::string_view(received).substr(end + trailer.size()))) {
        received.resize(end + trailer.size());
    }
    if (kind != 0 && std::min(block, job.size()) >= 20) {
        EXPECT_EQ(port->trailerIdentifier, id) << "the job named itself: one name for both ends";
    }

    if (takenBeforeDiscard == std::string::npos) {
        EXPECT_EQ(received, header + data + trailer);
    } else {
        // Every byte taken before the cut, then the trailer.
        const std::size_t tookData = takenBeforeDiscard - std::min<std::size_t>(takenBeforeDiscard, uelDropped ? 9 : 0);
        EXPECT_EQ(received, header + data.substr(0, tookData) + trailer);
    }
    EXPECT_EQ(port->pendingLength, 0u);

    // The next schedule starts afresh: the job gone as the printer's report
    // would take it, the status thread ended, its goodbye not counted.
    LockPort(port);
    FreeJobRecords(port);
    UnlockPort(port);
    SettleThreads();
    below.ForgetQueuedWrites();
    below.ForgetCalls();
    // A header still due stands for the port's next job: none is wanted here.
    ClearPortFlag(port, PF_MODEL_KNOWN | PF_HEADER_DUE);
    return !HasFailure();
}

TEST_F(ByteConservationTest, EveryByteOfTheJobReachesThePrinterOnceAndInOrder) {
    const char* replay = std::getenv("LANGMON_SEED");
    for (Strategy strategy : {Strategy::Direct, Strategy::Capped, Strategy::Behind}) {
        SCOPED_TRACE(strategy == Strategy::Direct ? "WriteDirect" : strategy == Strategy::Capped ? "WriteCapped" : "WriteBehind");
        if (replay != nullptr) {
            RunSchedule(strategy, static_cast<uint32_t>(std::strtoul(replay, nullptr, 10)));
            continue;
        }
        for (uint32_t seed = 1; seed <= SchedulesPerStrategy; ++seed) {
            if (!RunSchedule(strategy, seed)) {
                ADD_FAILURE() << "replay with LANGMON_SEED=" << seed;
                return;
            }
        }
    }
}

}  // namespace
}  // namespace langmon
