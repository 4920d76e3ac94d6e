// The response state machine: what the printer sends back, split into responses
// and dispatched by the table of first lines.
#pragma once

#include <cstdint>

namespace langmon {

struct PortContext;
struct PjlParserState;

// A response handler returns 5 (the response is over, the cursor stands on its
// form feed) or 6 (it isn't over); a key handler 0 (stop the scan) or non-zero.
using ResponseHandler = int (*)(char* text, char** cursor, PjlParserState* state,
                                PortContext* port);

struct ResponseRow {
    const char* Keyword;
    ResponseHandler Handler;
};
using KeyRow = ResponseRow;

constexpr uint32_t InquireForm = 0x1;  // ParseFlags bit

struct PjlParserState {
    uint32_t HaveSavedRest;
    char* SavedRest;  // owned
    const ResponseRow* CurrentRow;
    uint32_t LastResult;
    uint32_t SkippingToFormFeed;
    uint32_t ParseFlags;
    void* ScratchValue;  // owned
    uint32_t ScratchSize;
    uint32_t JobFlags;
    uint32_t RestRepeated;
};

// One NUL-terminated block of what the printer sent, as the reader got it.
// Returns the last result of the parse; the reader stops parsing on 2.
// `publish` 1: what changed goes to the clients at once.
int ParseResponseBuffer(PortContext* port, char* text, int publish);

// Back to "between responses". With `full` the job record under construction
// is dropped too.
void ResetParser(PjlParserState* state, int full);

}  // namespace langmon
