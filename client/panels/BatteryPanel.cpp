// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/panels/Panels.h"
#include "client/views/BatteryView.h"
#include "wire/Methods.h"

namespace meridal {

namespace {

constexpr double batteryInterval = 5; // s; a battery that drains is read once a minute

/// The batteries of this machine and of what is connected to it.
class BatteryPanel final : public Panel {
public:
    std::string_view name() const override { return "battery"; }
    std::string_view title() const override { return "Battery"; }

    std::vector<PanelQuestion> questions(const PanelView&) const override
    {
        return {{.name = "state",
            .method = method::batteryState,
            .parameters = {{"passive", true}},
            .interval = batteryInterval}};
    }

    void take(const PanelAnswer& answer) override
    {
        complaint_ = answer.result ? std::string() : printable(answer.result.error().message);
        if (answer.result) {
            state_ = *answer.result;
        }
    }

    Lines lines(const PanelView& view) override
    {
        if (!complaint_.empty()) {
            return {{{Style::Warning, complaint_}}};
        }
        return state_.is_object() ? batteryLines(state_, view.columns) : Lines{};
    }

private:
    Value state_;
    std::string complaint_; ///< why the latest question was refused
};

} // namespace

std::unique_ptr<Panel> makeBatteryPanel() { return std::make_unique<BatteryPanel>(); }

} // namespace meridal
