#include "manager/manager_library.h"

#include "manager/manager_link.h"
#include "platform/library.h"

namespace langmon {

namespace {

template <typename Function>
void Find(HMODULE library, const char* name, Function* slot) {
    *slot = reinterpret_cast<Function>(GetProcAddress(library, name));
}

}  // namespace

int LoadManagerLibrary(ManagerLink* link) {
    link->library = LoadLibraryA(ManagerLibraryName);
    if (link->library == nullptr) return 0;
    HMODULE library = link->library;
    Find(library, "OpenManagerExA", &link->OpenManagerExA);
    Find(library, "CloseManager", &link->CloseManager);
    Find(library, "GetPrinterStatusA", &link->GetPrinterStatusA);
    Find(library, "SetReqPrinterStatusEventA", &link->SetReqPrinterStatusEventA);
    Find(library, "ResSetPrinterStatus", &link->ResSetPrinterStatus);
    Find(library, "UpdatePrinterStatusA", &link->UpdatePrinterStatusA);
    Find(library, "SetNotificationEventA", &link->SetNotificationEventA);
    Find(library, "SetNotificationEventExA", &link->SetNotificationEventExA);
    Find(library, "KillNotificationEvent", &link->KillNotificationEvent);
    Find(library, "SetNotificationCallbackExA", &link->SetNotificationCallbackExA);
    Find(library, "KillNotificationCallback", &link->KillNotificationCallback);
    return 1;
}

void UnloadManagerLibrary(ManagerLink* link) {
    if (link->library == nullptr) return;
    FreeLibrary(link->library);
    link->library = nullptr;
    link->OpenManagerExA = nullptr;
    link->CloseManager = nullptr;
    link->GetPrinterStatusA = nullptr;
    link->SetReqPrinterStatusEventA = nullptr;
    link->ResSetPrinterStatus = nullptr;
    link->UpdatePrinterStatusA = nullptr;
    link->SetNotificationEventA = nullptr;
    link->SetNotificationEventExA = nullptr;
    link->KillNotificationEvent = nullptr;
    link->SetNotificationCallbackExA = nullptr;
    link->KillNotificationCallback = nullptr;
}

}  // namespace langmon
