// The langmon command interrupted at varied moments, on the real clock, as a
// user's Ctrl-C or a service manager's SIGTERM meets it: every run must end
// cleanly, with the exit code the README gives, no report of a sanitizer
// and no thread left behind, and a wait on the printer must say what it
// waits for. The runs of a test go side by side, so each test takes a few
// seconds.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// A signal sent to a run: `afterMs` after its standard output first shows
// `cue` (from the start when the cue is empty), so that a loaded machine
// moves the moment, not the state the command is in.
struct Interruption {
    int signal = SIGINT;
    int afterMs = 0;
    std::string cue;
    bool sent = false;
};

// A run of the command and the signals it is sent.
struct CommandRun {
    std::vector<std::string> arguments;
    std::vector<std::string> environment;  // NAME=VALUE beside the test's own
    std::vector<Interruption> signals;
    pid_t pid = -1;
    int status = 0;
    bool ended = false;
    std::string out;
    std::string err;
};

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Describe(const CommandRun& run) {
    std::string text;
    for (const std::string& word : run.arguments) text += word + " ";
    for (const Interruption& sent : run.signals) {
        text += "[" + std::string(strsignal(sent.signal)) + " " + std::to_string(sent.afterMs) + " ms after \"" +
                sent.cue + "\"] ";
    }
    return text + "\n--- stdout:\n" + run.out + "--- stderr:\n" + run.err;
}

