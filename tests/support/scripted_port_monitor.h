// A port monitor for tests: it stands below the language monitor in place of a
// real one, records every call that reaches it with its arguments and bytes,
// and answers as the test scripted it.
//
// The MONITOR table holds plain C function pointers, which carry no user data,
// so one ScriptedPortMonitor at a time is the active one, and the HANDLE that
// its OpenPort returns points at the ScriptedPort of that name. A port's script
// is made on first use, by the test through Port(name) or by OpenPort, and
// outlives ClosePort so that a test can look at it afterwards.
//
//     testing::ScriptedPortMonitor lower;
//     lower.Port("LPT1").QueueWrite(testing::WriteAnswer::Take(1));
//     OpenPortEx("LPT1", "Printer", &handle, lower.Table());
//     ...
//     EXPECT_EQ(lower.Port("LPT1").Received(), "...") << lower.Log();
#pragma once

#include <langmon/monitor.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace langmon::testing {

// What one WritePort call does.
struct WriteAnswer {
    static constexpr DWORD All = 0xFFFFFFFFu;

    BOOL result = TRUE;
    DWORD take = All;  // bytes taken, at most what was offered
    DWORD error = 0;   // last error the call sets; 0 leaves it alone

    static WriteAnswer TakeAll() { return {}; }
    static WriteAnswer Take(DWORD n) { return {TRUE, n, 0}; }
    // FALSE, nothing taken.
    static WriteAnswer Refuse(DWORD error) { return {FALSE, 0, error}; }
    // TRUE with 0 bytes taken; `error` (if not 0) becomes the last error.
    static WriteAnswer TakeNothing(DWORD error = 0) { return {TRUE, 0, error}; }
};

// What one ReadPort call does: gives a piece of data, or fails.
struct ReadAnswer {
    BOOL result = TRUE;
    std::string data;
    DWORD error = 0;

    static ReadAnswer Data(std::string text) { return {TRUE, std::move(text), 0}; }
    static ReadAnswer Fail(DWORD error) { return {FALSE, {}, error}; }
};

enum class CallKind {
    OpenPort,
    StartDocPort,
    WritePort,
    ReadPort,
    EndDocPort,
    ClosePort,
    GetPrinterDataFromPort,
    SetPortTimeOuts,
};
const char* CallName(CallKind kind);

// One call as it reached the port monitor. Only the fields of its kind are set.
struct PortCall {
    CallKind kind{};
    std::string port;
    DWORD tick = 0;  // GetTickCount when the call came
    BOOL result = FALSE;

    // StartDocPort.
    std::optional<std::string> printerName;
    DWORD jobId = 0;
    DWORD level = 0;
    bool hasDocInfo = false;
    std::optional<std::string> docName, outputFile, datatype;
    DWORD dwMode = 0;
    DWORD docJobId = 0;

    // WritePort: the bytes offered and how many were taken. ReadPort: the
    // bytes given back, their count and the buffer size.
    std::string bytes;
    DWORD count = 0;
    DWORD size = 0;

    // GetPrinterDataFromPort.
    DWORD controlId = 0;
    std::optional<std::string> valueName;
    DWORD inSize = 0;
    DWORD outSize = 0;
    DWORD returned = 0;

    // SetPortTimeOuts.
    COMMTIMEOUTS timeouts{};

    std::string Describe() const;
};

class ScriptedPortMonitor;

// One port below: its script and what reached it.
class ScriptedPort {
public:
    explicit ScriptedPort(std::string name) : name_(std::move(name)) {}

    // Script. OpenPort, StartDocPort and EndDocPort fail from now on with
    // `error` as the last error; an error of 0 makes them succeed again.
    void FailOpen(DWORD error);
    // With `jobsOnly` only a job's document fails; the monitor's own, with
    // JobId 0, still opens.
    void FailStartDoc(DWORD error, bool jobsOnly = false);
    // Answers for the next writes, in order; once they are used up every write
    // takes all.
    void QueueWrite(WriteAnswer answer);
    // Answers for the next reads, in order. A piece larger than the reader's
    // buffer is given out over several reads. Without any, a read gives 0 bytes.
    void QueueRead(ReadAnswer answer);
    void QueueRead(std::string data) { QueueRead(ReadAnswer::Data(std::move(data))); }
    // The device ID text for ControlID 17 and for the USB code 0x16000C.
    void SetDeviceId(std::string text);
    void FailDeviceId(DWORD error);
    // An answer for any other ControlID; without one such a request fails
    // with ERROR_NOT_SUPPORTED.
    void SetControlAnswer(DWORD controlId, std::string text);
    // SetPortTimeOuts sets this last error (0: leaves it alone).
    void SetTimeOutsError(DWORD error);

    // What happened.
    std::vector<PortCall> Calls() const;
    std::vector<PortCall> Calls(CallKind kind) const;
    std::vector<CallKind> CallKinds() const;
    int Count(CallKind kind) const;
    // StartDocPort calls for a job's document: the monitor's own carry JobId 0.
    int JobDocumentStarts() const;
    // Every byte the port took, all writes in order.
    std::string Received() const;
    void ForgetCalls();  // calls and received bytes, not the script
    void ForgetQueuedWrites();  // answers not used yet: every write takes all

private:
    friend struct ScriptedEntries;

    std::string name_;

    bool failOpen_ = false;
    DWORD openError_ = 0;
    bool failStartDoc_ = false;
    DWORD startDocError_ = 0;
    bool startDocJobsOnly_ = false;
    std::deque<WriteAnswer> writes_;
    std::deque<ReadAnswer> reads_;
    struct ControlAnswer {
        bool fail = false;
        DWORD error = 0;
        std::string text;
    };
    std::map<DWORD, ControlAnswer> controls_;
    DWORD timeOutsError_ = 0;

    std::vector<PortCall> calls_;
    std::string received_;
};

class ScriptedPortMonitor {
public:
    // Becomes the active port monitor; only one may be alive at a time.
    ScriptedPortMonitor();
    ~ScriptedPortMonitor();
    ScriptedPortMonitor(const ScriptedPortMonitor&) = delete;
    ScriptedPortMonitor& operator=(const ScriptedPortMonitor&) = delete;

    // The table to hand to OpenPortEx.
    MONITOR* Table() { return &table_; }
    // A port monitor without these entries.
    void RemoveSetPortTimeOuts() { table_.SetPortTimeOuts = nullptr; }
    void RemoveGetPrinterDataFromPort() { table_.GetPrinterDataFromPort = nullptr; }

    // The port of that name, made on first use.
    ScriptedPort& Port(const std::string& name);
    // Every call on every port, one per line, in the order they came.
    std::string Log() const;

private:
    friend struct ScriptedEntries;

    MONITOR table_{};
    std::map<std::string, std::unique_ptr<ScriptedPort>> ports_;
    std::vector<std::string> log_;
};

}  // namespace langmon::testing
