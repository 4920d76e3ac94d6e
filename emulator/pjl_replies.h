// The texts the printer sends back: replies to INFO and INQUIRE and the
// unsolicited USTATUS reports. Every line ends in CR LF and every response in
// a form feed.
#pragma once

#include "emulator/printer_condition.h"
#include "emulator/printer_state.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace langmon::emulator {

// `head` is "INFO STATUS" or "USTATUS DEVICE": CODE, DISPLAY and ONLINE lines.
// DISPLAY holds the first panel line filled to 16 characters and then the
// second, so that characters 0 to 15 are line one and 16 to 31 line two.
std::string DeviceStatusResponse(std::string_view head, const PrinterCondition& condition);

std::string PageCountResponse(uint32_t pageCount);
std::string ServiceTagResponse(std::string_view serviceTag);
std::string ConfigResponse(const PrinterState& state);
std::string VariablesResponse(const PrinterState& state);
// A setting the printer doesn't have is answered with "?".
std::string InquireResponse(std::string_view name, const PrinterState& state);

// Figures of printed pages: how many in colour and in black, and the average
// coverage in percent of cyan, magenta, yellow and black.
struct PageFigures {
    uint32_t colorPages = 0;
    uint32_t bwPages = 0;
    std::array<uint32_t, 4> coverage{};  // C, M, Y, K
};

std::string JobStartReport(std::string_view name);
// The figures of pages just printed; a report of its own after each page.
std::string JobFiguresReport(const PageFigures& figures);

enum class JobResult : uint8_t { Ok, CancelledAtPanel, CancelledByHost };

// The job's end: END, its name, PAGES, the job's whole figures, a CANCELED
// line when it was cancelled at the panel, and RESULT.
std::string JobEndReport(std::string_view name, uint32_t pages, const PageFigures& figures,
                         JobResult result);
std::string PageReport(uint32_t pagesOfJob);

// Characters of a UTF-8 text, as the panel counts them.
size_t Utf8Length(std::string_view text);
// The text cut to `characters` characters, never in the middle of one.
std::string_view Utf8Prefix(std::string_view text, size_t characters);

}  // namespace langmon::emulator
