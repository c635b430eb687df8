#pragma once

#include "collectors/process/ProcessStatCollector.h"
#include "tests/support/FakeHost.h"
#include "wire/RequestKey.h"

#include <gmock/gmock.h>

#include <vector>

namespace meridal::test {

constexpr std::uint32_t everyList = mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk)
    | mask(RequestKey::Network) | mask(RequestKey::Energy);

/// A machine whose CPU times are in nanoseconds, and a collector on it that wants every list.
class ProcessFixture : public ::testing::Test {
protected:
    static constexpr std::uint64_t second = 1'000'000'000;

    FakeProcessSource& source() { return machine.processes(); }

    /// A live process of which every group of figures can be read.
    static ProcessRecord process(std::int32_t pid, std::int32_t parent = 1, std::string_view name = "worker")
    {
        ProcessRecord record;
        record.pid = pid;
        record.parentPid = parent;
        record.present = ProcessFields::All;
        record.startIdentity = static_cast<std::uint64_t>(pid);
        record.name = name;
        return record;
    }
    void set(std::int32_t pid, std::int32_t parent = 1, std::string_view name = "worker")
    {
        source().set(process(pid, parent, name));
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
    /// The row of a process, to change its counters.
    ProcessRecord& row(std::int32_t pid)
    {
        return *std::find_if(
            source().rows.begin(), source().rows.end(), [&](const auto& each) { return each.pid == pid; });
    }
    /// What a process does before a pass.
    struct Work {
        double cpu = 0; ///< s
        std::uint64_t read = 0;
        std::uint64_t written = 0;
        std::uint64_t wakeups = 0;
    };
    void pass(std::int32_t pid, const Work& work, double seconds = 2)
    {
        ProcessRecord& record = row(pid);
        record.cpuTime += static_cast<std::uint64_t>(work.cpu * 1e9 + 0.5);
        record.diskBytesRead += work.read;
        record.diskBytesWritten += work.written;
        record.idleWakeups += work.wakeups;
        updateAfter(seconds);
    }
    /// CPU, power, bytes read and bytes written.
    std::vector<double> figures(std::int32_t pid)
    {
        return {item(pid).cpu(), item(pid).power(), item(pid).diskRead(), item(pid).diskWrite()};
    }
    /// Bytes received and sent.
    std::vector<double> traffic(std::int32_t pid) { return {item(pid).networkDownload(), item(pid).networkUpload()}; }
    static auto are(const std::vector<double>& wanted) { return testing::Pointwise(testing::DoubleEq(), wanted); }
    const ProcessStatCollectorItem& item(std::int32_t pid) { return *collector().processForPid(pid); }

    void update() { collector().update(); }
    void updateAfter(double seconds)
    {
        machine.runtime.advance(seconds);
        update();
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

private:
    std::unique_ptr<ProcessStatCollector> collector_;
};

} // namespace meridal::test
