// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/DrmGraphics.h"

#include "base/Text.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double findInterval = 60; // s: cards are plugged rarely, and lists cost more than figures
/// For how long one that rests is not read, s. A reading counts as use: those that come more often than the drivers' delays,
/// which are of 5 and 10 s, would keep it awake for ever.
constexpr double restInterval = 30;
constexpr std::uint64_t hertzPerMegahertz = 1'000'000; // Hz
constexpr std::uint64_t nsPerMillisecond = 1'000'000;

/// Connectors have a name of the card's and one of their own: "card0-DP-1".
bool isCard(std::string_view name)
{
    return name.starts_with("card") && name.size() > 4
        && std::all_of(name.begin() + 4, name.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

std::optional<std::uint64_t> numberInFile(std::optional<KeptFile>& file)
{
    const auto text = file ? file->read() : std::nullopt;
    return text ? leadingNumber(*text) : std::nullopt;
}

} // namespace

const std::vector<GraphicsRecord>& DrmGraphics::read(double monotonicTime)
{
    if (!lastFound_ || monotonicTime - *lastFound_ >= findInterval) {
        lastFound_ = monotonicTime;
        findCards();
    }
    records_.clear();
    for (auto& [name, card] : cards_) {
        readFigures(card, monotonicTime);
        records_.push_back(card.record);
    }
    return records_;
}

void DrmGraphics::findCards()
{
    std::map<std::string, Card> before = std::exchange(cards_, {});
    for (const std::string& name : root_.list("sys/class/drm")) {
        if (!isCard(name)) {
            continue;
        }
        const auto known = before.find(name);
        Card card = known == before.end() ? lookAt(name) : std::move(known->second);
        card.mayFallAsleep =
            root_.readLine("sys/class/drm/" + name + "/device/power/control") == "auto" && !showsSomething(name);
        cards_.emplace(name, std::move(card));
    }
}

DrmGraphics::Card DrmGraphics::lookAt(const std::string& name) const
{
    const std::string folder = "sys/class/drm/" + name + "/";
    const std::string device = folder + "device/";
    Card card;
    card.record.name = validUtf8(name);
    const auto driver = valueOfKey(root_.read(device + "uevent").value_or(""), "DRIVER", '=');
    card.record.driver = validUtf8(driver.value_or(""));
    for (const char* file : {"device/mem_info_vram_total", "lmem_total_bytes"}) {
        if (!card.record.memoryTotal) {
            card.record.memoryTotal = leadingNumber(root_.readLine(folder + file).value_or(""));
        }
    }
    card.powerState = fileOf({device + "power/runtime_status"});
    card.busy = fileOf({device + "gpu_busy_percent"});
    card.memoryUsed = fileOf({device + "mem_info_vram_used"});
    card.asleep = fileOf({folder + "gt/gt0/rc6_residency_ms", folder + "power/rc6_residency_ms",
        device + "tile0/gt0/gtidle/idle_residency_ms"});
    card.frequency =
        fileOf({folder + "gt/gt0/rps_act_freq_mhz", folder + "gt_act_freq_mhz", device + "tile0/gt0/freq0/act_freq"});
    card.frequencyUnit = hertzPerMegahertz;
    for (const std::string& sensor : root_.list(device + "hwmon")) {
        if (!card.frequency) {
            card.frequency = fileOf({device + "hwmon/" + sensor + "/freq1_input"});
            card.frequencyUnit = 1;
        }
    }
    return card;
}

std::optional<KeptFile> DrmGraphics::fileOf(std::initializer_list<std::string> candidates) const
{
    for (const std::string& path : candidates) {
        if (root_.exists(path)) {
            return KeptFile(root_.path(path));
        }
    }
    return std::nullopt;
}

bool DrmGraphics::showsSomething(const std::string& name) const
{
    for (const std::string& connector : root_.list("sys/class/drm/" + name)) {
        if (connector.starts_with(name + "-")
            && root_.readLine("sys/class/drm/" + name + "/" + connector + "/enabled") == "enabled") {
            return true;
        }
    }
    return false;
}

void DrmGraphics::readFigures(Card& card, double monotonicTime) const
{
    GraphicsRecord& record = card.record;
    record.busyPercent.reset();
    const auto asleepBefore = std::exchange(record.asleepNs, std::nullopt);
    record.memoryUsed.reset();
    record.frequencyHz.reset();
    const auto state = card.powerState ? card.powerState->read() : std::nullopt;
    if ((state && state->starts_with("suspend")) || monotonicTime < card.leftAloneUntil) {
        return;
    }
    if (const auto percent = numberInFile(card.busy); percent && *percent <= 100) {
        record.busyPercent = static_cast<double>(*percent);
    }
    if (const auto ms = numberInFile(card.asleep)) {
        record.asleepNs = *ms * nsPerMillisecond;
    }
    record.memoryUsed = numberInFile(card.memoryUsed);
    if (const auto frequency = numberInFile(card.frequency)) {
        record.frequencyHz = *frequency * card.frequencyUnit;
    }
    const bool rested = record.busyPercent ? *record.busyPercent == 0 : record.asleepNs != asleepBefore;
    if (card.mayFallAsleep && rested) {
        card.leftAloneUntil = monotonicTime + restInterval;
    }
}

} // namespace meridal
