#include "acquisition/service_tag.h"

#include "acquisition/poll.h"
#include "monitor/lower_port.h"
#include "monitor/port_context.h"
#include "monitor/serial_hold.h"
#include "platform/clock.h"
#include "portkind/port_kind.h"

#include <algorithm>
#include <cstring>

namespace langmon {

namespace {

constexpr DWORD RequestBytes = 40;
// A request the port took only in part is finished after this pause.
constexpr DWORD ShortWritePauseMs = 3000;
// The printer gets ten reads, this far apart, to answer.
constexpr int AnswerReads = 10;
constexpr DWORD AnswerPauseMs = 300;

/* AskForTag: the request out and the answer in, with the document open and
   the semaphore held. The status as it ends, and `result` 1 once the request
   went out after a short write or the tag came. */
uint32_t AskForTag(PortContext* port, char* out, uint32_t outSize, int* result) {
    DrainPrinterInput(0, port);
    DWORD sent = 0;
    if (!SendPjl(port, ServiceTagRequest, RequestBytes, &sent, 0, 0) || sent != RequestBytes) {
        if (sent == 0) return ERROR_INVALID_PRINTER_STATE;
        // The rest of the request still waits in the queue.
        Sleep(ShortWritePauseMs);
        if (!SendPjl(port, nullptr, 0, nullptr, 0, 0)) return ERROR_INVALID_PRINTER_STATE;
        *result = 1;
    }
    for (int read = 0; read < AnswerReads; ++read) {
        if (!ReadPrinterResponses(port, 0)) return ERROR_INVALID_PRINTER_STATE;
        if (port->serviceTagText[0] != '\0' && out != nullptr) {
            *result = 1;
            const std::size_t length = strnlen(port->serviceTagText, sizeof port->serviceTagText);
            std::memcpy(out, port->serviceTagText, std::min<std::size_t>(length, outSize));
            return ServiceTagRead;
        }
        Sleep(AnswerPauseMs);
    }
    return port->serviceTagStatus;
}

}  // namespace

const char ServiceTagRequest[41] = "\x1b%-12345X@PJL INFO SERVICETAG\r\n\x1b%-12345X";
static_assert(sizeof ServiceTagRequest - 1 == RequestBytes);

/* ReadServiceTag: the printer is asked only when it is two-way, has no jobs in
   the port's list and answers a poll. */
int ReadServiceTag(PortContext* port, char* out, uint32_t outSize) {
    std::memset(port->serviceTagText, 0, sizeof port->serviceTagText);
    port->serviceTagStatus = ServiceTagNotTried;
    int result = 0;
    // Whatever happens, the caller gets zeros where no tag stands.
    if (out != nullptr) std::memset(out, 0, outSize);
    if (port->variables == nullptr || (port->portKind & PK_BIDI) == 0) return 0;
    if (port->jobListHead != nullptr) {
        port->serviceTagStatus = ERROR_INVALID_PRINTER_STATE;
        return 0;
    }
    SerialHold serial(port);
    if (!serial.Take()) return 0;
    PollPrinterStatus(port);
    if (HasPortFlag(port, PF_OFFLINE)) {
        port->serviceTagStatus = ERROR_DEVICE_NOT_CONNECTED;
        return 0;
    }
    {
        PrinterConversation conversation(port);
        if (!conversation.Ready()) return 0;
        port->serviceTagStatus = AskForTag(port, out, outSize, &result);
    }
    serial.Release();
    // `out` was zeroed first and holds the tag only if it came; a request
    // that went out after a pause gives 1 even without one.
    return result;
}

}  // namespace langmon
