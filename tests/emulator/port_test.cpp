// The emulated printer behind the port monitor table, the way a language
// monitor drives it: documents, writes, reads and device ID requests, with
// each fault switched on, on the virtual clock.

#include "emulator/port_monitor.h"
#include "emulator_test_support.h"

#include <cstring>
#include <memory>

namespace langmon::emulator::emutest {
namespace {

std::string Pages(int count) {
    std::string data;
    for (int page = 1; page <= count; ++page) data += "page " + std::to_string(page) + "\r\n\f";
    return data;
}

class PortTest : public VirtualClockTest {
protected:
    void TearDown() override {
        if (handle_) table()->ClosePort(handle_);
        VirtualClockTest::TearDown();
    }

    MONITOR* table() { return monitor_.Table(); }

    // A new printer on the port, opened afresh.
    Printer& Connect(PrinterState state = PrinterState::Default()) {
        if (handle_) table()->ClosePort(handle_);
        printer_ = std::make_unique<Printer>(std::move(state));
        monitor_.Attach("USB001", *printer_);
        char name[] = "usb001";  // port names compare without case
        EXPECT_TRUE(table()->OpenPort(name, &handle_));
        return *printer_;
    }

    BOOL StartDoc() {
        char printer[] = "Laser";
        return table()->StartDocPort(handle_, printer, 7, 1, nullptr);
    }

    // Writes all of `bytes`, however little the port takes at a time.
    void Send(std::string_view bytes) {
        while (!bytes.empty()) {
            DWORD written = 0;
            std::string chunk(bytes);
            ASSERT_TRUE(table()->WritePort(handle_, reinterpret_cast<BYTE*>(chunk.data()),
                                           static_cast<DWORD>(chunk.size()), &written));
            ASSERT_GT(written, 0u);
            bytes.remove_prefix(written);
        }
    }

    // Reads until a read gives nothing; `largest` is the largest piece.
    std::string ReadAll(DWORD* largest = nullptr) {
        std::string all;
        char buffer[1024];
        for (DWORD read = 1; read != 0;) {
            EXPECT_TRUE(table()->ReadPort(handle_, reinterpret_cast<BYTE*>(buffer), sizeof buffer, &read));
            all.append(buffer, read);
            if (largest) *largest = std::max(*largest, read);
        }
        return all;
    }

    // The device ID text, or "" when the request fails, its last error kept.
    std::string DeviceId(DWORD control = 17) {
        char out[2048] = {};
        DWORD returned = 0;
        if (!table()->GetPrinterDataFromPort(handle_, control, nullptr, nullptr, 0, out, sizeof out, &returned)) {
            return "";
        }
        EXPECT_EQ(returned, strlen(out));
        return out;
    }

    Block Sts() { return StsOf(DeviceId()); }
    uint32_t PagesPrinted() { return printer_->Jobs().at(0).pagesPrinted; }

