// The backend as CUPS runs it, on the real clock: the printers it finds; a
// job on standard input for an emulated printer that is jammed, the printer's state told on
// standard error, CUPS's side channel answered on descriptor 4 meanwhile,
// and a cancel (SIGTERM) that ends the job at the printer and the backend.

#include "system/child_process.h"

#include "discovery.h"

#include <cups/backend.h>
#include <cups/sidechannel.h>

#include <gtest/gtest.h>

#include <csignal>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>

namespace {

using langmon::testing::Argv;
using langmon::testing::Child;
using langmon::testing::Finish;
using langmon::testing::RunToEnd;
using langmon::testing::Start;
using langmon::testing::ReadUntil;

// Asks the backend through `channel`, as a filter asks through its
// descriptor 4; the answer's bytes, or the status when it is not OK.
struct Answer {
    cups_sc_status_t status;
    std::string data;
};
Answer Ask(int channel, cups_sc_command_t command) {
    const int saved = dup(CUPS_SC_FD);
    dup2(channel, CUPS_SC_FD);
    char data[2048];
    int length = sizeof data;
    cups_sc_status_t status = CUPS_SC_STATUS_NONE;
    if (command == CUPS_SC_CMD_SNMP_GET) {
        status = cupsSideChannelSNMPGet("1.3.6.1.2.1.1.1.0", data, &length, 5.0);
    } else {
        status = cupsSideChannelDoRequest(command, data, &length, 5.0);
    }
    if (saved >= 0) {
        dup2(saved, CUPS_SC_FD);
        close(saved);
    } else {
        close(CUPS_SC_FD);
    }
    return {status, status == CUPS_SC_STATUS_OK ? std::string(data, static_cast<std::size_t>(length)) : ""};
}

TEST(Backend, TellsCupsOfAJammedPrinterAnswersItsSideChannelAndEndsTheJobOnCancel) {
    int channel[2];
    ASSERT_EQ(socketpair(AF_LOCAL, SOCK_STREAM, 0, channel), 0);
    int job[2], told[2];
    ASSERT_EQ(pipe(job), 0);
    ASSERT_EQ(pipe(told), 0);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, job[0], 0);
    posix_spawn_file_actions_adddup2(&files, told[1], 2);
    posix_spawn_file_actions_adddup2(&files, channel[1], CUPS_SC_FD);
    std::vector<std::string> words = {LANGMON_BACKEND, "17", "alice", "Quarterly report", "1", ""};
    std::vector<char*> argv = Argv(words);
    std::vector<std::string> environment = {"DEVICE_URI=langmon:/emulator?jam=3,toner.black=5", "PRINTER=office",
                                            std::string("LANGMON_LIBRARY_PATH=") + LANGMON_BUILD_DIR};
    std::vector<char*> envp = Argv(environment);
    pid_t backend = -1;
    ASSERT_EQ(posix_spawn(&backend, argv[0], &files, nullptr, argv.data(), envp.data()), 0);
    posix_spawn_file_actions_destroy(&files);
    close(job[0]);
    close(told[1]);
    close(channel[1]);
    const std::string page = "%!PS\n/Helvetica findfont 12 scalefont setfont 72 720 moveto (one) show showpage\n";
    ASSERT_EQ(write(job[1], page.data(), page.size()), static_cast<ssize_t>(page.size()));

    // The jam and the low toner are told once each, beside the supplies.
    std::string shown;
    ASSERT_TRUE(ReadUntil(told[0], &shown, "marker-levels=100,100,100,5,100,-2", 5000)) << shown;
    ASSERT_TRUE(ReadUntil(told[0], &shown, "STATE: +media-jam-error\n", 5000)) << shown;
    EXPECT_NE(shown.find("STATE: +toner-low-warning\n"), std::string::npos) << shown;