// Starts every run at once, signals each at its moments, and waits at most
// `limitMs` for all of them; a run still going then is killed and fails.
void RunAll(std::vector<CommandRun>& runs, int limitMs) {
    char directory[] = "/tmp/langmon-shutdown-XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    const auto start = Clock::now();
    for (std::size_t i = 0; i < runs.size(); ++i) {
        CommandRun& run = runs[i];
        const std::string base = std::string(directory) + "/" + std::to_string(i);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&files, 1, (base + ".out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&files, 2, (base + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        std::vector<char*> argv;
        std::string command = LANGMON_COMMAND;
        argv.push_back(command.data());
        for (std::string& word : run.arguments) argv.push_back(word.data());
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (std::string& setting : run.environment) envp.push_back(setting.data());
        for (char** setting = environ; *setting != nullptr; ++setting) envp.push_back(*setting);
        envp.push_back(nullptr);
        ASSERT_EQ(posix_spawn(&run.pid, LANGMON_COMMAND, &files, nullptr, argv.data(), envp.data()), 0);
        posix_spawn_file_actions_destroy(&files);
    }
    std::vector<std::vector<int>> cueSeen(runs.size());
    for (;;) {
        const int now = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
        bool running = false;
        for (std::size_t i = 0; i < runs.size(); ++i) {
            CommandRun& run = runs[i];
            if (run.ended) continue;
            const std::string out = ReadFile(std::string(directory) + "/" + std::to_string(i) + ".out");
            cueSeen[i].resize(run.signals.size(), -1);
            for (std::size_t k = 0; k < run.signals.size(); ++k) {
                Interruption& next = run.signals[k];
                if (cueSeen[i][k] < 0 && out.find(next.cue) != std::string::npos) cueSeen[i][k] = now;
                if (!next.sent && cueSeen[i][k] >= 0 && now >= cueSeen[i][k] + next.afterMs) {
                    kill(run.pid, next.signal);
                    next.sent = true;
                }
            }
            if (waitpid(run.pid, &run.status, WNOHANG) == run.pid) {
                run.ended = true;
            } else if (now > limitMs) {
                kill(run.pid, SIGKILL);
                waitpid(run.pid, &run.status, 0);
                run.ended = true;
                ADD_FAILURE() << "still running after " << limitMs << " ms: " << Describe(run);
            } else {
                running = true;
            }
        }
        if (!running) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const std::string base = std::string(directory) + "/" + std::to_string(i);
        runs[i].out = ReadFile(base + ".out");
        runs[i].err = ReadFile(base + ".err");
        std::remove((base + ".out").c_str());
        std::remove((base + ".err").c_str());
    }
    rmdir(directory);
}

// The run ended by itself with `code`, and nothing went wrong on the way out.
void ExpectCleanEnd(const CommandRun& run, int code) {
    EXPECT_TRUE(WIFEXITED(run.status)) << "killed by signal " << WTERMSIG(run.status) << ": " << Describe(run);
    if (WIFEXITED(run.status)) {
        EXPECT_EQ(WEXITSTATUS(run.status), code) << Describe(run);
    }
    for (const char* fault : {"Sanitizer", "runtime error", "abandoned:"}) {
        EXPECT_EQ(run.err.find(fault), std::string::npos) << fault << ": " << Describe(run);
    }
}

CommandRun Watch(std::vector<Interruption> signals, std::vector<std::string> more = {}) {
    CommandRun run;
    run.arguments = {"status", "--watch"};
    run.arguments.insert(run.arguments.end(), more.begin(), more.end());
    run.signals = std::move(signals);
    return run;
}

// A silent printer: the monitor meets it at every poll, and the spooler is
// told it is not available, on a thread of its own that retries for seconds
// and was still running when the process went.
TEST(ShutdownTest, AWatchEndsCleanlyAtWhateverMomentItIsInterrupted) {
    const std::string following = "following the printer";
    std::vector<CommandRun> runs;
    for (const Interruption& signal : std::vector<Interruption>{{SIGINT, 0, "langmon status of printer"},
                                                                {SIGTERM, 0, following},
                                                                {SIGINT, 800, following},
                                                                {SIGTERM, 1600, following},
                                                                {SIGINT, 2500, following}}) {
        runs.push_back(Watch({signal}, {"--printer", "emulator:silent"}));
    }
    runs.push_back(Watch({{SIGINT, 300, "\n"}}, {"--json"}));
    RunAll(runs, 15000);
    for (const CommandRun& run : runs) {
        ExpectCleanEnd(run, 0);
    }
    EXPECT_NE(runs[4].out.find("following the printer until interrupted"), std::string::npos) << Describe(runs[4]);
    EXPECT_EQ(runs[5].out.rfind("{\"version\":1,\"command\":\"status\",", 0), 0u) << "JSON alone on standard output: " << Describe(runs[5]);
}

// A job handed over during the watch is still at the printer when the watch
// is interrupted: closing the port waits for the printer to report the
// job's end, and says so. A printer that reports soon ends the wait; a
// second interruption ends it at once and says what is left undone.
TEST(ShutdownTest, AnInterruptedWatchWaitsForTheJobAtThePrinterUntilInterruptedAgain) {
    const std::vector<std::string> job = {"--at", "0:print=" + std::string(LANGMON_EXAMPLES) + "/brochure.ps"};
    const std::string handedOver = "handed over: 404 of 404 bytes taken";
    const std::string waits = "closing the port: the monitor waits up to two minutes for the printer to report the end";
    auto slow = [&](const char* printer) {
        std::vector<std::string> words = job;
        words.insert(words.end(), {"--printer", printer});
        return words;
    };
    std::vector<CommandRun> runs;
    runs.push_back(Watch({{SIGINT, 100, handedOver}}, slow("emulator:page-time=400")));
    runs.push_back(Watch({{SIGINT, 100, handedOver}, {SIGINT, 200, waits}}, slow("emulator:page-time=60000")));
    runs.push_back(Watch({{SIGTERM, 100, handedOver}, {SIGTERM, 200, waits}}, slow("emulator:page-time=60000")));
    RunAll(runs, 20000);
    ExpectCleanEnd(runs[0], 0);
    EXPECT_NE(runs[0].out.find(waits), std::string::npos) << Describe(runs[0]);
    for (std::size_t i = 1; i <= 2; ++i) {
        const CommandRun& run = runs[i];
        ExpectCleanEnd(run, i == 1 ? 130 : 143);
        EXPECT_NE(run.out.find(waits), std::string::npos) << Describe(run);
        EXPECT_NE(run.err.find("langmon: interrupted again: the port is left without the printer's report of the job's end"),
                  std::string::npos)
            << Describe(run);
    }
}

// langmon print with a client: the status thread follows the job after its
// end, then closing the port waits for the printer's report of the job's
// end. Interrupted there, the command stops following, says that it waits,
// and ends at once on a second interruption. Interrupted while the job is
// still handed over, it ends the job where it is.
TEST(ShutdownTest, AnInterruptedPrintEndsItsJobAndSaysWhatItWaitsFor) {
    const std::string job = std::string(LANGMON_EXAMPLES) + "/brochure.ps";
    const std::string machine = "LANGMON_REGISTRY=" + std::string(LANGMON_EXAMPLES) + "/machine.reg";
    const std::string follows = "the status thread follows the job";
    const std::string waits = "ClosePort waits up to two minutes for the printer to report the job's end; Ctrl-C again";
    // A job long enough to be still on its way when it is interrupted.
    char longJob[] = "/tmp/langmon-long-job-XXXXXX";
    const int file = mkstemp(longJob);
    ASSERT_GE(file, 0);
    const std::string line(4096, 'x');
    for (int i = 0; i < 8192; ++i) ASSERT_EQ(write(file, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    close(file);
    auto print = [&](std::vector<Interruption> signals, const char* printer, bool client, std::string what = "") {
        CommandRun run;
        run.arguments = {"print", what.empty() ? job : what, "--printer", printer};
        if (client) run.environment = {machine};
        run.signals = std::move(signals);
        return run;
    };
    std::vector<CommandRun> runs;
    runs.push_back(print({{SIGINT, 200, follows}, {SIGINT, 200, waits}}, "emulator:page-time=60000", true));
    runs.push_back(print({{SIGTERM, 200, follows}}, "emulator:page-time=300", true));
    runs.push_back(print({{SIGINT, 300, "langmon print"}}, "emulator", false, longJob));
    RunAll(runs, 20000);
    std::remove(longJob);
    ExpectCleanEnd(runs[0], 130);
    EXPECT_NE(runs[0].out.find(waits), std::string::npos) << Describe(runs[0]);
    EXPECT_NE(runs[0].err.find("langmon: interrupted again: the port is left without the printer's report of the job's end"),
              std::string::npos)
        << Describe(runs[0]);
    ExpectCleanEnd(runs[1], 143);
    EXPECT_NE(runs[1].out.find("ClosePort       ok"), std::string::npos) << Describe(runs[1]);
    ExpectCleanEnd(runs[2], 130);
    EXPECT_NE(runs[2].out.find("interrupted: the job ends after"), std::string::npos) << Describe(runs[2]);
    EXPECT_NE(runs[2].out.find("EndDocPort      ok"), std::string::npos) << "the job is ended: " << Describe(runs[2]);
}

}  // namespace
