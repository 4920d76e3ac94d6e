// The printer's operator panel settings, as INFO VARIABLES and INQUIRE replies
// carry them: which keyword feeds which Opp variable, and what number each
// value word becomes.
#pragma once

#include "parser/response_parser.h"

#include <cstdint>

namespace langmon {

// A value word and the number it stands for. Tables end in a row with a null
// keyword; a value is matched by prefix, from the top, the first row wins.
struct ValueRow {
    const char* Keyword;
    uint32_t Value;
};

extern const ValueRow OrientationValues[];
extern const ValueRow RetValues[];
extern const ValueRow OnOffValues[];
extern const ValueRow DuplexValues[];
extern const ValueRow BindPositionValues[];
extern const ValueRow OutBinValues[];
extern const ValueRow TrayDirectionValues[];
extern const ValueRow PaperTypeValues[];
extern const ValueRow MediaSizeValues[];

// The key table of INFO VARIABLES and INQUIRE: twelve keywords and the null
// row, searched from the top for prefixes.
extern const KeyRow OppVariableKeys[13];

// The number of the first row of `table` that `valueText` begins with goes to
// the variable, under the port's lock. 1 if the variable took a new value; 0
// for an unknown word, a variable without a row, or a value it already had.
int SetKeywordVariable(const char* valueText, const char* variableName, const ValueRow* table,
                       PortContext* port);
// The common body of the keyword handlers: 0 while the entry at `text` isn't
// complete; else 1, the value behind its separator stored as in
// SetKeywordVariable, and `cursor` behind the entry.
int ParseKeywordEntry(const char* text, const char** cursor, const char* variableName,
                      const ValueRow* table, PortContext* port, PjlParserState* state);

// Key handlers of OppVariableKeys; `text` stands right behind the keyword.
// Each returns 0 while its entry isn't complete and 1 once it is, whether or
// not anything was stored. The value stands behind the next LF when the
// state's InquireForm bit is set, behind "=" otherwise.
int CopiesKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port);
int OrientationKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                          PortContext* port);
int RetKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int EconoModeKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                        PortContext* port);
int TrayKeyHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int PowerSaveTimeKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                            PortContext* port);
int PowerSaveKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                        PortContext* port);
int PaperKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                    PortContext* port);
int TimeoutKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                      PortContext* port);
int DuplexKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port);
int BindPositionKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                           PortContext* port);
int OutBinKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port);

}  // namespace langmon