    const Answer id = Ask(channel[0], CUPS_SC_CMD_GET_DEVICE_ID);
    EXPECT_EQ(id.data.rfind("MFG:Quor;", 0), 0u) << id.status << " " << id.data;
    EXPECT_NE(id.data.find("MDL:Laser Printer 6200tx;"), std::string::npos) << id.data;
    const Answer state = Ask(channel[0], CUPS_SC_CMD_GET_STATE);
    ASSERT_EQ(state.data.size(), 1u) << state.status;
    EXPECT_EQ(static_cast<unsigned char>(state.data[0]),
              CUPS_SC_STATE_ONLINE | CUPS_SC_STATE_BUSY | CUPS_SC_STATE_ERROR | CUPS_SC_STATE_MARKER_LOW);
    EXPECT_EQ(Ask(channel[0], CUPS_SC_CMD_GET_BIDI).data, std::string(1, CUPS_SC_BIDI_SUPPORTED));
    EXPECT_EQ(Ask(channel[0], CUPS_SC_CMD_GET_CONNECTED).data, std::string(1, CUPS_SC_CONNECTED));
    // SNMP is a network printer's; the emulated one in the process has none.
    EXPECT_EQ(Ask(channel[0], CUPS_SC_CMD_SNMP_GET).status, CUPS_SC_STATUS_NOT_IMPLEMENTED);

    // The printer stays jammed: the backend waits with it until CUPS
    // cancels, then ends the job at the printer and withdraws what it said.
    kill(backend, SIGTERM);
    close(job[1]);
    EXPECT_TRUE(ReadUntil(told[0], &shown, "INFO: the job was cancelled", 5000)) << shown;
    int status = -1;
    ASSERT_EQ(waitpid(backend, &status, 0), backend);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == CUPS_BACKEND_OK) << status << shown;
    char rest[4096];
    for (ssize_t n; (n = read(told[0], rest, sizeof rest)) > 0;) shown.append(rest, static_cast<std::size_t>(n));
    EXPECT_NE(shown.find("STATE: -media-jam-error\n"), std::string::npos) << shown;
    EXPECT_EQ(shown.find("Sanitizer"), std::string::npos) << shown;
    close(told[0]);
    close(channel[0]);
}

}  // namespace

// What `lpinfo -v` shows: a USB printer of the family (the emulated one on a
// FUSE device) by its address, make, model and device ID; one of another
// make not at all; and the network entry. A job to the USB printer found is
// framed on its two-way USB port and its pages come back.
TEST(Backend, FindsTheFamilysUsbPrintersAndPrintsToThem) {
    std::ostringstream lines;
    langmon::backend::WriteDeviceLines(lines, {{"/dev/usb/lp3", "MFG:Other;MDL:Foreign Printer 1;"}});
    EXPECT_EQ(lines.str(), "network langmon \"Unknown\" \"Printer of the Laser Printer family on the network (langmon)\"\n");

    char folder[] = "/tmp/langmon-discovery-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string device = std::string(folder) + "/usb";
    Child emulator = Start({LANGMON_COMMAND, "emulate", "--printer", "emulator:page-time=100", "--usb-device", device}, true);
    std::string shown;
    ReadUntil(emulator.output, &shown, "\n", 3000);
    if (shown.rfind("langmon:", 0) != 0) {
        rmdir(folder);
        GTEST_SKIP() << "no USB device served through FUSE here: " << shown;
    }
    std::ostringstream found;
    langmon::backend::ListPrinters(found, device);
    const std::string text = found.str();
    EXPECT_EQ(text.rfind("direct langmon:" + device + "/lp0 \"Quor Laser Printer 6200tx\" \"Quor Laser Printer 6200tx "
                         "(USB, langmon)\" \"MFG:Quor;",
                         0),
              0u)
        << text;
    EXPECT_NE(text.find(";MDL:Laser Printer 6200tx;"), std::string::npos) << text;
    EXPECT_NE(text.find("\nnetwork langmon "), std::string::npos) << text;

    std::string told;
    const int code = RunToEnd({"/usr/bin/env", "DEVICE_URI=langmon:" + device + "/lp0", "PRINTER=desk",
                               std::string("LANGMON_LIBRARY_PATH=") + LANGMON_BUILD_DIR, LANGMON_BACKEND, "3", "bob",
                               "brochure", "1", "", std::string(LANGMON_EXAMPLES) + "/brochure.ps"},
                              &told);
    EXPECT_EQ(code, 0) << told;
    EXPECT_NE(told.find("on port USB001"), std::string::npos) << told;
    EXPECT_NE(told.find("PAGE: total 3\n"), std::string::npos) << told;
    EXPECT_EQ(Finish(emulator, SIGTERM), 0);
    rmdir(folder);
}
