#include "status_report.h"

#include "printer_view.h"

#include "acquisition/lm_values.h"
#include "monitor/monitor_entry.h"
#include "monitor/port_context.h"
#include "variables/derived.h"
#include "variables/status_variable.h"

#include <nlohmann/json.hpp>

namespace langmon::tool {

namespace {

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

void DescribePrinterStatus(std::ostream& out, PortContext* port) {
    LockPort(port);
    WriteView(out, DescribePrinter(PortFacts(port), ViewScope::DeviceId));
    UnlockPort(port);
}

nlohmann::ordered_json PortPrinterJson(PortContext* port) {
    LockPort(port);
    nlohmann::ordered_json printer = PrinterJson(PortFacts(port), ViewScope::DeviceId);
    UnlockPort(port);
    return printer;
}

std::vector<VariableValue> PortVariables(PortContext* port) {
    std::vector<VariableValue> values;
    LockPort(port);
    for (const StatusVariable* row = port->variables; row != nullptr && row->Name != nullptr; ++row) {
        if (row->Value == nullptr) continue;
        const auto* bytes = static_cast<const uint8_t*>(row->Value);
        values.push_back({row->Name, std::vector<uint8_t>(bytes, bytes + VariableSize(row))});
    }
    UnlockPort(port);
    return values;
}

}  // namespace langmon::tool
