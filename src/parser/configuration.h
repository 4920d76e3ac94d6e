// Replies that describe the printer rather than its state: INFO CONFIG, INFO
// VARIABLES, INQUIRE, INFO PAGECOUNT and INFO SERVICETAG. Only the service tag
// is asked for by the system itself; the others are taken whenever they come.
#pragma once

#include "parser/response_parser.h"

namespace langmon {

// The key table of INFO CONFIG; an entry that begins with none of its
// keywords is stepped over with its TAB lines.
extern const KeyRow InfoConfigKeys[8];

// Response handlers (see ResponseTable): 5 with `cursor` on the form feed
// that ends the response, 6 while it isn't over.
int InfoConfigHandler(const char* text, const char** cursor, PjlParserState* state,
                      PortContext* port);
int InfoVariablesHandler(const char* text, const char** cursor, PjlParserState* state,
                         PortContext* port);
int InquireHandler(const char* text, const char** cursor, PjlParserState* state, PortContext* port);
int PageCountHandler(const char* text, const char** cursor, PjlParserState* state,
                     PortContext* port);
int ServiceTagHandler(const char* text, const char** cursor, PjlParserState* state,
                      PortContext* port);

// Key handlers of InfoConfigKeys, `text` right behind the keyword: 0 while
// the entry isn't complete, non-zero once it is, whether or not it changed
// anything.
int ConfigTrayKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                         PortContext* port);
int ConfigDuplexKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                           PortContext* port);
int ConfigOutTraysKeyHandler(const char* text, const char** cursor, PjlParserState* state,
                             PortContext* port);

}  // namespace langmon
