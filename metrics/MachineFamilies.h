// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "metrics/FigureFamilies.h"

#include <string_view>

namespace meridal {

/// A figure of the machine itself, which the usual exporter of such has as well.
struct MachineFigure {
    MetricFamily family;        ///< rows of one family stand together
    std::string_view part;      ///< of machine.state
    std::string_view entry;     ///< of the part, or of each of its devices
    double divisor = 1;         ///< from the daemon's unit to the base unit
    std::string_view label;     ///< what tells rows of one family apart; may be none
    std::string_view value;     ///< of that label
    std::string_view collector; ///< the series that records it; none: it is not recorded
    std::string_view column;    ///< of that; none: called as the entry
};

/// What the devices of a part are called in labels; none where it is one thing.
constexpr std::string_view deviceLabel(std::string_view part)
{
    return part == "disks" ? "device" : part == "network" ? "interface" : part == "gpus" ? "gpu" : "";
}

namespace machineFamily {
using enum MetricType;
inline constexpr MetricFamily cpu = {"machine_cpu_ratio", Gauge, "ratio", "Share of all processors' time."};
inline constexpr MetricFamily load1 = {"machine_load1", Gauge, "", "Mean number of tasks over a minute."};
inline constexpr MetricFamily load5 = {"machine_load5", Gauge, "", "Mean number of tasks over five minutes."};
inline constexpr MetricFamily load15 = {"machine_load15", Gauge, "", "Mean number of tasks over fifteen minutes."};
inline constexpr MetricFamily tasks = {"machine_tasks", Gauge, "", "Tasks that run or wait for a disk."};
inline constexpr MetricFamily switches = {"machine_context_switches_per_second", Gauge, "", "Changes of task."};
inline constexpr MetricFamily interrupts = {"machine_interrupts_per_second", Gauge, "", "Interrupts."};
inline constexpr MetricFamily forks = {"machine_forks_per_second", Gauge, "", "Tasks started."};
inline constexpr MetricFamily memory = {"machine_memory_bytes", Gauge, "bytes", "Memory of the machine."};
inline constexpr MetricFamily swap = {"machine_swap_bytes", Gauge, "bytes", "Swap of the machine."};
inline constexpr MetricFamily swapIn = {"machine_swap_in_bytes_per_second", Gauge, "", "Read back from swap."};
inline constexpr MetricFamily swapOut = {"machine_swap_out_bytes_per_second", Gauge, "", "Written to swap."};
inline constexpr MetricFamily diskRead = {"machine_disk_read_bytes_per_second", Gauge, "", "Read from a disk."};
inline constexpr MetricFamily diskWritten = {"machine_disk_written_bytes_per_second", Gauge, "", "Written to a disk."};
inline constexpr MetricFamily reads = {"machine_disk_reads_per_second", Gauge, "", "Reading requests."};
inline constexpr MetricFamily writes = {"machine_disk_writes_per_second", Gauge, "", "Writing requests."};
inline constexpr MetricFamily readTime = {"machine_disk_read_latency_seconds", Gauge, "seconds", "Of a request."};
inline constexpr MetricFamily writeTime = {"machine_disk_write_latency_seconds", Gauge, "seconds", "Of a request."};
inline constexpr MetricFamily diskBusy = {"machine_disk_busy_ratio", Gauge, "ratio", "Time in which a disk worked."};
inline constexpr MetricFamily queue = {"machine_disk_queue_requests", Gauge, "", "Requests under way in the mean."};
inline constexpr MetricFamily received = {"machine_network_received_bytes_per_second", Gauge, "", "By an interface."};
inline constexpr MetricFamily sent = {"machine_network_sent_bytes_per_second", Gauge, "", "By an interface."};
inline constexpr MetricFamily errors = {"machine_network_errors_per_second", Gauge, "", "Broken packets, both ways."};
inline constexpr MetricFamily dropped = {"machine_network_drops_per_second", Gauge, "", "Lost packets, both ways."};
inline constexpr MetricFamily gpuBusy = {"machine_gpu_busy_ratio", Gauge, "ratio", "Time in which it worked."};
inline constexpr MetricFamily gpuMemory = {
    "machine_gpu_memory_bytes", Gauge, "bytes", "Memory of a graphics processor."};
inline constexpr MetricFamily gpuClock = {"machine_gpu_frequency_hertz", Gauge, "hertz", "Of a graphics processor."};
} // namespace machineFamily

inline constexpr double fromMilliseconds = 1000;
inline constexpr MachineFigure machineFigures[] = {
    {machineFamily::cpu, "cpu", "user", fromPercent, "mode", "user", "processors", {}},
    {machineFamily::cpu, "cpu", "nice", fromPercent, "mode", "nice", "processors", {}},
    {machineFamily::cpu, "cpu", "system", fromPercent, "mode", "system", "processors", {}},
    {machineFamily::cpu, "cpu", "idle", fromPercent, "mode", "idle", "processors", {}},
    {machineFamily::cpu, "cpu", "iowait", fromPercent, "mode", "iowait", "processors", {}},
    {machineFamily::cpu, "cpu", "interrupt", fromPercent, "mode", "interrupt", "processors", {}},
    {machineFamily::cpu, "cpu", "steal", fromPercent, "mode", "steal", "processors", {}},
    {machineFamily::load1, "cpu", "load1", 1, {}, {}, "load", {}},
    {machineFamily::load5, "cpu", "load5", 1, {}, {}, "load", {}},
    {machineFamily::load15, "cpu", "load15", 1, {}, {}, "load", {}},
    {machineFamily::tasks, "cpu", "runnable", 1, "state", "runnable", "tasks", {}},
    {machineFamily::tasks, "cpu", "blocked", 1, "state", "blocked", "tasks", {}},
    {machineFamily::switches, "cpu", "switches", 1, {}, {}, "kernel", {}},
    {machineFamily::interrupts, "cpu", "interrupts", 1, {}, {}, "kernel", {}},
    {machineFamily::forks, "cpu", "forks", 1, {}, {}, "kernel", {}},
    {machineFamily::memory, "memory", "total", 1, "kind", "total", {}, {}},
    {machineFamily::memory, "memory", "used", 1, "kind", "used", "memory", {}},
    {machineFamily::memory, "memory", "available", 1, "kind", "available", "memory", {}},
    {machineFamily::memory, "memory", "free", 1, "kind", "free", "memory", {}},
    {machineFamily::memory, "memory", "buffers", 1, "kind", "buffers", "memory", {}},
    {machineFamily::memory, "memory", "cached", 1, "kind", "cached", "memory", {}},
    {machineFamily::memory, "memory", "shared", 1, "kind", "shared", "memory", {}},
    {machineFamily::memory, "memory", "slab", 1, "kind", "slab", "memory", {}},
    {machineFamily::memory, "memory", "dirty", 1, "kind", "dirty", "memory", {}},
    {machineFamily::memory, "memory", "writeback", 1, "kind", "writeback", "memory", {}},
    {machineFamily::memory, "memory", "compressed", 1, "kind", "compressed", "memory", {}},
    {machineFamily::memory, "memory", "wired", 1, "kind", "wired", "memory", {}},
    {machineFamily::swap, "memory", "swaptotal", 1, "kind", "total", {}, {}},
    {machineFamily::swap, "memory", "swapused", 1, "kind", "used", "swap", {}},
    {machineFamily::swapIn, "memory", "swapin", 1, {}, {}, "paging", {}},
    {machineFamily::swapOut, "memory", "swapout", 1, {}, {}, "paging", {}},
    {machineFamily::diskRead, "disks", "readbytes", 1, {}, {}, "throughput", {}},
    {machineFamily::diskWritten, "disks", "writtenbytes", 1, {}, {}, "throughput", {}},
    {machineFamily::reads, "disks", "reads", 1, {}, {}, "requests", {}},
    {machineFamily::writes, "disks", "writes", 1, {}, {}, "requests", {}},
    {machineFamily::readTime, "disks", "readtime", fromMilliseconds, {}, {}, "latency", {}},
    {machineFamily::writeTime, "disks", "writetime", fromMilliseconds, {}, {}, "latency", {}},
    {machineFamily::diskBusy, "disks", "busy", fromPercent, {}, {}, "busy", {}},
    {machineFamily::queue, "disks", "queue", 1, {}, {}, "queue", {}},
    {machineFamily::received, "network", "received", 1, {}, {}, "network", {}},
    {machineFamily::sent, "network", "sent", 1, {}, {}, "network", {}},
    {machineFamily::errors, "network", "errors", 1, {}, {}, "networkfaults", {}},
    {machineFamily::dropped, "network", "dropped", 1, {}, {}, "networkfaults", {}},
    {machineFamily::gpuBusy, "gpus", "busy", fromPercent, {}, {}, "graphics", {}},
    {machineFamily::gpuMemory, "gpus", "memoryUsed", 1, "kind", "used", "graphicsmemory", "memoryused"},
    {machineFamily::gpuMemory, "gpus", "memoryTotal", 1, "kind", "total", {}, {}},
    {machineFamily::gpuClock, "gpus", "frequency", 1, {}, {}, "graphicsclock", {}},
};

} // namespace meridal
