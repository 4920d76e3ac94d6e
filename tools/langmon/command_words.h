// The words of a command line, read option by option, and the options that
// every command on a port takes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace langmon::tool {

class CommandWords {
public:
    CommandWords(const std::vector<std::string>& words, std::string* error) : words_(words), error_(error) {}
    // The next word into `word`; false at the end, or, with the reason in
    // the error, when the option before was given a value with '=' that it
    // does not take. "--name=value" is read as "--name", its value kept for
    // Value(): every option that takes a value takes it either way.
    bool Next(std::string* word) {
        if (attached_) {
            *error_ = last_ + " takes no value";
            broken_ = true;
            return false;
        }
        if (next_ >= words_.size()) return false;
        *word = words_[next_++];
        const std::size_t equals = word->find('=');
        if (word->rfind("--", 0) == 0 && equals != std::string::npos) {
            attached_ = word->substr(equals + 1);
            word->resize(equals);
        }
        last_ = *word;
        return true;
    }
    // The value of the option just read; false, with the reason in the
    // error, when the line ends first.
    bool Value(std::string* into) {
        if (attached_) {
            *into = std::move(*attached_);
            attached_.reset();
            return true;
        }
        if (next_ >= words_.size()) {
            *error_ = last_ + " needs a value";
            broken_ = true;
            return false;
        }
        *into = words_[next_++];
        return true;
    }
    // Whether the words ended on an error rather than at the end of the line.
    bool Broken() const { return broken_; }

private:
    const std::vector<std::string>& words_;
    std::string* error_;
    std::size_t next_ = 0;
    std::string last_;
    std::optional<std::string> attached_;  // the value after '=' of the option just read
    bool broken_ = false;
};

// Where a command's port leads and whose it is.
struct PortChoice {
    // The printer's address (see printer_address.h): "emulator",
    // "emulator:DESCRIPTION", "file:PATH", "langmon:/dev/ttyS0", ...
    std::string printer = "emulator";
    // The commands put a serial printer on COM1: instead, unless --port
    // names the port.
    std::string portName = "LPT1:";
    bool portGiven = false;
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
    if (into == &choice->portName) choice->portGiven = true;
    return words.Value(into) ? OptionTaken::Yes : OptionTaken::Broken;
}

}  // namespace langmon::tool
