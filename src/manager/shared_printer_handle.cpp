#include "manager/shared_printer_handle.h"

#include "platform/memory.h"
#include "platform/spooler_jobs.h"

#include <atomic>

namespace langmon {

SharedPrinterHandle* SharePrinterHandle(HANDLE printer) {
    auto* shared = static_cast<SharedPrinterHandle*>(GlobalAlloc(GPTR, sizeof(SharedPrinterHandle)));
    if (shared == nullptr) return nullptr;
    shared->printer = printer;
    shared->users = 1;
    return shared;
}

void UsePrinterHandle(SharedPrinterHandle* shared) {
    std::atomic_ref<uint32_t>(shared->users).fetch_add(1);
}

void ReleasePrinterHandle(SharedPrinterHandle* shared) {
    if (shared == nullptr || std::atomic_ref<uint32_t>(shared->users).fetch_sub(1) != 1) return;
    ClosePrinter(shared->printer);
    GlobalFree(shared);
}

}  // namespace langmon
