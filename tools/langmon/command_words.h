// The words of a command line, read option by option, and the options that
// every command on a port takes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace langmon::tool {

class CommandWords {
public:
    CommandWords(const std::vector<std::string>& words, std::string* error) : words_(words), error_(error) {}
    // The next word into `word`; false at the end.
    bool Next(std::string* word) {
        if (next_ >= words_.size()) return false;
        *word = words_[next_++];
        return true;
    }
    // The value behind the option just read; false, with the reason in the
    // error, when the line ends first.
    bool Value(std::string* into) {
        if (next_ >= words_.size()) {
            *error_ = words_[next_ - 1] + " needs a value";
            return false;
        }
        *into = words_[next_++];
        return true;
    }

private:
    const std::vector<std::string>& words_;
    std::string* error_;
    std::size_t next_ = 0;
};

// Where a command's port leads and whose it is.
struct PortChoice {
    // "emulator", "emulator:DESCRIPTION" (see emulator/printer_description.h)
    // or "file:PATH".
    std::string printer = "emulator";
    std::string portName = "LPT1:";
    // The spooler's name of the printer; when empty, the machine's printer
    // on the port.
    std::string printerName;
};

enum class OptionTaken { No, Yes, Broken };

// Takes `word` and its value when it is --printer, --port or --printer-name.
inline OptionTaken TakePortOption(const std::string& word, CommandWords& words, PortChoice* choice) {
    std::string* into = word == "--printer"        ? &choice->printer
                        : word == "--port"         ? &choice->portName
                        : word == "--printer-name" ? &choice->printerName
                                                   : nullptr;
    if (into == nullptr) return OptionTaken::No;
    return words.Value(into) ? OptionTaken::Yes : OptionTaken::Broken;
}

}  // namespace langmon::tool
