// Job progress reports of the printer: each job's start, its pages, its
// statistics and its end, tied to the job they belong to, and the chain of
// jobs it has started and not yet ended.
#pragma once

#include "parser/response_parser.h"

namespace langmon {

struct StatusVariable;

// One job started at the printer while an earlier one is still open. The node
// owns its snapshot and the snapshot owns its Value, unless PrintingJobInfo2
// holds the same block since the job moved up.
struct JobInfoNode {
    StatusVariable* Snapshot;  // only Value, Dirty and Attributes are used
    JobInfoNode* Next;
};

extern const KeyRow JobKeys[10];

// "@PJL USTATUS JOB" and "@PJL USTATUS PAGE".
int JobReportHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int PageReportHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);

// The key handlers of JobKeys; `text` stands right behind the keyword.
int JobStartKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int JobEndKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
// Also the NAME of "@PJL USTATUS EOJ".
int JobNameKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int ColorPageKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int BwPageKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int CoverageKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int JobResultKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);

}  // namespace langmon
