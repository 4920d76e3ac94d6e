// Status applications in other processes than langmond's, on the real clock:
// a client in C, loading libkvtrm.so by itself, sees a jam appear and clear
// on a printer that the daemon serves over TCP and SNMP, reads a second one,
// is refused a write as an unprivileged user, outlives the daemon's
// stopping and its death with every call bounded, and reaches it again once
// it is restarted; `langmon status NAME`
// shows the daemon's printer, and says so when there is none.

#include "child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

namespace langmon::testing {
namespace {

TEST(DaemonClient, ClientsInOtherProcessesSeeTheDaemonsPrinters) {
    char folder[] = "/tmp/langmon-daemon-client-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    chmod(folder, 0755);  // so that the unprivileged client reaches the socket
    const std::string socketPath = std::string(folder) + "/langmond.sock";
    setenv("LANGMON_SOCKET", socketPath.c_str(), 1);

    // The jam lasts longer than the daemon's idle poll (4 s), so that one
    // poll sees it, and comes after the client watches.
    Child emulator = Start({LANGMON_COMMAND, "emulate", "--listen", "127.0.0.1:0", "--snmp", "127.0.0.1:0", "--at",
                            "2:jam", "--at", "6.5:jam=none"});
    std::string address;
    ASSERT_TRUE(ReadUntil(emulator.output, &address, "\n", 5000)) << address;
    address.resize(address.find('\n'));
    Child daemon = Start({LANGMON_DAEMON, "--socket", socketPath, "--printer", "office=" + address, "--printer",
                          "back=langmon:/emulator?toner.black=3"},
                         true);
    std::string said;
    ASSERT_TRUE(ReadUntil(daemon.output, &said, "serving 2 printers", 5000)) << said;

    Child watcher = Start({LANGMON_STATUS_CLIENT, LANGMON_KVTRM, "watch", "office", "back", std::to_string(daemon.pid)},
                          true);

    // Once the daemon's first poll of the printer is in (a slow build may
    // take seconds to it), a watch shows the printer as the poll read it.
    std::string out;
    for (int tries = 0; tries < 40 && out.find("\"model\":\"Laser") == std::string::npos; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
        RunToEnd({LANGMON_COMMAND, "status", "back", "--json"}, &out);
    }
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "back", "--json", "--watch", "--for", "3"}, &out), 0) << out;
    const std::string last = out.substr(out.rfind("{\"version\""));
    EXPECT_NE(last.find("\"printer_name\":\"back\",\"port\":\"LPT"), std::string::npos) << out;
    EXPECT_NE(last.find("\"model\":\"Laser Printer 6200tx\""), std::string::npos) << out;
    EXPECT_NE(last.find("{\"name\":\"black\",\"kind\":\"toner\",\"level\":3,"), std::string::npos) << out;
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "nowhere"}, &out), 1);
    EXPECT_NE(out.find("serves no printer \"nowhere\""), std::string::npos) << out;

    // Root may ask for a refresh; nobody outside the group lp may.
    EXPECT_EQ(RunToEnd({LANGMON_STATUS_CLIENT, LANGMON_KVTRM, "write", "back", "0"}, &out), 0) << out;
    if (geteuid() == 0 && access("/usr/bin/setpriv", X_OK) == 0) {
        EXPECT_EQ(RunToEnd({"/usr/bin/setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups",
                            LANGMON_STATUS_CLIENT, LANGMON_KVTRM, "write", "back", "-5"},
                           &out),
                  0)
            << out;
    }

    // The client stops the daemon, then kills it; the daemon started again
    // under it is reached by opening the printer anew.
    std::string seen;
    ReadUntil(watcher.output, &seen, "killed daemon", 20000);
    EXPECT_EQ(Finish(daemon), -1);
    EXPECT_EQ(RunToEnd({LANGMON_COMMAND, "status", "office"}, &out), 1);
    EXPECT_NE(out.find("no daemon answers"), std::string::npos) << out;
    daemon = Start({LANGMON_DAEMON, "--socket", socketPath, "--printer", "office=" + address}, true);
    ReadUntil(watcher.output, &seen, "restarted daemon reached", 15000);
    EXPECT_EQ(Finish(watcher), 0) << seen;
    EXPECT_NE(seen.find("jam seen 1, cleared 1"), std::string::npos) << seen;
    EXPECT_NE(seen.find("restarted daemon reached 1"), std::string::npos) << seen;
    EXPECT_EQ(Finish(daemon, SIGTERM), 0);

    Finish(emulator, SIGTERM);
    unsetenv("LANGMON_SOCKET");
    unlink(socketPath.c_str());
    rmdir(folder);
}

}  // namespace
}  // namespace langmon::testing
