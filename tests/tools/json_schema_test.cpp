// The JSON that status, decode and print write, on the emulated printer in
// a few states, checked against docs/langmon.schema.json by a validator of
// its own (Debian's python3-jsonschema), and what a script reads from it.

#include "langmon/decode_command.h"
#include "langmon/print_command.h"
#include "langmon/status_command.h"
#include "support/device_ids.h"
#include "support/platform_fixture.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include <unistd.h>

namespace langmon::tool {
namespace {

using json = nlohmann::json;

class JsonSchemaTest : public testing::MonitorTest {
protected:
    void TearDown() override {
        SettleThreads();
        MonitorTest::TearDown();
    }
    // Each line the command wrote, as a document; all of them are kept for
    // the validator.
    std::vector<json> Keep(const std::string& out) {
        std::vector<json> documents;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            documents.push_back(json::parse(line));
            all_ += line + '\n';
        }
        EXPECT_FALSE(documents.empty()) << "no JSON";
        return documents;
    }
    std::vector<json> Status(const std::vector<std::string>& words) {
        StatusOptions options;
        std::string error;
        EXPECT_TRUE(ParseStatusOptions(words, &options, &error)) << error;
        std::ostringstream out, err;
        EXPECT_EQ(RunStatus(options, out, err, notInterrupted_), 0) << err.str();
        return Keep(out.str());
    }
    json Decode(const std::string& text) {
        DecodeOptions options;
        std::string error;
        EXPECT_TRUE(ParseDecodeOptions({"--json", text}, &options, &error)) << error;
        std::ostringstream out, err;
        EXPECT_EQ(RunDecode(options, out, err), 0) << err.str();
        return Keep(out.str()).at(0);
    }
    json Print(const std::vector<std::string>& words, int exitCode = 0) {
        PrintOptions options;
        std::string error;
        EXPECT_TRUE(ParsePrintOptions(words, &options, &error)) << error;
        std::ostringstream out, err;
        EXPECT_EQ(RunPrint(options, out, err, notInterrupted_), exitCode) << err.str();
        std::vector<json> documents = Keep(out.str());
        EXPECT_EQ(documents.size(), 1u) << "one document, at the end";
        return documents.at(0);
    }
    // The validator's verdict on every document kept, and its exit code.
    std::string Validate(int* exitCode) {
        const std::string path = ::testing::TempDir() + "langmon-json-" + std::to_string(::getpid());
        std::ofstream(path) << all_;
        const std::string command = std::string(LANGMON_PYTHON) + " " + LANGMON_JSON_VALIDATOR + " " +
                                    LANGMON_JSON_SCHEMA + " " + path + " 2>&1";
        std::string verdict;
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char buffer[512];
            while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) verdict += buffer;
            *exitCode = ::pclose(pipe);
        }
        std::remove(path.c_str());
        return verdict;
    }

    const std::atomic<bool> notInterrupted_{false};
    std::string all_;
};

