// The langmon backend of CUPS (backend(7)): with no arguments it lists the
// printers it can reach; with a job's arguments it prints the job through
// the monitor to the printer of DEVICE_URI and tells CUPS what the printer
// says.

#include "backend_job.h"
#include "discovery.h"
#include "side_channel.h"

#include "langmon/interruption.h"

#include <cups/backend.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

// The monitor loads the status manager library by name: installed, it is
// in the installation's library folder, found from the backend's own place
// (CUPS's backend folder is not beside it). A search path the user set
// comes first.
void FindStatusManager() {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return;
    const std::string program(self, static_cast<std::size_t>(length));
    const std::string folder = program.substr(0, program.rfind('/'));
    std::string path = folder + "/" + LANGMON_LIBDIR_FROM_BACKEND;
    if (const char* set = std::getenv("LANGMON_LIBRARY_PATH"); set != nullptr && *set != '\0') {
        path = std::string(set) + ":" + path;
    }
    setenv("LANGMON_LIBRARY_PATH", path.c_str(), 1);
}

}  // namespace

int main(int argc, char** argv) {
    const bool sideChannel = langmon::backend::HasSideChannel();
    FindStatusManager();
    if (argc == 1) {
        langmon::backend::ListPrinters(std::cout);
        return CUPS_BACKEND_OK;
    }
    if (argc < 6 || argc > 7) {
        std::cerr << "Usage: " << argv[0] << " job-id user title copies options [file]\n";
        return CUPS_BACKEND_FAILED;
    }
    // A cancel is SIGTERM: the job ends at the printer where it is.
    langmon::tool::CatchInterruptions();
    std::signal(SIGPIPE, SIG_IGN);

    langmon::backend::BackendJob job;
    const char* uri = std::getenv("DEVICE_URI");
    job.deviceUri = uri != nullptr ? uri : argv[0];
    const char* queue = std::getenv("PRINTER");
    job.queue = queue != nullptr ? queue : "";
    char* end = nullptr;
    const unsigned long id = std::strtoul(argv[1], &end, 10);
    job.id = *end == '\0' && id > 0 && id <= 0xFFFFFFFFul ? static_cast<uint32_t>(id) : 1;
    job.user = argv[2];
    job.title = argv[3];
    if (argc == 7) job.file = argv[6];
    job.sideChannel = sideChannel;
    return langmon::backend::RunBackendJob(job, std::cerr, langmon::tool::Interrupted());
}
