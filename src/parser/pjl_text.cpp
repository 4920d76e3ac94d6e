#include "parser/pjl_text.h"

namespace langmon {

uint32_t ParseDecimal(const char* text) {
    uint32_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10u + static_cast<uint32_t>(*text - '0');
    }
    return value;
}

}  // namespace langmon
