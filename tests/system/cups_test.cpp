// The backend under a real CUPS of the test's own, on the real clock: a
// private cupsd (its own configuration, spool, cache, state and log under a
// temporary folder, listening on 127.0.0.1 on a port the test picks) with
// the backend in its backend folder, `langmon emulate` as the network
// printer, a queue added with lpadmin, jobs printed with lp and the result
// read with ipptool as any IPP client reads it.

#include "child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

namespace {

namespace fs = std::filesystem;
using langmon::testing::Child;
using langmon::testing::Start;
using langmon::testing::ReadUntil;
using langmon::testing::ReadWhole;
using langmon::testing::RunToEnd;
using Clock = std::chrono::steady_clock;

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A TCP port free on 127.0.0.1 now, for cupsd to listen on.
int FreePort() {
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    close(probe);
    return ntohs(address.sin_port);
}

// A cupsd of the test's own under `root`, with the backend and the status
// manager library it loads copied into its backend folder, so that CUPS
// runs the backend as it runs an installed one: as the unprivileged user.
class PrivateCups {
public:
    explicit PrivateCups(const fs::path& root) : root_(root), server_("127.0.0.1:" + std::to_string(FreePort())) {
        for (const char* folder : {"spool", "cache", "state", "log", "tmp", "bin/backend"}) {
            fs::create_directories(root / folder);
        }
        for (const char* folder : {"filter", "daemon", "notifier", "monitor", "cgi-bin", "driver"}) {
            fs::create_symlink(fs::path("/usr/lib/cups") / folder, root / "bin" / folder);
        }
        fs::copy_file(LANGMON_BACKEND, root / "bin/backend/langmon");
        fs::copy_file(fs::path(LANGMON_BUILD_DIR) / "libkvtrm.so", root / "bin/backend/libkvtrm.so");
        fs::permissions(root / "bin/backend/langmon", fs::perms(0755));
        std::ofstream(root / "cupsd.conf") << "Listen " << server_ << "\nLogLevel debug\nBrowsing No\n"
                                           << "DefaultAuthType None\n"
                                              "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
                                              "<Policy default>\n  <Limit All>\n    Order deny,allow\n  </Limit>\n"
                                              "</Policy>\n";
        std::ofstream(root / "cups-files.conf")
            << "ServerRoot " << root.string() << "\nServerBin " << (root / "bin").string() << "\nRequestRoot "
            << (root / "spool").string() << "\nCacheDir " << (root / "cache").string() << "\nStateDir "
            << (root / "state").string() << "\nTempDir " << (root / "tmp").string() << "\nErrorLog "
            << (root / "log/error_log").string() << "\nAccessLog " << (root / "log/access_log").string()
            << "\nPageLog " << (root / "log/page_log").string() << "\nFileDevice No\nUser lp\nGroup lp\n";
        // Every folder on the way is open to the user the filters and the
        // backend run as, and they may make their files in the temporary one.
        fs::permissions(root, fs::perms(0755));
        fs::permissions(root / "tmp", fs::perms(01777));
        cupsd_ = Start({"/usr/sbin/cupsd", "-f", "-c", (root / "cupsd.conf").string(), "-s",
                        (root / "cups-files.conf").string()});
    }

    // SIGTERM, so that cupsd stops its jobs and writes its log out.
    ~PrivateCups() { langmon::testing::Finish(cupsd_, SIGTERM); }

    const std::string& Server() const { return server_; }
    std::string Log() const { return ReadWhole((root_ / "log/error_log").string()); }

