// SPDX-License-Identifier: Apache-2.0
// Why disks and networks are busy.

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/views/ReasonWords.h"

#include <fmt/format.h>

#include <algorithm>

namespace meridal {

namespace {

constexpr double oneMiB = 1024.0 * 1024;

// What stands out.
constexpr double busyDisk = 60;           // % of the time with a request under way
constexpr double slowRequests = 25;       // ms each, when there are enough of them to matter
constexpr double enoughRequests = 5;      // a second
constexpr double longQueue = 4;           // requests under way
constexpr double muchData = 100 * oneMiB; // B/s: what a disk that spins can do
constexpr double muchTraffic = oneMiB;    // B/s: a tenth of a usual line
constexpr double frequentErrors = 1;      // a second
constexpr double leastAmount = 64 * 1024; // B/s that is worth a name
constexpr double explained = 0.5;         // of the bytes: less, and others than programs are at work

double figureOf(const Value& from, const char* key) { return number(from, key).value_or(0); }

double requestsOf(const Value& disk) { return figureOf(disk, "reads") + figureOf(disk, "writes"); }

double slowestRequest(const Value& disk)
{
    return requestsOf(disk) >= enoughRequests ? std::max(figureOf(disk, "reads") > 0 ? figureOf(disk, "readtime") : 0,
               figureOf(disk, "writes") > 0 ? figureOf(disk, "writetime") : 0)
                                              : 0;
}

bool isBusy(const Value& disk)
{
    return figureOf(disk, "busy") >= busyDisk || slowestRequest(disk) >= slowRequests
        || figureOf(disk, "queue") >= longQueue
        || figureOf(disk, "readbytes") + figureOf(disk, "writtenbytes") >= muchData;
}

std::string nameOfDisk(const Value& disk)
{
    return printable(text(disk, "name").value_or(text(disk, "disk").value_or("a disk")));
}

double sumOf(const Consumers& consumers)
{
    double sum = 0;
    for (const Consumer& each : consumers) {
        sum += each.amount;
    }
    return sum;
}

/// Who reads and writes, and whether that explains what the disks do.
void addWhoUsesDisks(const Evidence& evidence, double read, double written, Verdict& verdict)
{
    std::string words =
        mostBy(tense(evidence, "Most is read by", "Most was read by"), evidence.reading, formatByteRate, leastAmount)
        + mostBy(tense(evidence, "Most is written by", "Most was written by"), evidence.writing, formatByteRate,
            leastAmount);
    if (!words.empty()) {
        verdict.remarks.push_back(words.substr(1));
    }
    const double programs = sumOf(evidence.reading) + sumOf(evidence.writing);
    if (read + written >= muchTraffic && programs < explained * (read + written)) {
        verdict.remarks.push_back(
            fmt::format("Programs account for {} of it: the rest {} the kernel's, such as what was "
                        "written before and goes to the disk now, swap, or the file system's own.",
                programs < leastAmount ? "next to nothing" : formatByteRate(programs), tense(evidence, "is", "was")));
    }
}

} // namespace

const Value* busiestDisk(const Evidence& evidence)
{
    const Value* disks = find(evidence.machine, "disks");
    if (!disks || !disks->is_array() || disks->empty()) {
        return nullptr;
    }
    return &*std::max_element(disks->begin(), disks->end(),
        [](const Value& a, const Value& b) { return figureOf(a, "busy") < figureOf(b, "busy"); });
}

std::string diskText(const Evidence& evidence, const Value& disk)
{
    std::string words =
        fmt::format("{} {} {} busy", nameOfDisk(disk), tense(evidence, "is", "was"), shareText(figureOf(disk, "busy")));
    if (const double ms = slowestRequest(disk); ms >= 1) {
        words += fmt::format(", {:.0f} ms a request", ms);
    }
    if (const double queue = figureOf(disk, "queue"); queue >= 1) {
        words += fmt::format(", {:.0f} requests under way at a time", queue);
    }
    words += fmt::format(": {} read and {} written", formatByteRate(figureOf(disk, "readbytes")),
        formatByteRate(figureOf(disk, "writtenbytes")));
    return words + lastingText(evidence, lastingOf(evidence, "busy/" + nameOfDisk(disk) + ".busy", busyDisk * 0.7))
        + ".";
}

void judgeBusyDisk(const Evidence& evidence, Verdict& verdict)
{
    const Value* disks = find(evidence.machine, "disks");
    if (!disks || !disks->is_array() || (disks->empty() && !evidence.isNow)) {
        verdict.notKnown.emplace_back("what the disks do");
        verdict.isKnown = false;
        return;
    }
    double read = 0;
    double written = 0;
    for (const Value& disk : *disks) {
        read += figureOf(disk, "readbytes");
        written += figureOf(disk, "writtenbytes");
        if (isBusy(disk)) {
            const auto lasting = lastingOf(evidence, "busy/" + nameOfDisk(disk) + ".busy", busyDisk * 0.7);
            verdict.causes.push_back(
                {diskText(evidence, disk), lasting ? std::optional(lasting->since) : std::nullopt});
        }
    }
    const Value* busiest = busiestDisk(evidence);
    if (verdict.causes.empty()) {
        verdict.remarks.push_back(busiest ? diskText(evidence, *busiest) : "This machine has no disk of its own.");
        if (read + written >= muchTraffic) {
            addWhoUsesDisks(evidence, read, written, verdict);
        }
        return;
    }
    if (const auto waits = figureAt(evidence.machine, {"pressure", "iosome"})) {
        verdict.remarks.push_back(
            fmt::format("Programs {} for disks {} of the time.", tense(evidence, "wait", "waited"), shareText(*waits)));
    }
    addWhoUsesDisks(evidence, read, written, verdict);
}

namespace {

/// Loopback and what carries the bytes of others again are no traffic of their own.
bool counts(const Value& interface)
{
    const auto hardware = text(interface, "hardware");
    return hardware != "Loopback" && hardware != "Bridge" && hardware != "Bond" && hardware != "VLAN"
        && hardware != "Tunnel" && hardware != "Virtual";
}

void addErrors(const Evidence& evidence, Verdict& verdict)
{
    const Value* network = find(evidence.machine, "network");
    if (!network || !network->is_object()) {
        return;
    }
    for (const auto& [name, each] : network->items()) {
        const double errors = figureOf(each, "errors");
        const double dropped = figureOf(each, "dropped");
        if (errors >= frequentErrors || dropped >= frequentErrors) {
            verdict.causes.push_back(
                {fmt::format("{} {} {:.0f} packets a second and {} errors in {:.0f}.", printable(name),
                     tense(evidence, "drops", "dropped"), dropped, tense(evidence, "has", "had"), errors),
                    {}});
        }
    }
}

} // namespace

void judgeBusyNetwork(const Evidence& evidence, Verdict& verdict)
{
    if (!evidence.interfaces.is_array()) {
        verdict.notKnown.emplace_back("what the network interfaces carry");
        verdict.isKnown = false;
        return;
    }
    const Value* busiest = nullptr;
    double most = -1;
    double download = 0;
    double upload = 0;
    for (const Value& interface : evidence.interfaces) {
        const double received = figureOf(interface, "downloadRate");
        const double sent = figureOf(interface, "uploadRate");
        if (!counts(interface)) {
            continue;
        }
        download += received;
        upload += sent;
        if (received + sent > most) {
            most = received + sent;
            busiest = &interface;
        }
        if (received + sent >= muchTraffic) {
            const std::string name = text(interface, "interface").value_or("");
            const auto lasting = lastingOf(
                evidence, "network/" + name + (received >= sent ? ".received" : ".sent"), std::max(received, sent) / 2);
            verdict.causes.push_back(
                {fmt::format("{} {} {} and {} {}{}.", printable(name), tense(evidence, "receives", "received"),
                     formatByteRate(received), tense(evidence, "sends", "sent"), formatByteRate(sent),
                     lastingText(evidence, lasting)),
                    lasting ? std::optional(lasting->since) : std::nullopt});
        }
    }
    addErrors(evidence, verdict);
    const std::string words = mostBy(tense(evidence, "Most is received by", "Most was received by"), evidence.receiving,
                                  formatByteRate, leastAmount / 8)
        + mostBy(
            tense(evidence, "Most is sent by", "Most was sent by"), evidence.sending, formatByteRate, leastAmount / 8);
    if (!words.empty()) {
        verdict.remarks.push_back(words.substr(1));
    }
    if (verdict.causes.empty() && busiest) {
        verdict.remarks.insert(verdict.remarks.begin(),
            fmt::format("The busiest interface {} {} with {} received and {} sent.", tense(evidence, "is", "was"),
                printable(text(*busiest, "interface").value_or("")), formatByteRate(figureOf(*busiest, "downloadRate")),
                formatByteRate(figureOf(*busiest, "uploadRate"))));
    }
    const double programs = sumOf(evidence.receiving) + sumOf(evidence.sending);
    if (!verdict.causes.empty() && download + upload >= muchTraffic && programs < explained * (download + upload)) {
        verdict.notKnown.emplace_back("whose all of it is: programs account for " + formatByteRate(programs));
    }
}

} // namespace meridal