TEST_F(JsonSchemaTest, WhatEachCommandWritesFollowsTheSchema) {
    // status of a ready printer: names, levels in percent, paper in millimetres.
    const json ready = Status({"--json"}).at(0);
    EXPECT_EQ(ready["version"], 1);
    EXPECT_EQ(ready["at_seconds"], nullptr);
    const json& printer = ready["printer"];
    EXPECT_EQ(printer["condition"], "ready");
    EXPECT_EQ(printer["state"], "idle");
    EXPECT_EQ(printer["state_reasons"], json::array());
    EXPECT_EQ(printer["supplies"][0], json::parse(R"({"name":"cyan","kind":"toner","level":100,"state":"ok"})"));
    EXPECT_EQ(printer["trays"][1], json::parse(R"({"name":"cassette 1","paper":{"name":"A4","code":9,"mm":[210.0,297.0]},
                                                  "media":{"name":"plain","code":0},"paper_level":"some"})"));

    // A jam behind an open cover, and toner nearly gone: the most urgent is
    // the condition, and every reason is listed in CUPS's words.
    const json stopped = Status({"--json", "--printer", "emulator:jam=3,cover-open,toner.black=2"}).at(0);
    EXPECT_EQ(stopped["printer"]["condition"], "cover-open");
    EXPECT_EQ(stopped["printer"]["state"], "stopped");
    EXPECT_EQ(stopped["printer"]["state_reasons"], json::parse(R"(["cover-open","toner-low","media-jam"])"));
    EXPECT_EQ(stopped["printer"]["covers_open"], json::parse(R"(["front"])"));
    EXPECT_EQ(stopped["printer"]["jams"], json::parse(R"(["place 3"])"));
    EXPECT_EQ(stopped["printer"]["supplies"][3]["level"], 2);
    EXPECT_EQ(stopped["printer"]["supplies"][3]["state"], "near-empty");
    EXPECT_EQ(stopped["variables"]["ErrCoverOpen"], "01000000");

    // --watch --json asks the panel anew when the state changes, as the text
    // form does: only that request brings the panel of an opened cover.
    const std::vector<json> watched = Status({"--json", "--watch", "--for", "10", "--at", "2:cover-open"});
    bool panelAsked = false;
    for (const json& document : watched) {
        panelAsked = panelAsked || document["printer"]["panel"] == json::parse(R"(["Cover open","Close cover"])");
    }
    EXPECT_TRUE(panelAsked) << all_;
    EXPECT_GE(watched.back()["at_seconds"].get<double>(), 2.0);

    // decode: the levels the device ID carries, every variable in hex.
    const json known = Decode(testing::KnownPrinterId);
    EXPECT_EQ(known["printer"]["model_known"], true);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(known["printer"]["supplies"][i]["level"], json::array({90, 75, 60, 45})[i]);
    EXPECT_EQ(known["printer"]["options"][0], "duplex unit");
    EXPECT_EQ(known["variables"]["TonerRemain"], "5a4b3c2d");
    EXPECT_EQ(known["variables"]["PrinterBinConfig"], "02000000d107d1070900fe0000000000010001000900fd0000000000");
    const json foreign = Decode(testing::ForeignPrinterId);
    EXPECT_EQ(foreign["printer"]["condition"], "unknown-model");
    EXPECT_EQ(foreign["printer"]["supplies"], nullptr) << "nothing is read of a foreign printer";

    // print to a jammed printer, which stops the job, and to one that prints it.
    const std::string job = ::testing::TempDir() + "json-job-" + std::to_string(::getpid()) + ".ps";
    std::ofstream(job) << "%!PS-Adobe-3.0\n1 0 0 setrgbcolor showpage\nshowpage\n%%EOF\n";
    const json jammed = Print({job, "--json", "--printer", "emulator:jam"}, StoppedJobExitCode);
    EXPECT_EQ(jammed["printer"]["condition"], "paper-jam");
    EXPECT_EQ(jammed["stopped"], "paper jam");
    EXPECT_EQ(jammed["client"]["printer"]["state_reasons"], json::array({"media-jam"}));
    EXPECT_EQ(jammed["received"]["job_found"], true);
    std::vector<std::string> calls;
    for (const json& call : jammed["calls"]) {
        calls.push_back(call["call"]);
        EXPECT_EQ(call["ok"], true) << call;
    }
    EXPECT_EQ(calls, (std::vector<std::string>{"OpenPortEx", "StartDocPort", "WritePort", "EndDocPort", "ClosePort"}));
    testing::DescribePrinter("Office", testing::Driver6200, "LPT1:");
    const json followed = Print({job, "--json", "--printer-name", "Office"});
    EXPECT_EQ(followed["stopped"], nullptr);
    EXPECT_EQ(followed["printer_name"], "Office");
    EXPECT_EQ(followed["received"]["ahead"].get<std::string>().rfind("\x1B%-12345X@PJL", 0), 0u) << followed["received"];
    EXPECT_EQ(followed["client"]["printer"]["panel"][0], "Ready");
    bool ended = false;
    for (const json& record : followed["followed"]) {
        if (record["ended"] == true) {
            ended = true;
            EXPECT_EQ(record["colour_pages"], 1);
            EXPECT_EQ(record["black_pages"], 1);
        }
    }
    EXPECT_TRUE(ended) << followed["followed"];
    EXPECT_EQ(followed["spooler_status"][0]["names"], json::parse(R"(["PRINTER_STATUS_PRINTING"])"));
    std::remove(job.c_str());

    int exitCode = -1;
    const std::string verdict = Validate(&exitCode);
    EXPECT_EQ(exitCode, 0) << verdict << "\n" << all_;
    EXPECT_NE(verdict.find(std::to_string(std::count(all_.begin(), all_.end(), '\n')) + " documents valid"),
              std::string::npos)
        << verdict;
}

}  // namespace
}  // namespace langmon::tool