    PortMonitor monitor_;
    std::unique_ptr<Printer> printer_;
    HANDLE handle_ = nullptr;
};

TEST_F(PortTest, WritesAndReadsOnlyInsideADocument) {
    Printer& printer = Connect();
    std::string bytes = Uel + "@PJL INFO PAGECOUNT\r\n";
    auto write = [&] {
        DWORD count = 99;
        SetLastError(0xdeadbeef);
        BOOL ok = table()->WritePort(handle_, reinterpret_cast<BYTE*>(bytes.data()), DWORD(bytes.size()), &count);
        EXPECT_EQ(count, ok ? bytes.size() : 0u);
        EXPECT_EQ(GetLastError() != 0xdeadbeef, !ok);
        return ok;
    };
    auto read = [&] {
        BYTE buffer[64];
        DWORD count = 99;
        SetLastError(0xdeadbeef);
        BOOL ok = table()->ReadPort(handle_, buffer, sizeof buffer, &count);
        EXPECT_EQ(GetLastError() != 0xdeadbeef, !ok);
        return ok ? std::string(reinterpret_cast<char*>(buffer), count) : "failed";
    };
    EXPECT_FALSE(write());
    EXPECT_EQ(read(), "failed");
    EXPECT_EQ(printer.ReceivedCount(), 0u);

    ASSERT_TRUE(StartDoc());
    // A document opened inside another, as a monitor does around a read
    // during a job, ends without ending the outer one.
    ASSERT_TRUE(StartDoc());
    EXPECT_TRUE(write());
    EXPECT_EQ(read(), "@PJL INFO PAGECOUNT\r\nPAGECOUNT=" + std::to_string(printer.State().pageCount) + "\r\n\f");
    ASSERT_TRUE(table()->EndDocPort(handle_));
    EXPECT_TRUE(write());
    ASSERT_TRUE(table()->EndDocPort(handle_));

    EXPECT_FALSE(write());
    EXPECT_EQ(read(), "failed");
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(table()->EndDocPort(handle_));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(printer.ReceivedCount(), 2 * bytes.size());
}

TEST_F(PortTest, ADocumentsEndIsAPauseInTheStreamNotItsEnd) {
    Printer& printer = Connect();
    auto document = [&](const std::string& bytes) {
        ASSERT_TRUE(StartDoc());
        Send(bytes);
        ASSERT_TRUE(table()->EndDocPort(handle_));
    };
    // Data without a JOB line, in two documents: one job, ended once the
    // input has been quiet for the printer's I/O time-out.
    document(Pages(1));
    document(Pages(1));
    ASSERT_EQ(printer.Jobs().size(), 1u);
    EXPECT_FALSE(printer.Jobs()[0].finished);
    Sleep(InputIdleMs + 2 * printer.State().pageTimeMs);
    EXPECT_TRUE(printer.Jobs()[0].finished);
    EXPECT_EQ(printer.Jobs()[0].pagesPrinted, 2u);

    // An EOJ line cut between two documents is read whole.
    document(Uel + "@PJL JOB NAME=\"cut\"\r\n" + Pages(1) + "@PJL EOJ NA");
    document("ME=\"cut\"\r\n" + Uel);
    Sleep(InputIdleMs + 2 * printer.State().pageTimeMs);
    ASSERT_EQ(printer.Jobs().size(), 2u);
    EXPECT_EQ(printer.Jobs()[1].endName, "cut");
    EXPECT_TRUE(printer.Jobs()[1].finished);
}

TEST_F(PortTest, DeviceIdRequests) {
    Connect();
    const std::string id = DeviceId(17);
    ASSERT_NE(id, "");
    EXPECT_EQ(id.back(), ';');
    EXPECT_EQ(StsOf(id).code(), 0x0F01u);
    EXPECT_EQ(DeviceId(0x16000C), id);

    // Too small: the buffer stays as it was and the size needed comes back.
    char out[2048];
    std::fill(std::begin(out), std::end(out), 'x');
    DWORD returned = 0;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(table()->GetPrinterDataFromPort(handle_, 17, nullptr, nullptr, 0, out, 20, &returned));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(returned, id.size() + 1);
    EXPECT_TRUE(std::all_of(std::begin(out), std::end(out), [](char c) { return c == 'x'; }));
    SetLastError(0xdeadbeef);
    EXPECT_TRUE(table()->GetPrinterDataFromPort(handle_, 17, nullptr, nullptr, 0, out, returned, &returned));
    EXPECT_EQ(std::string(out), id);
    EXPECT_EQ(returned, id.size());
}

TEST_F(PortTest, SilentPrinterTakesNothingAndTimesOut) {
    Printer& printer = Connect();
    COMMTIMEOUTS timeOuts{};
    timeOuts.WriteTotalTimeoutConstant = 5000;
    timeOuts.WriteTotalTimeoutMultiplier = 2;
    ASSERT_TRUE(table()->SetPortTimeOuts(handle_, &timeOuts, 0));
    ASSERT_TRUE(StartDoc());
    const std::string request = Uel + "@PJL INFO STATUS\r\n";
    Send(request);
    printer.Change([](PrinterState& s) { s.faults.silent = true; });

    SetLastError(0xdeadbeef);
    EXPECT_EQ(DeviceId(), "");
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(ReadAll(), "");

    std::string bytes(100, 'x');
    DWORD written = 99;
    const DWORD before = GetTickCount();
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(table()->WritePort(handle_, reinterpret_cast<BYTE*>(bytes.data()), 100, &written));
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(GetTickCount() - before, 5000u + 2 * 100);
    EXPECT_EQ(printer.ReceivedCount(), request.size());

    printer.Change([](PrinterState& s) { s.faults.silent = false; });
    EXPECT_NE(DeviceId(), "");
    EXPECT_TRUE(ReadAll().starts_with("@PJL INFO STATUS\r\n"));
}

TEST_F(PortTest, FaultsOnTheWayBack) {
    const std::string request = Uel + "@PJL INFO STATUS\r\n@PJL INFO CONFIG\r\n@PJL INQUIRE COPIES\r\n";
    Printer twin;  // the same printer without the fault
    twin.Write(request);
    const std::string clean = twin.Sent();
    ASSERT_EQ(Responses(clean).size(), 3u);

    enum Fault { SmallReads, Garbage, CrLf };
    for (Fault fault : {SmallReads, Garbage, CrLf}) {
        SCOPED_TRACE(fault);
        PrinterState state = PrinterState::Default();
        state.faults.readPiece = fault == SmallReads ? 7 : 0;
        state.faults.garbage = fault == Garbage;
        state.faults.crlfAfterFormFeed = fault == CrLf;
        Connect(state);
        ASSERT_TRUE(StartDoc());
        Send(request);
        DWORD largest = 0;
        std::string got = ReadAll(&largest);
        if (fault == SmallReads) {
            EXPECT_EQ(largest, 7u);
            EXPECT_EQ(got, clean);
        } else if (fault == Garbage) {
            // In front of each response: stray bytes with no '@' and no form
            // feed, which the host can take for neither an end nor a start.
            size_t at = 0;
            for (const std::string& response : Responses(clean)) {
                const size_t found = got.find(response, at);
                ASSERT_NE(found, std::string::npos) << response;
                const std::string stray = got.substr(at, found - at);
                EXPECT_FALSE(stray.empty());
                EXPECT_EQ(stray.find_first_of("@\f"), std::string::npos);
                at = found + response.size();
            }
            EXPECT_EQ(at, got.size());
        } else {
            size_t count = 0;
            for (size_t ff = got.find('\f'); ff != std::string::npos; ff = got.find('\f', ff + 1), ++count) {
                ASSERT_EQ(got.substr(ff + 1, 2), "\r\n");
                got.erase(ff + 1, 2);
            }
            EXPECT_EQ(count, 3u);
            EXPECT_EQ(got, clean);
        }
    }
}

TEST_F(PortTest, FaultsThatStopTheEngine) {
    struct Case {
        const char* what;
        void (*fault)(PrinterState&);
        void (*fix)(PrinterState&);
        uint32_t code;
        size_t wordAt;  // a 16-bit word that shows the fault; 0: none
        uint16_t word;
    };
    const Case cases[] = {
        {"cover open", [](PrinterState& s) { s.openCovers = CoverFront; }, [](PrinterState& s) { s.openCovers = 0; },
         0x0900, 10, 0x027E},
        {"paper jam", [](PrinterState& s) { s.jamPlaces = 1u << 3; }, [](PrinterState& s) { s.jamPlaces = 0; },
         0x0700, 36, 0x0008},
        {"toner empty", [](PrinterState& s) { s.toners[3].level = 0; },
         [](PrinterState& s) { s.toners[3].level = 100; }, 0x0803, 18, 0x0020},
        {"out of memory", [](PrinterState& s) { s.outOfMemory = true; },
         [](PrinterState& s) { s.outOfMemory = false; }, 0x0A03, 0, 0},
        {"feeding tray empty", [](PrinterState& s) { s.trays[1].sheets = 0; },
         [](PrinterState& s) { s.trays[1].sheets = 100; }, 0x0A00, 30, 0x4102},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Printer& printer = Connect();
        ASSERT_TRUE(StartDoc());
        Send(JobHeader(IdA) + Pages(4) + JobTrailer(IdA));
        Sleep(4000);
        EXPECT_EQ(PagesPrinted(), 1u);
        EXPECT_EQ(Sts().code(), 0x0D00u);
        EXPECT_EQ(Sts().u8(8), 1);  // the engine prints

        printer.Change(c.fault);
        Sleep(30000);
        EXPECT_EQ(PagesPrinted(), 1u);
        const Block block = Sts();
        EXPECT_EQ(block.code(), c.code);
        if (c.wordAt != 0) {
            EXPECT_EQ(block.u16(c.wordAt), c.word);
        }
        const std::vector<std::string> said = Responses(ReadAll());
        ASSERT_FALSE(said.empty());
        EXPECT_TRUE(said.back().starts_with("@PJL USTATUS DEVICE\r\n")) << said.back();
        EXPECT_EQ(LayoutProblem(said.back()), "");
        EXPECT_NE(said.back().find("ONLINE=FALSE"), std::string::npos) << said.back();

        printer.Change(c.fix);
        Sleep(9000);
        EXPECT_EQ(PagesPrinted(), 4u);
        EXPECT_TRUE(printer.Jobs()[0].finished);
        EXPECT_EQ(Sts().code(), 0x0F01u);
    }
    // A toner that runs low is no reason to stop.
    PrinterState low = PrinterState::Default();
    low.toners[3].level = 5;
    Connect(low);
    ASSERT_TRUE(StartDoc());
    Send(JobHeader(IdA) + Pages(2) + JobTrailer(IdA));
    Sleep(6000);
    EXPECT_EQ(PagesPrinted(), 2u);
}

TEST_F(PortTest, PowerOffAndOnWarmsUpFirst) {
    PrinterState state = PrinterState::Default();
    state.warmUpMs = 20000;
    Printer& printer = Connect(state);
    EXPECT_EQ(Sts().code(), 0x0F00u);  // switched on just now
    Sleep(20000);
    ASSERT_TRUE(StartDoc());
    Send(JobHeader(IdA) + Pages(3));
    Sleep(4000);
    EXPECT_EQ(PagesPrinted(), 1u);
    ReadAll();

    printer.PowerOff();
    EXPECT_EQ(DeviceId(), "");
    BYTE byte = 'x';
    DWORD written = 99;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(table()->WritePort(handle_, &byte, 1, &written));
    EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
    EXPECT_EQ(written, 0u);

    // The job died with the power, and so did the reports its header asked for.
    printer.PowerOn();
    EXPECT_EQ(Sts().code(), 0x0F00u);
    Send(Uel + "@PJL JOB NAME=\"" + std::string(IdB) + "\"\r\n" + Pages(1) + JobTrailer(IdB));
    Sleep(19999);
    EXPECT_EQ(Sts().code(), 0x0F00u);
    EXPECT_EQ(printer.Jobs().at(1).pagesPrinted, 0u);
    Sleep(1);
    EXPECT_EQ(Sts().code(), 0x0D00u);
    Sleep(3000);
    EXPECT_EQ(Sts().code(), 0x0F01u);
    EXPECT_EQ(PagesPrinted(), 1u);
    EXPECT_FALSE(printer.Jobs()[0].finished);
    EXPECT_TRUE(printer.Jobs()[1].finished);
    printer.Change([](PrinterState& s) { s.openCovers = CoverFront; });
    EXPECT_EQ(ReadAll(), "");
}

}  // namespace
}  // namespace langmon::emulator::emutest
