// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"

#include <algorithm>

using namespace meridal::test;

namespace {

constexpr mach_port_t hostPort = 0x20b;
constexpr kern_return_t invalidDestination = 0x10000003; // of a message: whoever the port was for is gone

std::string memoryOf(std::size_t bytes) { return std::to_string(bytes) + " bytes of an answer"; }

/// The process of a port; null where it has ended.
const SimulatedProcess* processAt(task_name_t task)
{
    const auto port = Kernel::current().tasks.find(task);
    if (port == Kernel::current().tasks.end()) {
        return nullptr;
    }
    const auto process = Kernel::current().processes.find(port->second);
    return process == Kernel::current().processes.end() ? nullptr : &process->second;
}

} // namespace

extern "C" {

vm_size_t vm_kernel_page_size = 16384;

/// Each answer is a right of its own.
mach_port_t mach_host_self()
{
    Ledger::current().opened("right to the host's port");
    return hostPort;
}

kern_return_t mach_port_deallocate(ipc_space_t space, mach_port_name_t name)
{
    auto& tasks = Kernel::current().tasks;
    if (space != mach_task_self() || (name != hostPort && !tasks.contains(name))) {
        Ledger::misuse("a right to a port is given back that was not given out, or twice");
        return KERN_INVALID_NAME;
    }
    Ledger::current().closed(
        name == hostPort ? "right to the host's port" : "port of process " + std::to_string(tasks[name]));
    tasks.erase(name);
    return KERN_SUCCESS;
}

kern_return_t task_name_for_pid(mach_port_name_t target, int pid, mach_port_name_t* name)
{
    static mach_port_name_t last = 0x1203;
    Kernel& kernel = Kernel::current();
    *name = MACH_PORT_NULL;
    const auto fault = Ledger::current().call("task_name_for_pid");
    if (fault || target != mach_task_self() || !kernel.ask(pid)) {
        return fault.value_or(KERN_FAILURE);
    }
    *name = last += 0x100;
    kernel.tasks.emplace(*name, pid);
    Ledger::current().opened("port of process " + std::to_string(pid));
    kernel.answered("task_name_for_pid");
    return KERN_SUCCESS;
}

kern_return_t task_info(task_name_t task, task_flavor_t flavour, task_info_t info, mach_msg_type_number_t* count)
{
    const auto fault = Ledger::current().call("task_info " + std::to_string(flavour));
    const SimulatedProcess* process = fault ? nullptr : processAt(task);
    if (!process) {
        return fault.value_or(task == MACH_PORT_NULL ? KERN_INVALID_ARGUMENT : invalidDestination);
    }
    if (flavour != TASK_VM_INFO && flavour != TASK_VM_INFO_PURGEABLE) {
        std::fill_n(info, *count, -1); // nothing that is to be read
        return KERN_SUCCESS;
    }
    if (*count < TASK_VM_INFO_REV0_COUNT) {
        return KERN_INVALID_ARGUMENT;
    }
    task_vm_info record = process->memory;
    if (flavour == TASK_VM_INFO) {
        record.purgeable_volatile_pmap = 0;
    }
    *count = std::min(*count, Kernel::current().memoryWords);
    std::memcpy(info, &record, *count * sizeof(natural_t));
    return KERN_SUCCESS;
}

kern_return_t host_processor_info(host_t host, processor_flavor_t flavour, natural_t* processors,
    processor_info_array_t* info, mach_msg_type_number_t* count)
{
    const auto fault = Ledger::current().call("host_processor_info");
    if (fault || host != hostPort || flavour != PROCESSOR_CPU_LOAD_INFO) {
        return fault.value_or(KERN_INVALID_ARGUMENT);
    }
    std::vector<int> words;
    for (const auto& ticks : Kernel::current().processors) {
        words.insert(words.end(), ticks.begin(), ticks.end());
    }
    *processors = static_cast<natural_t>(Kernel::current().processors.size());
    *count = static_cast<mach_msg_type_number_t>(words.size());
    *info = words.data();
    Ledger::current().opened(memoryOf(words.size() * sizeof(int)));
    Kernel::current().given.emplace(reinterpret_cast<vm_address_t>(*info), std::move(words));
    return KERN_SUCCESS;
}

kern_return_t vm_deallocate(vm_map_t task, vm_address_t address, vm_size_t size)
{
    if (task != mach_task_self() || Kernel::current().given.erase(address) == 0) {
        Ledger::misuse("memory is given back that was not given out, or twice");
        return KERN_INVALID_ARGUMENT;
    }
    Ledger::current().closed(memoryOf(size));
    return KERN_SUCCESS;
}

kern_return_t host_statistics64(host_t host, host_flavor_t flavour, host_info64_t info, mach_msg_type_number_t* count)
{
    const auto fault = Ledger::current().call("host_statistics64");
    if (fault || host != hostPort || flavour != HOST_VM_INFO64 || *count < HOST_VM_INFO64_COUNT) {
        return fault.value_or(KERN_INVALID_ARGUMENT);
    }
    std::memcpy(info, &Kernel::current().pages, sizeof(vm_statistics64));
    return KERN_SUCCESS;
}
}
