// langmon installed as a Linux program: `cmake --install` into a prefix of
// its own, then the installed command run as a user runs it, from elsewhere
// and with nothing in the environment pointing at the build, the tree of bin
// and lib moved to another folder, the status manager library taken away,
// and a C program built against the installed header and library with the
// flags pkg-config gives. On the real clock: the runs go side by side, so the
// test takes about as long as its longest run.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

// A word for sh, quoted whole.
std::string Quoted(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// A shell command started at once and waited for later, so that several run
// side by side. Its output and errors go to files beside the test's tree; it
// is killed if it runs for more than 30 seconds.
class ShellRun {
public:
    ShellRun(const fs::path& logs, const std::string& name, const std::string& command)
        : out_(logs / (name + ".out")), err_(logs / (name + ".err")), command_(command) {
        const std::string line = "timeout 30 sh -c " + Quoted(command) + " >" + Quoted(out_) + " 2>" + Quoted(err_);
        pipe_ = popen(line.c_str(), "r");
    }
    ShellRun(const ShellRun&) = delete;
    ShellRun& operator=(const ShellRun&) = delete;
    ~ShellRun() { Wait(); }

    // The exit status; -1 if it did not exit by itself.
    int Wait() {
        if (pipe_ != nullptr) {
            const int status = pclose(pipe_);
            pipe_ = nullptr;
            code_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return code_;
    }
    std::string Out() {
        Wait();
        return ReadFile(out_);
    }
    std::string Err() {
        Wait();
        return ReadFile(err_);
    }
    std::string Describe() { return command_ + "\n--- exit " + std::to_string(Wait()) + "\n--- stdout:\n" + Out() + "--- stderr:\n" + Err(); }

private:
    fs::path out_;
    fs::path err_;
    std::string command_;
    FILE* pipe_ = nullptr;
    int code_ = -1;
};

// The environment of a user who has only the installed command: nothing that
// names the build's library folder or a machine description.
const std::string CleanEnvironment = "env -u LANGMON_LIBRARY_PATH -u LANGMON_REGISTRY -u LD_LIBRARY_PATH ";

// A tree of the test's own under /tmp, removed at the end.
class InstallTest : public ::testing::Test {
protected:
    void SetUp() override {
        char directory[] = "/tmp/langmon-install-XXXXXX";
        ASSERT_NE(mkdtemp(directory), nullptr);
        root_ = directory;
        fs::create_directories(root_ / "logs");
        fs::create_directories(root_ / "elsewhere");
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    std::string Log(const std::string& name) const { return (root_ / "logs" / name).string(); }

    fs::path root_;
};

// A program of the monitor's users, in C, that needs nothing but the
// installed header and library.
const char* const ProgramUsingTheMonitor = R"(#include <langmon/monitor.h>
#include <stdio.h>
int main(void) {
    MONITOR monitor = {0};
    if (!InitializeMonitorEx("System\\CurrentControlSet\\control\\Print\\Monitors\\langmon", &monitor)) return 1;
    if (monitor.OpenPortEx == NULL || monitor.WritePort == NULL || monitor.GetPrinterDataFromPort == NULL) return 2;
    SetLastError(87);
    printf("table filled, last error %u\n", (unsigned)GetLastError());
    return 0;
}
)";

TEST_F(InstallTest, InstalledCommandFindsItsLibrariesAndDocumentsItself) {
    const fs::path prefix = root_ / "prefix";
    const fs::path bin = prefix / LANGMON_INSTALL_BINDIR;
    const fs::path lib = prefix / LANGMON_INSTALL_LIBDIR;
    {
        ShellRun install(root_ / "logs", "install",
                         Quoted(LANGMON_CMAKE) + " --install " + Quoted(LANGMON_BUILD_DIR) + " --prefix " + Quoted(prefix));
        ASSERT_EQ(install.Wait(), 0) << install.Describe();
    }

    // Everything where a Linux program keeps it.
    const fs::path man = prefix / LANGMON_INSTALL_MANDIR / "man1" / "langmon.1";
    const fs::path completion = prefix / LANGMON_INSTALL_DATADIR / "bash-completion" / "completions" / "langmon";
    for (const fs::path& file : {bin / "langmon", lib / "liblangmon.so", lib / "libkvtrm.so",
                                 prefix / LANGMON_INSTALL_INCLUDEDIR / "langmon" / "monitor.h",
                                 prefix / LANGMON_INSTALL_INCLUDEDIR / "langmon" / "status_manager.h",
                                 lib / "pkgconfig" / "langmon.pc", man, completion}) {
        EXPECT_TRUE(fs::is_regular_file(file)) << file << " is not installed";
    }
    ASSERT_TRUE(fs::is_regular_file(bin / "langmon"));
    // The daemon's service, socket, udev rule and runtime folder, where a
    // prefix of their own keeps them; the service starts the daemon installed
    // beside the command, wherever the prefix was given.
    for (const char* file : {"lib/systemd/system/langmond.socket", "lib/udev/rules.d/70-langmon.rules",
                             "lib/tmpfiles.d/langmon.conf"}) {
        EXPECT_TRUE(fs::is_regular_file(prefix / file)) << file << " is not installed";
    }
    const std::string service = ReadFile(prefix / "lib/systemd/system/langmond.service");
    EXPECT_NE(service.find("\nExecStart=" + (bin / "langmond").string() + "\n"), std::string::npos) << service;
    EXPECT_NE(fs::status(bin / "langmon").permissions() & fs::perms::owner_exec, fs::perms::none);

    // Copies of the installed tree: one moved whole to another folder, one
    // without the status manager library.
    const fs::path moved = root_ / "moved" / "elsewhere";
    const fs::path stripped = root_ / "stripped";
    for (const fs::path& copy : {moved, stripped}) {
        fs::create_directories(copy);
        fs::copy(bin, copy / "bin", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        fs::copy(lib, copy / "lib", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    fs::remove(stripped / "lib" / "libkvtrm.so");

    const std::string elsewhere = "cd " + Quoted(root_ / "elsewhere") + " && " + CleanEnvironment;
    const std::string job = Quoted(std::string(LANGMON_EXAMPLES) + "/brochure.ps");
    ShellRun print(root_ / "logs", "print", elsewhere + Quoted(bin / "langmon") + " print " + job);
    ShellRun status(root_ / "logs", "status", elsewhere + Quoted(bin / "langmon") + " status");
    ShellRun movedStatus(root_ / "logs", "moved", elsewhere + Quoted(moved / "bin" / "langmon") + " status");
    ShellRun missing(root_ / "logs", "missing", elsewhere + Quoted(stripped / "bin" / "langmon") + " status");
    // The CUPS backend, run as CUPS runs it (from its own folder, a job on
    // the emulated printer): it finds the status manager library too.
    const fs::path backend = prefix / LANGMON_CUPS_BACKEND_DIR / "langmon";
    ShellRun cupsJob(root_ / "logs", "backend",
                     elsewhere + "DEVICE_URI=langmon:/emulator PRINTER=office " + Quoted(backend) + " 7 alice title 1 '' " + job);
    ShellRun pointed(root_ / "logs", "pointed",
                     elsewhere + "LANGMON_LIBRARY_PATH=" + Quoted(lib) + " " + Quoted(stripped / "bin" / "langmon") + " status");

    // The C edge as an outside program builds against it, with the
    // compiler and flags of the build (a sanitizer's runtime has to come
    // first in a program that loads a library built with it).
    WriteFile(root_ / "elsewhere" / "uses_monitor.c", ProgramUsingTheMonitor);
    const std::string pkgConfig = "PKG_CONFIG_PATH=" + Quoted(lib / "pkgconfig") + " pkg-config";
    ShellRun flags(root_ / "logs", "flags", pkgConfig + " --cflags --libs langmon");
    ShellRun version(root_ / "logs", "version", pkgConfig + " --modversion langmon");
    ShellRun program(root_ / "logs", "program",
                     elsewhere + Quoted(LANGMON_C_COMPILER) + " " + LANGMON_C_FLAGS + " -o uses_monitor uses_monitor.c $(" + pkgConfig + " --cflags --libs langmon) -Wl,-rpath," +
                         Quoted(lib) + " && ./uses_monitor");

    // The completion, read by bash and asked what it offers.
    const std::string complete = "source " + Quoted(completion) +
                                 "; compopt() { :; }; ask() { COMP_LINE=$1; COMP_POINT=${#1}; read -ra COMP_WORDS <<<\"$1\"; "
                                 "[[ $1 == *' ' ]] && COMP_WORDS+=(''); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                                 "COMPREPLY=(); _langmon; echo \"${COMPREPLY[*]}\"; }; "
                                 "ask 'langmon pr'; ask 'langmon status --w'; ask 'langmon print x --printer em'";
    ShellRun syntax(root_ / "logs", "syntax", "bash -n " + Quoted(completion));
    ShellRun offers(root_ / "logs", "offers", "bash -c " + Quoted(complete));

    // Installed and run from elsewhere: the job goes to the emulated printer
    // and is printed; the printer's status client is bound to libkvtrm.so,
    // found through the command's run path, and its store holds the values
    // the monitor published.
    EXPECT_EQ(print.Wait(), 0) << print.Describe();
    EXPECT_NE(print.Out().find("to the emulated Laser Printer 6200tx"), std::string::npos) << print.Describe();
    EXPECT_NE(print.Out().find("3 pages printed, 1 in colour and 2 in black; printed"), std::string::npos)
        << print.Describe();
    EXPECT_EQ(print.Out().find("libkvtrm.so was not found"), std::string::npos) << print.Describe();
    for (ShellRun* run : {&status, &movedStatus, &pointed}) {
        EXPECT_EQ(run->Wait(), 0) << run->Describe();
        EXPECT_NE(run->Out().find("toner        cyan     [##########] 100%"), std::string::npos) << run->Describe();
        EXPECT_NE(run->Out().find("service tag  7QX2K9M"), std::string::npos) << run->Describe();
    }

    EXPECT_EQ(cupsJob.Wait(), 0) << cupsJob.Describe();
    EXPECT_NE(cupsJob.Err().find("PAGE: total 3\n"), std::string::npos) << cupsJob.Describe();
    // CUPS runs a backend that all may run as its own unprivileged user.
    EXPECT_EQ(fs::status(backend).permissions() & fs::perms::all, fs::perms(0755));
    for (const char* model : {"6200tx", "6300tx"}) {
        const fs::path ppd = prefix / LANGMON_INSTALL_DATADIR / "ppd" / "langmon" / ("langmon-" + std::string(model) + ".ppd");
        EXPECT_NE(ReadFile(ppd).find("*ModelName: \"Quor Laser Printer " + std::string(model) + "\""), std::string::npos)
            << ppd;
    }

    // Without the library the command says where it looked and what to set.
    EXPECT_EQ(missing.Wait(), 1) << missing.Describe();
    const std::string why = missing.Err();
    for (const std::string& part :
         {std::string("no status client: the status manager library libkvtrm.so was not found"),
          std::string("LANGMON_LIBRARY_PATH is not set"), "tried " + (stripped / "bin" / "libkvtrm.so").string(),
          (stripped / "lib" / "libkvtrm.so").string(),
          std::string("setting LANGMON_LIBRARY_PATH to the folder that holds libkvtrm.so makes it found")}) {
        EXPECT_NE(why.find(part), std::string::npos) << "missing \"" << part << "\"\n" << missing.Describe();
    }
    EXPECT_EQ(why.find('\n'), why.size() - 1) << "one line: " << why;

    EXPECT_EQ(flags.Wait(), 0) << flags.Describe();
    EXPECT_NE(flags.Out().find("-I" + (prefix / LANGMON_INSTALL_INCLUDEDIR).string()), std::string::npos) << flags.Describe();
    EXPECT_NE(flags.Out().find("-L" + lib.string() + " -llangmon"), std::string::npos) << flags.Describe();
    EXPECT_EQ(version.Out(), std::string(LANGMON_VERSION) + "\n") << version.Describe();
    EXPECT_EQ(program.Wait(), 0) << program.Describe();
    EXPECT_EQ(program.Out(), "table filled, last error 87\n") << program.Describe();

    const std::string page = ReadFile(man);
    for (const char* part : {".SH NAME", ".SH SYNOPSIS", ".SH ENVIRONMENT", "LANGMON_LIBRARY_PATH", "LANGMON_REGISTRY",
                             ".SH EXIT STATUS", ".SH FILES", "--block-size", "--watch"}) {
        EXPECT_NE(page.find(part), std::string::npos) << "the man page lacks " << part;
    }
    EXPECT_EQ(syntax.Wait(), 0) << syntax.Describe();
    EXPECT_EQ(offers.Out(), "print printers\n--watch\nemulator emulator:\n") << offers.Describe();

    // Staged for a package: DESTDIR holds the tree, and the pkg-config file
    // names the prefix the package installs to.
    {
        ShellRun staged(root_ / "logs", "staged",
                        "DESTDIR=" + Quoted(root_ / "stage") + " " + Quoted(LANGMON_CMAKE) + " --install " +
                            Quoted(LANGMON_BUILD_DIR) + " --prefix /opt/langmon");
        ASSERT_EQ(staged.Wait(), 0) << staged.Describe();
    }
    const fs::path stage = root_ / "stage" / "opt" / "langmon";
    EXPECT_TRUE(fs::is_regular_file(stage / LANGMON_INSTALL_BINDIR / "langmon"));
    const std::string pc = ReadFile(stage / LANGMON_INSTALL_LIBDIR / "pkgconfig" / "langmon.pc");
    EXPECT_NE(pc.find("prefix=/opt/langmon\n"), std::string::npos) << pc;
    EXPECT_EQ(pc.find(root_.string()), std::string::npos) << pc;
}

}  // namespace
