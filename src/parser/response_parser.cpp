#include "parser/response_parser.h"

#include "platform/memory.h"

namespace langmon {

namespace {
// The row of "no response in progress": keyword and handler null.
constexpr ResponseRow NullResponseRow{nullptr, nullptr};
}  // namespace

// Until the response state machine lands, what the printer sends unasked is
// read and let go: nothing of it changes a variable.
int ParseResponseBuffer(PortContext*, char*, int) { return 5; }

void ResetParser(PjlParserState* state, int full) {
    state->HaveSavedRest = 0;
    GlobalFree(state->SavedRest);
    state->SavedRest = nullptr;
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

}  // namespace langmon
