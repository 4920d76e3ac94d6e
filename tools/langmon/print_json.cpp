#include "print_json.h"

#include "job_progress_view.h"
#include "json_document.h"
#include "printer_view.h"

#include "variables/derived.h"
#include "variables/spooler_status.h"

#include <ostream>

namespace langmon::tool {

namespace {

using json = nlohmann::ordered_json;

json Call(const char* name, bool ok, DWORD error) {
    return {{"call", name}, {"ok", ok}, {"last_error", ok ? json(nullptr) : json(error)}};
}

json Calls(const PrintOutcome& outcome) {
    json calls = json::array({Call("OpenPortEx", outcome.opened, outcome.openError)});
    if (const SentJob* sent = outcome.sent) {
        calls.push_back(Call("StartDocPort", sent->started != FALSE, sent->startError));
        if (sent->started) {
            json write = Call("WritePort", sent->writeFailure.empty(), 0);
            write["last_error"] = nullptr;
            write["calls"] = sent->writeCalls;
            write["bytes_taken"] = sent->taken;
            write["job_bytes"] = sent->job.Size();
            write["failure"] = sent->writeFailure.empty() ? json(nullptr) : json(sent->writeFailure);
            calls.push_back(write);
            calls.push_back(Call("EndDocPort", sent->ended != FALSE, sent->endError));
        }
    }
    if (outcome.closed) calls.push_back(Call("ClosePort", *outcome.closed, outcome.closeError));
    return calls;
}

// Where the job's bytes stand in what the printer received, and the bytes
// around them as the printer got them.
json Received(const PrintOutcome& outcome) {
    if (!outcome.received || outcome.sent == nullptr) return nullptr;
    const StreamRecord& received = *outcome.received;
    const StreamRecord& job = outcome.sent->job;
    json result = {{"bytes", received.Size()}, {"job_bytes", job.Size()}};
    bool undecided = false;
    const std::optional<uint64_t> at = received.Find(job, &undecided);
    result["job_found"] = at.has_value();
    if (!at) {
        result["ahead_bytes"] = result["behind_bytes"] = result["ahead"] = result["behind"] = nullptr;
        return result;
    }
    const uint64_t after = received.Size() - *at - job.Size();
    result["ahead_bytes"] = *at;
    result["behind_bytes"] = after;
    // The job was found in the head, so all that is ahead of it is kept;
    // of what is behind it, the last bytes are.
    result["ahead"] = std::string(received.Head().substr(0, *at));
    result["behind"] = std::string(received.Tail(after));
    return result;
}

json Followed(const std::vector<uint8_t>& record) {
    const auto word = [&](uint32_t offset) { return ReadWord(record.data(), offset); };
    const uint32_t id = word(JobIdOffset);
    const uint32_t colour = word(ColorPagesOffset);
    const uint32_t black = word(BwPagesOffset);
    // Only the final record carries the job's statistics; the record that
    // names no job says that none is printing, whatever else it holds.
    const bool ended = id != 0 && (colour != 0 || black != 0);
    json entry = {{"text", JobRecordText(record)},
                  {"job_id", id != 0 ? json(id) : json(nullptr)},
                  {"pages", id != 0 ? word(PagesOffset) : 0},
                  {"ended", ended}};
    entry["colour_pages"] = ended ? json(colour) : json(nullptr);
    entry["black_pages"] = ended ? json(black) : json(nullptr);
    entry["coverage"] = ended ? json({{"cyan", word(CyanCoverageOffset)},
                                      {"magenta", word(MagentaCoverageOffset)},
                                      {"yellow", word(YellowCoverageOffset)},
                                      {"black", word(BlackCoverageOffset)}})
                              : json(nullptr);
    return entry;
}

json SpoolerWords(const std::vector<uint32_t>& words) {
    json list = json::array();
    for (const uint32_t value : words) {
        json names = json::array();
        for (const SpoolerStatusRow* row = SpoolerStatusMap; row->Name != nullptr; ++row) {
            if ((value & row->Value) != 0) names.push_back(row->Name);
        }
        list.push_back({{"value", value}, {"names", names}});
    }
    return list;
}

}  // namespace

void WritePrintJson(std::ostream& out, const PrintOutcome& outcome) {
    json document = NewJsonDocument("print");
    document["job_file"] = outcome.jobFile;
    document["port"] = outcome.portName;
    document["printer_name"] = outcome.printerName;
    document["target"] = outcome.target;
    document["calls"] = Calls(outcome);
    document["stopped"] = outcome.stoppedBy.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(outcome.stoppedBy);
    document["received"] = Received(outcome);
    document["printer"] = outcome.printer;
    if (outcome.client.empty()) {
        document["client"] = {{"problem", outcome.clientProblem}, {"printer", nullptr}};
    } else {
        document["client"] = {{"problem", nullptr},
                              {"printer", PrinterJson(ValueFacts(outcome.client), ViewScope::Client)}};
    }
    if (outcome.followed) {
        json followed = json::array();
        for (const std::vector<uint8_t>& record : *outcome.followed) followed.push_back(Followed(record));
        document["followed"] = followed;
    } else {
        document["followed"] = nullptr;
    }
    document["spooler_status"] = SpoolerWords(outcome.spoolerWords);
    document["variables"] = VariablesJson(outcome.client);
    WriteJsonDocument(out, document);
}

}  // namespace langmon::tool
