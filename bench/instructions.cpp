// SPDX-License-Identifier: Apache-2.0
// Work of which the instructions are counted, not the time: bench_instructions CASE does it some times within a function that
// a counter watches (see tools/instructions). Invented tables, so that it is the same on every machine, however busy.

#include "bench/SyntheticProcesses.h"
#include "collectors/process/GroupAccumulator.h"
#include "collectors/process/ProcessStatCollector.h"
#include "tests/support/FakeHost.h"

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>

/// What is done in here counts.
extern "C" [[gnu::noinline]] void meridalCounted(const std::function<void()>& task) { task(); }

namespace meridal {
namespace {

constexpr std::size_t everyBusy = 10;
constexpr std::uint32_t everyList = 1 | 2 | 4 | 16;
constexpr int passesBefore = 40; ///< until everybody's recent past is there
constexpr int countedPasses = 10;

struct Rig {
    explicit Rig(std::size_t processes)
    {
        machine.host.processes = std::make_unique<SyntheticProcesses>(processes, everyBusy);
        collector = std::make_unique<ProcessStatCollector>(machine.context);
        collector->setUpdateMask(everyList);
        groups = std::make_unique<GroupAccumulator>(machine.context, *collector);
        for (int pass = 0; pass < passesBefore; ++pass) {
            update();
        }
    }
    void update()
    {
        machine.runtime.advance(2);
        collector->update();
        groups->update();
    }
    std::size_t lists(const ProcessView& view)
    {
        return collector->cpuProcesses(view).size() + collector->memoryProcesses(view).size()
            + collector->diskActivityProcesses(view).size() + collector->powerProcesses(view).size();
    }

    test::FakeMachine machine;
    std::unique_ptr<ProcessStatCollector> collector;
    std::unique_ptr<GroupAccumulator> groups;
};

std::size_t pass(std::size_t processes)
{
    Rig rig(processes);
    for (int i = 0; i < countedPasses; ++i) {
        rig.machine.runtime.advance(2);
        meridalCounted([&] {
            rig.collector->update();
            rig.groups->update();
        });
    }
    return rig.groups->totals().size();
}

std::size_t lists(std::size_t processes, bool grouped)
{
    Rig rig(processes);
    std::size_t bytes = 0;
    for (int i = 0; i < countedPasses; ++i) {
        rig.update();
        meridalCounted([&] { bytes += rig.lists({.grouped = grouped}); });
    }
    return bytes;
}

} // namespace
} // namespace meridal

int main(int count, char** arguments)
{
    using namespace meridal;
    const std::map<std::string_view, std::function<std::size_t()>> cases = {
        {"pass-1000", [] { return pass(1000); }},
        {"pass-5000", [] { return pass(5000); }},
        {"lists-1000", [] { return lists(1000, false); }},
        {"lists-5000", [] { return lists(5000, false); }},
        {"grouped-lists-5000", [] { return lists(5000, true); }},
    };
    const auto wanted = count == 2 ? cases.find(arguments[1]) : cases.end();
    if (wanted == cases.end()) {
        for (const auto& [name, task] : cases) {
            std::cout << name << '\n';
        }
        return count == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    return wanted->second() > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