    // Until the scheduler answers, a few seconds at most.
    bool Ready() {
        std::string out;
        for (auto end = Clock::now() + std::chrono::seconds(5); Clock::now() < end;) {
            if (RunToEnd({"/usr/bin/lpstat", "-h", server_, "-r"}, &out) == 0 && Has(out, "scheduler is running")) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }

    // An attribute as ipptool reads it ("a,b,c"); empty without one.
    std::string Attribute(const std::string& uri, const std::string& operation, const std::string& name, int jobId = 0) {
        const fs::path test = root_ / "ask.test";
        std::ofstream(test) << "{\n OPERATION " << operation << "\n GROUP operation-attributes-tag\n"
                            << " ATTR charset attributes-charset utf-8\n"
                            << " ATTR naturalLanguage attributes-natural-language en\n"
                            << " ATTR uri printer-uri $uri\n"
                            << (jobId != 0 ? " ATTR integer job-id " + std::to_string(jobId) + "\n" : "")
                            << " ATTR keyword requested-attributes " << name << "\n STATUS successful-ok\n}\n";
        std::string out;
        RunToEnd({"/usr/bin/ipptool", "-tv", uri, test.string()}, &out);
        std::smatch value;
        if (!std::regex_search(out, value, std::regex("\\n\\s*" + name + " \\([^)]*\\) = ([^\\n]*)"))) return "";
        return value[1];
    }

private:
    fs::path root_;
    std::string server_;
    Child cupsd_;
};

class CupsBackend : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* tool : {"/usr/sbin/cupsd", "/usr/sbin/lpadmin", "/usr/bin/lp", "/usr/bin/ipptool"}) {
            if (!fs::exists(tool)) GTEST_SKIP() << tool << " is missing: scripts/setup installs CUPS";
        }
        char folder[] = "/tmp/langmon-cups-XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        root_ = folder;
        cups_ = std::make_unique<PrivateCups>(root_);
        ASSERT_TRUE(cups_->Ready()) << cups_->Log();
    }
    void TearDown() override {
        if (cups_ && HasFailure()) {
            const std::string log = cups_->Log();
            std::cerr << "the end of cupsd's log:\n" << log.substr(log.size() > 200000 ? log.size() - 200000 : 0);
        }
        if (cups_) {
            EXPECT_FALSE(Has(cups_->Log(), "Sanitizer")) << "a sanitizer spoke in a backend";
        }
        cups_.reset();
        if (!root_.empty()) fs::remove_all(root_);
    }

    // The emulated printer on the network, with its device URI for CUPS
    // (whose URIs want a path before the query).
    Child Printer(const std::string& description, const std::string& change, std::string* uri) {
        Child printer = Start({LANGMON_COMMAND, "emulate", "--printer", description, "--listen", "127.0.0.1:0", "--snmp",
                               "127.0.0.1:0", "--at", change});
        std::string shown;
        EXPECT_TRUE(ReadUntil(printer.output, &shown, "\n", 5000)) << shown;
        *uri = std::regex_replace(shown.substr(0, shown.find('\n')), std::regex("\\?"), "/?");
        return printer;
    }

    int Lp(const std::string& file) {
        std::string out;
        EXPECT_EQ(RunToEnd({"/usr/bin/lp", "-h", cups_->Server(), "-d", "office", file}, &out), 0) << out;
        std::smatch id;
        return std::regex_search(out, id, std::regex("office-(\\d+)")) ? std::stoi(id[1]) : 0;
    }

    // Watches the queue until `done` holds or `seconds` pass; whether it held.
    template <typename Done>
    bool Until(int seconds, Done done) {
        for (auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end;) {
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        return done();
    }

    std::string QueueUri() const { return "ipp://" + cups_->Server() + "/printers/office"; }
    std::string Reasons() { return cups_->Attribute(QueueUri(), "Get-Printer-Attributes", "printer-state-reasons"); }
    std::string JobAttribute(int job, const std::string& name) {
        return cups_->Attribute(QueueUri(), "Get-Job-Attributes", name, job);
    }

    fs::path root_;
    std::unique_ptr<PrivateCups> cups_;
};

TEST_F(CupsBackend, PrintsThroughTheMonitorAndShowsThePrintersStateSuppliesAndPages) {
    // A printer jammed when the job comes, cleared six seconds in.
    std::string uri;
    auto printer = Printer("emulator:page-time=1000,jam=3,toner.cyan=80,toner.black=40", "6:jam=none", &uri);
    std::string out;
    ASSERT_EQ(RunToEnd({"/usr/sbin/lpadmin", "-h", cups_->Server(), "-p", "office", "-E", "-v", uri, "-P",
                        std::string(LANGMON_PPD_DIR) + "/langmon-6200tx.ppd"},
                       &out),
              0)
        << out;
    const int first = Lp(std::string(LANGMON_EXAMPLES) + "/brochure.ps");
    ASSERT_NE(first, 0);
    EXPECT_TRUE(Until(6, [&] { return Has(Reasons(), "media-jam-error"); })) << Reasons();
    // The jam clears while the job prints: CUPS is told at once.
    EXPECT_TRUE(Until(8, [&] { return !Has(Reasons(), "media-jam-error"); })) << Reasons();
    EXPECT_TRUE(Until(15, [&] { return JobAttribute(first, "job-state") == "completed"; }))
        << JobAttribute(first, "job-state");
    // The pages the printer said it printed, and its toners as it measures them.
    EXPECT_EQ(JobAttribute(first, "job-impressions-completed"), "3");
    EXPECT_EQ(cups_->Attribute(QueueUri(), "Get-Printer-Attributes", "marker-levels"), "80,100,100,40,100,-2");
    EXPECT_EQ(cups_->Attribute(QueueUri(), "Get-Printer-Attributes", "marker-names"),
              "Cyan Toner,Magenta Toner,Yellow Toner,Black Toner,Drum Unit,Waste Toner Box");

    // A PDF goes through CUPS's filters to PostScript by the PPD.
    const int second = Lp(std::string(LANGMON_EXAMPLES) + "/flyer.pdf");
    EXPECT_TRUE(Until(15, [&] { return JobAttribute(second, "job-state") == "completed"; }))
        << JobAttribute(second, "job-state");
    EXPECT_EQ(JobAttribute(second, "job-impressions-completed"), "2");
    const std::string log = cups_->Log();
    EXPECT_TRUE(Has(log, "PAGE: total 2")) << "the printer's own count of the PDF's pages";

    // A printer that is off: once the monitor finds that it does not answer
    // (a few polls), the job waits with offline-report, and it completes
    // once the printer is on.
    std::string offUri;
    auto off = Printer("emulator:page-time=100,power=off", "12:power=on", &offUri);
    ASSERT_EQ(RunToEnd({"/usr/sbin/lpadmin", "-h", cups_->Server(), "-p", "office", "-v", offUri}, &out), 0) << out;
    const int third = Lp(std::string(LANGMON_EXAMPLES) + "/brochure.ps");
    EXPECT_TRUE(Until(11, [&] { return Has(Reasons(), "offline-report"); })) << Reasons();
    EXPECT_TRUE(Until(15, [&] { return JobAttribute(third, "job-state") == "completed"; }))
        << JobAttribute(third, "job-state");
    EXPECT_FALSE(Has(Reasons(), "offline-report")) << Reasons();
    EXPECT_EQ(JobAttribute(third, "job-impressions-completed"), "3");
}

}  // namespace
