#include "parser/pjl_text.h"

#include "parser/response_parser.h"

#include <cstring>

namespace langmon {

uint32_t ParseDecimal(const char* text) {
    uint32_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10u + static_cast<uint32_t>(*text - '0');
    }
    return value;
}

int SkipLine(const char* text, const char** cursor) {
    if (cursor != nullptr) *cursor = text;
    const char* lf = std::strchr(text, '\n');
    if (lf == nullptr) return 0;
    if (cursor != nullptr) *cursor = lf + 1;
    return 1;
}

int SkipEntry(const char* text, const char** cursor) {
    *cursor = text;
    const char* at = text;
    for (;;) {
        const char* lf = std::strchr(at, '\n');
        if (lf == nullptr || lf[1] == '\0') return 0;
        if (lf[1] != '\t') {
            *cursor = lf + 1;
            return 1;
        }
        at = lf + 1;
    }
}

int SkipToFormFeed(const char* text, const char** cursor, PjlParserState* state) {
    state->SkippingToFormFeed = 1;
    const char* feed = std::strchr(text, FormFeed);
    if (feed == nullptr) {
        *cursor = text + std::strlen(text);
        return 0;
    }
    *cursor = feed;
    state->SkippingToFormFeed = 0;
    return 1;
}

bool StartsWith(const char* text, const char* keyword) {
    return std::strncmp(text, keyword, std::strlen(keyword)) == 0;
}

}  // namespace langmon
