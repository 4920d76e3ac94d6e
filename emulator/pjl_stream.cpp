#include "emulator/pjl_stream.h"

namespace langmon::emulator {
namespace {

constexpr std::string_view Uel = "\x1b%-12345X";
constexpr std::string_view PjlPrefix = "@PJL";

}  // namespace

void PjlStream::Feed(std::string_view bytes, PjlStreamSink& sink) {
    for (char byte : bytes) Byte(byte, sink);
    if (!dataRun_.empty()) {
        sink.OnData(dataRun_);
        dataRun_.clear();
    }
}

void PjlStream::EndOfDocument(PjlStreamSink& sink) {
    if (inCommand_) {
        // A command line without its LF is still a command.
        inCommand_ = false;
        sink.OnCommand(std::string_view(line_).substr(PjlPrefix.size()));
        line_.clear();
    }
    FlushHeldAsData();
    if (!dataRun_.empty()) {
        sink.OnData(dataRun_);
        dataRun_.clear();
    }
    mode_ = Mode::Command;
}

void PjlStream::FlushHeldAsData() {
    if (held_.empty()) return;
    if (mode_ == Mode::Command) mode_ = Mode::Data;
    dataRun_ += held_;
    held_.clear();
}

void PjlStream::Byte(char byte, PjlStreamSink& sink) {
    if (inCommand_) {
        if (byte == '\n') {
            inCommand_ = false;
            std::string_view command = std::string_view(line_).substr(PjlPrefix.size());
            if (!command.empty() && command.back() == '\r') command.remove_suffix(1);
            sink.OnCommand(command);
            line_.clear();
            mode_ = Mode::Command;
        } else if (line_.size() < MaxCommandLine) {
            line_ += byte;
        }
        return;
    }

    if (!held_.empty()) {
        std::string_view target = held_[0] == Uel[0] ? Uel : PjlPrefix;
        if (byte == target[held_.size()]) {
            held_ += byte;
            if (held_.size() < target.size()) return;
            if (!dataRun_.empty()) {
                sink.OnData(dataRun_);
                dataRun_.clear();
            }
            if (target == Uel) {
                held_.clear();
                mode_ = Mode::Command;
                sink.OnUel();
            } else {
                line_ = held_;
                held_.clear();
                inCommand_ = true;
            }
            return;
        }
        // Not what it began as: the held bytes were data after all, and this
        // byte is looked at afresh.
        FlushHeldAsData();
    }

    if (byte == Uel[0]) {
        held_ = byte;
        return;
    }
    // "@PJL" begins a command wherever it stands, not only at a line start:
    // the host's EOJ line follows the job's last byte directly, and that
    // byte may be a form feed, a Ctrl-D or the end of any text.
    if (byte == '@') {
        held_ = byte;
        return;
    }
    if (mode_ == Mode::Command && (byte == '\r' || byte == '\n' || byte == ' ' || byte == '\t')) {
        return;  // blank lines between commands
    }
    mode_ = Mode::Data;
    dataRun_ += byte;
}

}  // namespace langmon::emulator
