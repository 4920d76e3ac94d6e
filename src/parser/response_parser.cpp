#include "parser/response_parser.h"

#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "parser/configuration.h"
#include "parser/device_state.h"
#include "parser/job_progress.h"
#include "parser/pjl_text.h"
#include "platform/memory.h"
#include "variables/derived.h"
#include "variables/publication.h"
#include "variables/spooler_status.h"

#include <cstring>

namespace langmon {

namespace {

// The row of "no response in progress": keyword and handler null.
constexpr ResponseRow NullResponseRow{nullptr, nullptr};
// An INQUIRE reply names its variable on the first line, behind
// "@PJL INQUIRE" and one blank.
constexpr const char* InquireKeyword = "@PJL INQUIRE";
constexpr std::size_t InquireBody = 13;

/* RememberRest: the rest of an unfinished attempt, for the next one to be
   compared with. Without memory there is no rest to claim, and the next
   attempt counts as a first. */
void RememberRest(PjlParserState* state, const char* rest) {
    const std::size_t length = std::strlen(rest);
    const bool kept = ReserveParseBuffer(&state->SavedRest, length + 1, 0);
    if (kept) std::memcpy(state->SavedRest.Text, rest, length + 1);
    state->HaveSavedRest = kept ? 1 : 0;
    if (!kept) state->RestRepeated = 0;
}

/* KeepTail: the text at `rest`, which a response has not finished, kept at
   the start of the carry buffer for the next block; `inCarry` when it lies
   in that buffer already. Without memory the tail is lost, and with it the
   rest an attempt would be compared with. */
void KeepTail(PortContext* port, PjlParserState* state, const char* rest, bool inCarry) {
    ParseBuffer* carry = &state->Carry;
    const std::size_t length = std::strlen(rest);
    if (inCarry) {
        std::memmove(carry->Text, rest, length + 1);
    } else if (ReserveParseBuffer(carry, length + 1, 0)) {
        std::memcpy(carry->Text, rest, length + 1);
    } else {
        state->HaveSavedRest = 0;
        return;
    }
    port->responseTail = carry->Text;
}

}  // namespace

// Keep the order: the first prefix wins, and none is a prefix of another.
const ResponseRow ResponseTable[11] = {
    {"@PJL INFO STATUS", DeviceStateHandler},
    {"@PJL USTATUS EOJ", EojHandler},
    {"@PJL USTATUS DEVICE", DeviceStateHandler},
    {"@PJL USTATUS JOB", JobReportHandler},
    {"@PJL USTATUS PAGE", PageReportHandler},
    {"@PJL INFO PAGECOUNT", PageCountHandler},
    {"@PJL INFO VARIABLES", InfoVariablesHandler},
    {InquireKeyword, InquireHandler},
    {"@PJL INFO CONFIG", InfoConfigHandler},
    {"@PJL INFO SERVICETAG", ServiceTagHandler},
    {nullptr, nullptr},
};

int ParseResponseBuffer(PortContext* port, const char* text, int publish) {
    PjlParserState* state = port->parser;
    if (state == nullptr || text == nullptr) return 0;
    const char* work = text;
    if (port->responseTail != nullptr) {
        // The tail stands at the start of the carry buffer: the block goes
        // right behind it, and the two are parsed as one text.
        const std::size_t tail = std::strlen(port->responseTail);
        const std::size_t block = std::strlen(text);
        if (ReserveParseBuffer(&state->Carry, tail + block + 1, tail)) {
            std::memcpy(state->Carry.Text + tail, text, block + 1);
            work = state->Carry.Text;
        } else {
            // The rest is lost: the text in hand is a first attempt.
            state->HaveSavedRest = 0;
        }
        port->responseTail = nullptr;
    }
    int result = 0;
    const char* cursor = work;
    while (*cursor != '\0') {
        result = ParseResponse(cursor, &cursor, port, publish);
        if (result == 1) {
            if (*cursor != '\0') KeepTail(port, state, cursor, work != text);
            break;
        }
        if (result == 2) break;
    }
    if (port->responseTail == nullptr) TrimParseBuffer(&state->Carry);
    return result;
}

int ParseResponse(const char* text, const char** cursor, PortContext* port, int publish) {
    PjlParserState* state = port->parser;
    const int dispatched = DispatchResponse(text, cursor, state, port);
    LockPort(port);
    state->LastResult = static_cast<uint32_t>(dispatched);
    if (dispatched == 6) {
        if (state->SkippingToFormFeed != 0) {
            UnlockPort(port);
            return 6;
        }
        // The no-progress detector: a rest falls on its third identical
        // attempt.
        const char* rest = *cursor;
        bool stuck = false;
        if (state->HaveSavedRest == 0) {
            state->RestRepeated = 0;
        } else if (state->RestRepeated != 0 && std::strcmp(rest, state->SavedRest.Text) == 0) {
            stuck = true;
        } else {
            state->RestRepeated = 1;
        }
        if (!stuck) {
            RememberRest(state, rest);
            UnlockPort(port);
            return 1;
        }
        // Giving up publishes nothing: what the handlers changed stays dirty.
        ResetParser(state, 1);
        const char* at = rest;
        const int found = SkipToFormFeed(rest, &at, state);
        state->LastResult = found != 0 ? 5 : 6;
        if (found != 0) {
            ResetParser(state, 1);
            *cursor = at + 1;
            UnlockPort(port);
            return 0;
        }
        state->SkippingToFormFeed = 1;
        *cursor = at;
        UnlockPort(port);
        return 1;
    }
    if (publish != 0) {
        PublishVariables(port);
        DeriveErrorVariables(port, 1);
        NotifySpoolerStatus(port);
    }
    ResetParser(state, publish);
    if (**cursor == FormFeed) ++*cursor;
    const char next = **cursor;
    UnlockPort(port);
    return next == '@' || next == '\0' ? 0 : 2;
}

int DispatchResponse(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port) {
    *cursor = text;
    if (state->SkippingToFormFeed != 0) {
        if (*text == '\0') return 5;
        return SkipToFormFeed(text, cursor, state) != 0 ? 5 : 6;
    }
    // The continuation of a response in progress: no first line again.
    if (state->LastResult == 6 && state->CurrentRow->Handler != nullptr) {
        return state->CurrentRow->Handler(text, cursor, state, port);
    }
    for (const ResponseRow* row = ResponseTable; row->Keyword != nullptr; ++row) {
        if (!StartsWith(text, row->Keyword)) continue;
        const char* body = nullptr;
        if (SkipLine(text, &body) == 0) break;
        if (row->Keyword == InquireKeyword) body = text + InquireBody;
        state->CurrentRow = row;
        return row->Handler(body, cursor, state, port);
    }
    // A first line that has only partly arrived waits for the rest of it.
    if (text[0] == '@' && std::strchr(text, '\n') == nullptr) return 6;
    return SkipToFormFeed(text, cursor, state) != 0 ? 5 : 6;
}

int StrictScan(const char* text, const char** cursor, const ResponseRow* keys,
               PjlParserState* state, PortContext* port) {
    const char* p = text;
    while (*p != '\0' && *p != FormFeed) {
        const ResponseRow* row = keys;
        while (row->Keyword != nullptr && !StartsWith(p, row->Keyword)) ++row;
        if (row->Keyword == nullptr) break;
        const char* next = p;
        // A handler that takes its entry moves on; one that doesn't refuses
        // it, whatever it says, or the scan would never end.
        if (row->Handler(p + std::strlen(row->Keyword), &next, state, port) == 0 || next <= p) break;
        p = next;
    }
    *cursor = p;
    return *p == FormFeed ? 5 : 6;
}

int LenientScan(const char* text, const char** cursor, const ResponseRow* keys,
                PjlParserState* state, PortContext* port) {
    const char* p = text;
    const char* previous = nullptr;
    while (*p != '\0' && *p != FormFeed && p != previous) {
        const ResponseRow* row = keys;
        while (row->Keyword != nullptr && !StartsWith(p, row->Keyword)) ++row;
        if (row->Keyword != nullptr) {
            const char* unused = p;
            if (row->Handler(p + std::strlen(row->Keyword), &unused, state, port) == 0) break;
            state->HaveSavedRest = 0;
        }
        const char* next = p;
        SkipEntry(p, &next);
        // An entry passed is progress: a long list in pieces is not stuck.
        if (next != p) state->HaveSavedRest = 0;
        previous = p;
        p = next;
    }
    *cursor = p;
    return *p == FormFeed ? 5 : 6;
}

int SkipLineKeyHandler(const char* text, const char** cursor, PjlParserState*, PortContext*) {
    return SkipLine(text, cursor);
}

void ResetParser(PjlParserState* state, int full) {
    state->HaveSavedRest = 0;
    TrimParseBuffer(&state->SavedRest);
    state->CurrentRow = &NullResponseRow;
    state->LastResult = 5;
    state->SkippingToFormFeed = 0;
    state->ParseFlags = 0;
    if (full) {
        if (state->ScratchSize != 0) {
            GlobalFree(state->ScratchValue);
        }
        state->ScratchValue = nullptr;
        state->ScratchSize = 0;
    }
    state->JobFlags = 0;
    state->RestRepeated = 0;
}

void DestroyParser(PjlParserState* state) {
    ResetParser(state, 1);
    FreeParseBuffer(&state->SavedRest);
    FreeParseBuffer(&state->Carry);
    GlobalFree(state);
}

}  // namespace langmon
