// The response state machine: what the printer sends back, split into responses
// and dispatched by the table of first lines.
#pragma once

#include "parser/parse_buffer.h"

#include <cstdint>

namespace langmon {

struct PortContext;
struct PjlParserState;

// A response handler returns 5 (the response is over, the cursor stands on its
// form feed) or 6 (it isn't over); a key handler 0 (stop the scan) or non-zero.
// Either leaves `cursor` on the first byte it has not used.
using ResponseHandler = int (*)(const char* text, const char** cursor, PjlParserState* state,
                                PortContext* port);

struct ResponseRow {
    const char* Keyword;
    ResponseHandler Handler;
};
using KeyRow = ResponseRow;

constexpr uint32_t InquireForm = 0x1;  // ParseFlags bit

struct PjlParserState {
    uint32_t HaveSavedRest;
    ParseBuffer SavedRest;  // what it holds counts while HaveSavedRest is 1
    const ResponseRow* CurrentRow;
    uint32_t LastResult;
    uint32_t SkippingToFormFeed;
    uint32_t ParseFlags;
    void* ScratchValue;  // owned
    uint32_t ScratchSize;
    uint32_t JobFlags;
    uint32_t RestRepeated;
    // The port's responseTail, when there is one, at the start; the next
    // block is copied in behind it.
    ParseBuffer Carry;
};

// The first lines the parser knows, searched from the top; the first prefix
// wins. Any other response is passed over whole.
extern const ResponseRow ResponseTable[11];

// One NUL-terminated block of what the printer sent, as the reader got it.
// Returns the last result of ParseResponse (0 when there was nothing to
// parse); the reader stops parsing on 2. `publish` 1: what changed goes to
// the clients at the end of each response.
int ParseResponseBuffer(PortContext* port, const char* text, int publish);
// One response, or one stretch of one: 0 a response ended, 1 the text at
// `cursor` can't be finished yet, 2 the byte behind a form feed was neither
// '@' nor NUL, 6 skipping used up the text.
int ParseResponse(const char* text, const char** cursor, PortContext* port, int publish);
// One step of the state machine: 5 with `cursor` on the form feed that ends
// the response, or 6 while it isn't over.
int DispatchResponse(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port);

// The two ways handlers walk a response's body with their key table (rows
// end in a null keyword). The strict scan stops at a line it doesn't know;
// the lenient one steps over such an entry, TAB lines and all, and counts
// each entry passed as progress. Both: 5 on the form feed, else 6.
int StrictScan(const char* text, const char** cursor, const ResponseRow* keys,
               PjlParserState* state, PortContext* port);
int LenientScan(const char* text, const char** cursor, const ResponseRow* keys,
                PjlParserState* state, PortContext* port);

// A key handler that uses its line and takes nothing from it; it refuses a
// line whose LF hasn't arrived.
int SkipLineKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);

// Back to "between responses". With `full` the job record under construction
// is dropped too. The buffers stay for the next response.
void ResetParser(PjlParserState* state, int full);
// The state of a port that goes, with its buffers; the port's responseTail,
// which lies in one of them, goes with it.
void DestroyParser(PjlParserState* state);

}  // namespace langmon
