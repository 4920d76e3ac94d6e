#include "status_report.h"

#include "printer_view.h"

#include "acquisition/device_id.h"
#include "acquisition/lm_values.h"
#include "acquisition/status_record.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

namespace langmon::tool {

namespace {

std::string Hex(const void* bytes, uint32_t size) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * size);
    const auto* p = static_cast<const uint8_t*>(bytes);
    for (uint32_t i = 0; i < size; ++i) {
        text += Digits[p[i] >> 4];
        text += Digits[p[i] & 0xF];
    }
    return text;
}

// The port's own variables and LM_ values, read under the port's lock that
// the caller holds.
class PortFacts final : public PrinterFacts {
public:
    explicit PortFacts(PortContext* port) : port_(port) {}
    std::optional<std::vector<uint8_t>> Variable(const char* name) const override {
        const StatusVariable* row = FindVariable(name, port_->variables, port_);
        if (row == nullptr || row->Value == nullptr) return std::nullopt;
        const auto* bytes = static_cast<const uint8_t*>(row->Value);
        return std::vector<uint8_t>(bytes, bytes + VariableSize(row));
    }
    std::optional<std::pair<uint32_t, uint32_t>> TrayPaper(int tray) const override {
        const LmTray& lm = port_->lmBlock.LmTrays[tray];
        return std::pair{lm.MediaDimXFeedDirChosen, lm.MediaDimFeedDirChosen};
    }
    bool StatusRead() const override { return StatusReadable(port_); }
    std::optional<bool> ModelKnown() const override {
        // The flag goes when monitoring ends; the model's mask stays with the
        // port until another printer is named.
        return HasPortFlag(port_, PF_MODEL_KNOWN) || port_->modelMask.low != 0 || port_->modelMask.high != 0;
    }

private:
    PortContext* port_;
};

}  // namespace

void DescribePrinterStatus(std::ostream& out, PortContext* port, bool listVariables) {
    LockPort(port);
    WriteView(out, DescribePrinter(PortFacts(port), ViewScope::DeviceId));
    if (!listVariables) {
        UnlockPort(port);
        return;
    }
    out << "  variables\n";
    for (const StatusVariable* row = port->variables; row != nullptr && row->Name != nullptr; ++row) {
        if (row->Value == nullptr) continue;
        const std::size_t length = std::strlen(row->Name);
        out << "    " << row->Name << std::string(length < 20 ? 20 - length : 1, ' ') << Hex(row->Value, VariableSize(row)) << '\n';
    }
    UnlockPort(port);
}

void WritePrinterStatusJson(std::ostream& out, PortContext* port) {
    LockPort(port);
    out << "{\"model_known\": " << (HasPortFlag(port, PF_MODEL_KNOWN) ? "true" : "false")
        << ", \"model_mask\": [" << port->modelMask.low << ", " << port->modelMask.high << "], \"variables\": {";
    const char* separator = "";
    for (const StatusVariable* row = port->variables; row != nullptr && row->Name != nullptr; ++row) {
        if (row->Value == nullptr) continue;
        out << separator << '"' << row->Name << "\": {\"hex\": \"" << Hex(row->Value, VariableSize(row))
            << "\", \"dirty\": " << (row->Dirty != 0 ? 1 : 0) << '}';
        separator = ", ";
    }
    const LmBlock& lm = port->lmBlock;
    out << "}, \"lm\": {\"LM_SysName\": \"" << Hex(lm.LM_SysName, sizeof lm.LM_SysName) << '"'
        << ", \"LM_MemorySizeInKByte\": " << lm.LM_MemorySizeInKByte
        << ", \"LM_MemorySizeInMByte\": " << lm.LM_MemorySizeInMByte << ", \"LM_RamDisk\": " << lm.LM_RamDisk
        << ", \"LM_DuplexModule\": " << lm.LM_DuplexModule << ", \"LM_InputTray\": " << lm.LM_InputTray
        << ", \"LmTrays\": [";
    for (int i = 0; i < 3; ++i) {
        const LmTray& t = lm.LmTrays[i];
        const uint32_t fields[8] = {t.TrayIndex, t.InputType, t.TrayType, t.MediaType, t.MediaSize,
                                    t.MediaDimFeedDirChosen, t.MediaDimXFeedDirChosen, t.MediaDirection};
        out << (i == 0 ? "[" : ", [");
        for (int f = 0; f < 8; ++f) out << (f == 0 ? "" : ", ") << fields[f];
        out << ']';
    }
    out << "]}}\n";
    UnlockPort(port);
}

}  // namespace langmon::tool
