// SPDX-License-Identifier: Apache-2.0
#include "daemon/UsageWindow.h"

namespace meridal {

namespace {

/// A second of a counter's growth; absent where it is not told, or where no time has passed.
template <typename Count>
std::optional<double> perSecond(const std::optional<Count>& from, const std::optional<Count>& until, double period)
{
    if (!from || !until || *until < *from || period <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(*until - *from) / period;
}

} // namespace

UsageWindow::UsageWindow(SelfUsage& usage, double now)
    : usage_(usage), first_{.time = now, .cost = usage.readCost()}, samples_{first_}
{
}

void UsageWindow::tick(double now)
{
    if (now - samples_.back().time < sampleInterval) {
        return;
    }
    samples_.push_back({.time = now, .cost = usage_.readCost()});
    while (now - samples_[1].time >= length) {
        samples_.pop_front();
    }
}

UsageWindow::Means UsageWindow::meansSince(const Sample& from, double now)
{
    Means means;
    means.period = now - from.time;
    const SelfCost cost = usage_.readCost();
    if (const auto cores = perSecond(from.cost.cpuSeconds, cost.cpuSeconds, means.period)) {
        means.cpuPercent = *cores * 100;
    }
    means.wakeupsPerSecond = perSecond(from.cost.wakeups, cost.wakeups, means.period);
    return means;
}

UsageWindow::Means UsageWindow::lastMinute(double now) { return meansSince(samples_.front(), now); }

UsageWindow::Means UsageWindow::sinceStart(double now) { return meansSince(first_, now); }

} // namespace meridal
