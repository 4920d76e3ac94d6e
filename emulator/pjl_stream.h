// The printer's reader of the host's byte stream: it tells PJL command lines
// from page-description data and finds the UELs between them.
//
// After a UEL the printer reads commands: lines that begin with "@PJL", up to
// their LF; blank lines between them are passed over. The first byte of
// anything else begins data, which runs until the next UEL. The printer is
// lenient in one way that real firmware often is too: an "@PJL" in the data,
// wherever it stands, begins a command line, so a job whose data ends with no
// UEL and no line end still gets the EOJ read that the host puts right behind
// it. The stream may be cut anywhere: a UEL, an "@PJL" or a command line split
// across writes is put together again.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace langmon::emulator {

class PjlStreamSink {
public:
    virtual void OnUel() = 0;
    // The command line without "@PJL" and without its CR LF.
    virtual void OnCommand(std::string_view command) = 0;
    virtual void OnData(std::string_view data) = 0;

protected:
    ~PjlStreamSink() = default;
};

class PjlStream {
public:
    // Longer command lines are cut to this many bytes.
    static constexpr size_t MaxCommandLine = 1024;

    void Feed(std::string_view bytes, PjlStreamSink& sink);
    // The document ended: bytes held back for a match that can't complete now
    // are data. The next document starts reading commands.
    void EndOfDocument(PjlStreamSink& sink);

private:
    enum class Mode { Command, Data };

    void Byte(char byte, PjlStreamSink& sink);
    void FlushHeldAsData();

    Mode mode_ = Mode::Command;
    std::string held_;         // a UEL or "@PJL" begun but not complete
    bool inCommand_ = false;   // `line_` is collecting a command line
    std::string line_;
    std::string dataRun_;      // data bytes not yet handed on
};

}  // namespace langmon::emulator
