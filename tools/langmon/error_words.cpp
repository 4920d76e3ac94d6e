#include "error_words.h"

namespace langmon::tool {

namespace {

// The codes a call of the monitor, of the port monitors below it or of the
// platform under both can leave behind, with the ones a port monitor of a
// real port adds (a printer that is off, a cable pulled). The words say what
// the code means, not which call gave it: the caller says that.
struct ErrorText {
    DWORD code;
    const char* words;
};
constexpr ErrorText ErrorTexts[] = {
    {0, "no error was recorded"},
    {2, "the file was not found"},
    {5, "access was denied"},
    {6, "the handle is not valid"},
    {8, "not enough memory"},
    {29, "the device could not be written to"},
    {30, "the device could not be read from"},
    {21, "the device is not ready"},
    {31, "the device does not work"},
    {50, "the request is not supported"},
    {87, "a parameter is not valid"},
    {111, "the name is too long"},
    {112, "there is not enough space on the disk"},
    {122, "the buffer given is too small"},
    {124, "the information level is not valid"},
    {126, "the library was not found"},
    {127, "the library lacks a function it was asked for"},
    {170, "the resource is in use"},
    {183, "it already exists"},
    {234, "more data is available than the buffer holds"},
    {259, "there are no more items"},
    {288, "the caller does not own the mutex"},
    {298, "the semaphore is already at its most"},
    {1113, "a character has no equivalent in the code page"},
    {1167, "the device is not connected"},
    {1168, "the element was not found"},
    {1201, "the network connection is not available"},
    {1223, "the operation was cancelled"},
    {1460, "the time-out ran out"},
    {1797, "the printer driver is unknown"},
    {1801, "the printer name is not valid"},
    {1905, "the printer has been deleted"},
    {1906, "the printer is in a state that does not allow this"},
    {2250, "the network connection does not exist"},
};

}  // namespace

std::string ErrorWords(DWORD error) {
    const std::string number = "error " + std::to_string(error);
    for (const ErrorText& text : ErrorTexts) {
        if (text.code == error) return std::string(text.words) + " (" + number + ")";
    }
    return number;
}

}  // namespace langmon::tool
