// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/ProcessStatCollector.h"
#include "tests/support/FakeHost.h"
#include "wire/RequestKey.h"

#include <gmock/gmock.h>

#include <vector>

namespace meridal::test {

constexpr std::uint32_t everyList = mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk)
    | mask(RequestKey::Network) | mask(RequestKey::Energy);
/// In place of a figure that nobody knows.
constexpr double absent = -1;

/// A machine whose CPU times are in nanoseconds, and a collector on it that wants every list.
class ProcessFixture : public ::testing::Test {
protected:
    FakeProcessSource& source() { return machine.processes(); }
    ProcessRecord& row(std::int32_t pid) { return source().row(pid); }
    void set(std::int32_t pid, std::int32_t parent = 1, std::string_view name = "worker")
    {
        source().set(FakeProcessSource::process(pid, parent, name));
    }
    struct Kin {
        std::int32_t pid;
        std::int32_t parent;
        std::string_view name = "worker";
    };
    void set(std::initializer_list<Kin> processes)
    {
        for (const auto& [pid, parent, name] : processes) {
            set(pid, parent, name);
        }
    }
    void pass(std::int32_t pid, const FakeProcessSource::Work& work, double seconds = 2)
    {
        source().work(pid, work);
        updateAfter(seconds);
    }
    void update() { changes = collector().update(); }
    void updateAfter(double seconds)
    {
        machine.runtime.advance(seconds);
        update();
    }

    const ProcessStatCollectorItem& item(std::int32_t pid) { return *collector().processForPid(pid); }
    /// CPU, power, bytes read and bytes written.
    std::vector<double> figures(std::int32_t pid)
    {
        const ProcessStatCollectorItem& of = item(pid);
        const auto& [cpu, wakeups] = std::pair(of.figures.cpu, of.figures.wakeups);
        return {cpu.value_or(absent), cpu && wakeups ? collector().energyScore(*cpu / 100, *wakeups) : absent,
            of.activity().diskRead.value_or(absent), of.activity().diskWrite.value_or(absent)};
    }
    double powerScore(std::int32_t pid) { return item(pid).activity().powerScore.value_or(absent); }
    /// Bytes received and sent.
    std::vector<double> traffic(std::int32_t pid)
    {
        return {
            item(pid).activity().networkDownload.value_or(absent), item(pid).activity().networkUpload.value_or(absent)};
    }
    static auto are(const std::vector<double>& wanted) { return testing::Pointwise(testing::DoubleEq(), wanted); }

    /// Everybody by one figure. Good until the next call.
    std::span<const ProcessRanking::Row> ranked(const ProcessFigure& figure, const ProcessView& view = {})
    {
        ranking_.sum(collector().table(), view, {&figure, 1});
        return ranking_.first(0, unlimitedProcesses);
    }

    /// Made at first use, so that a test can choose the release and the time base before.
    ProcessStatCollector& collector()
    {
        if (!collector_) {
            collector_ = std::make_unique<ProcessStatCollector>(machine.context);
            collector_->setUpdateMask(everyList);
        }
        return *collector_;
    }

    FakeMachine machine;
    ProcessChanges changes; ///< of the latest pass

private:
    std::unique_ptr<ProcessStatCollector> collector_;
    ProcessRanking ranking_;
};

} // namespace meridal::test
