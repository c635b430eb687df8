// SPDX-License-Identifier: Apache-2.0
// What one reading of the machine's own figures costs, from the real /proc and /sys: each part, and a pass of the service
// with all of them and its record, as it is made every 6 s.

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "daemon/MachineService.h"
#include "platform/Context.h"
#include "platform/linux/LinuxHost.h"
#include "platform/linux/machine/DrmGraphics.h"
#include "platform/linux/machine/LinuxMachineCounters.h"
#include "platform/linux/network/NetlinkInterfaces.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <benchmark/benchmark.h>

namespace meridal {
namespace {

template <typename Answer>
void counters(benchmark::State& state, Answer (LinuxMachineCounters::*question)())
{
    VirtualRuntime runtime;
    LinuxMachineCounters machine(runtime, "/");
    for (auto _ : state) {
        benchmark::DoNotOptimize((machine.*question)());
    }
}
BENCHMARK_CAPTURE(counters, Processors, &LinuxMachineCounters::processors);
BENCHMARK_CAPTURE(counters, Memory, &LinuxMachineCounters::memory);
BENCHMARK_CAPTURE(counters, Pressure, &LinuxMachineCounters::pressure);
BENCHMARK_CAPTURE(counters, BlockDevices, &LinuxMachineCounters::blockDevices);

void graphics(benchmark::State& state)
{
    DrmGraphics units("/");
    double time = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(units.read(time += MachineService::recordInterval));
    }
}
BENCHMARK(graphics);

/// The service on a real host: only time is virtual, and there is no file behind the record.
struct Machine {
    test::TemporaryTree files;
    VirtualRuntime runtime;
    std::unique_ptr<Host> host = makeLinuxHost(runtime, {.bpfProcesses = false});
    NotificationCenter notifications;
    Log log;
    Context context{runtime, *host, notifications, log, Paths::underRoot(files.root())};
    MachineService service{context};
};

void pass(benchmark::State& state)
{
    Machine machine;
    machine.host->networkInterfaces->read(); // its cost is that of the account of bandwidth
    machine.service.start();
    for (auto _ : state) {
        machine.service.networkWasRead();
        machine.runtime.advance(MachineService::recordInterval);
    }
}
BENCHMARK(pass);

void passAndState(benchmark::State& state)
{
    Machine machine;
    machine.host->networkInterfaces->read();
    machine.service.start();
    for (auto _ : state) {
        machine.runtime.advance(MachineService::askedInterval);
        benchmark::DoNotOptimize(machine.service.state(nullptr));
    }
}
BENCHMARK(passAndState);

} // namespace
} // namespace meridal

BENCHMARK_MAIN();
