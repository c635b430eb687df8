// SPDX-License-Identifier: Apache-2.0
// Why a machine is slow, or its memory full.

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/views/ReasonWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr double oneMebibyte = 1024.0 * 1024;

// What stands out. Below these a person does not notice, or something else is the matter.
constexpr double busyProcessors = 85;       // %: little is left for one more program
constexpr double waitsForCpu = 25;          // % of the time in which somebody waits
constexpr double waitsForDisks = 20;        // %
constexpr double waitsForMemory = 5;        // %: reclaim that programs have to do themselves is felt at once
constexpr double fullCore = 85;             // % of one core, of one program
constexpr double stolen = 10;               // % of all processors' time
constexpr double swapTraffic = oneMebibyte; // B/s: some pages that come and go are usual
constexpr double fullMemory = 90;           // % used
constexpr double heldBack = 0.6;            // of the highest frequency, while busy
constexpr double leastCpu = 5;              // % of one core that is worth a name
constexpr double muchGrowth = 256 * oneMebibyte;

std::size_t processorCount(const Evidence& evidence)
{
    const Value* cpu = find(evidence.machine, "cpu");
    const Value* all = cpu ? find(*cpu, "processors") : nullptr;
    return all && all->is_array() ? all->size() : 0;
}

void addBusyProcessors(const Evidence& evidence, Verdict& verdict)
{
    const double busy = figureAt(evidence.machine, {"cpu", "busy"}).value_or(0);
    const double waits = figureAt(evidence.machine, {"pressure", "cpusome"}).value_or(0);
    if (busy < busyProcessors && (waits < waitsForCpu || busy < busyProcessors / 2)) {
        return;
    }
    constexpr double ofThreshold = 0.8; // a little less is still the same thing that goes on
    const auto lasting = lastingOf(evidence, "processors.busy", std::min(busy, busyProcessors) * ofThreshold);
    std::string text = fmt::format("The processors {} {} busy", tense(evidence, "are", "were"), shareText(busy));
    if (waits >= waitsForMemory) {
        text += fmt::format(
            ", and programs {} for them {} of the time", tense(evidence, "wait", "waited"), shareText(waits));
    }
    text += lastingText(evidence, lasting) + ".";
    text += mostBy(
        tense(evidence, "Most of that is used by", "Most of that was used by"), evidence.cpu, coresText, leastCpu);
    if (const double nice = figureAt(evidence.machine, {"cpu", "nice"}).value_or(0); nice >= busy / 4) {
        text += fmt::format(" {} of the time {} to programs of low priority, which give way to the others.",
            shareText(nice), tense(evidence, "goes", "went"));
    }
    verdict.causes.push_back({text, lasting ? std::optional(lasting->since) : std::nullopt});
}

/// A program that works on one processor, on a machine that is not busy.
void addOneFullCore(const Evidence& evidence, Verdict& verdict)
{
    constexpr double least = 90; // % of one core; more than one is no limit that it runs into
    constexpr double most = 120;
    const double busy = figureAt(evidence.machine, {"cpu", "busy"}).value_or(0);
    const std::size_t count = processorCount(evidence);
    if (count > 1 && busy < busyProcessors && !evidence.cpu.empty() && evidence.cpu.front().amount >= least
        && evidence.cpu.front().amount <= most) {
        verdict.causes.push_back({fmt::format("{} keeps one of the {} processors busy all the time. What works on one "
                                              "processor goes no faster, however idle the others are.",
                                      printable(evidence.cpu.front().name), count),
            std::nullopt});
    }
}

void addWaitingForDisks(const Evidence& evidence, Verdict& verdict)
{
    const auto waits = figureAt(evidence.machine, {"pressure", "iosome"});
    const double ioWait = figureAt(evidence.machine, {"cpu", "iowait"}).value_or(0);
    if (waits ? *waits < waitsForDisks : ioWait < waitsForDisks) {
        return;
    }
    const auto lasting = waits ? lastingOf(evidence, "pressure.iosome", waitsForDisks * 0.7)
                               : lastingOf(evidence, "processors.iowait", waitsForDisks * 0.7);
    std::string text = waits
        ? fmt::format("Programs {} for disks {} of the time", tense(evidence, "wait", "waited"), shareText(*waits))
        : fmt::format("The processors {} {} of their time waiting for disks", tense(evidence, "spend", "spent"),
            shareText(ioWait));
    text += lastingText(evidence, lasting) + ".";
    if (const Value* disk = busiestDisk(evidence)) {
        text += " " + diskText(evidence, *disk);
    }
    verdict.causes.push_back({text, lasting ? std::optional(lasting->since) : std::nullopt});
}

double swapRate(const Evidence& evidence)
{
    // What goes out is written once and costs nobody's time; what comes back is waited for.
    return figureAt(evidence.machine, {"memory", "swapin"}).value_or(0);
}

bool isShortOfMemory(const Evidence& evidence)
{
    return figureAt(evidence.machine, {"pressure", "memorysome"}).value_or(0) >= waitsForMemory
        || swapRate(evidence) >= swapTraffic;
}

void addShortOfMemory(const Evidence& evidence, Verdict& verdict)
{
    if (!isShortOfMemory(evidence)) {
        return;
    }
    const double waits = figureAt(evidence.machine, {"pressure", "memorysome"}).value_or(0);
    const auto lasting = lastingOf(evidence, "pressure.memorysome", waitsForMemory * 0.7);
    std::string text = fmt::format("Memory {} short", tense(evidence, "is", "was"));
    if (waits >= waitsForMemory) {
        text += fmt::format(": programs {} for it {} of the time", tense(evidence, "wait", "waited"), shareText(waits));
    }
    text += lastingText(evidence, lasting) + ".";
    if (swapRate(evidence) >= swapTraffic) {
        text += fmt::format(" {} a second {} back from swap, which programs {} for.", formatBytes(swapRate(evidence)),
            tense(evidence, "come", "came"), tense(evidence, "wait", "waited"));
    }
    text += mostBy(tense(evidence, "Most is held by", "Most was held by"), evidence.memory, formatBytes, oneMebibyte);
    verdict.causes.push_back({text, lasting ? std::optional(lasting->since) : std::nullopt});
}

void addStolen(const Evidence& evidence, Verdict& verdict)
{
    const double steal = figureAt(evidence.machine, {"cpu", "steal"}).value_or(0);
    if (steal >= stolen) {
        const auto lasting = lastingOf(evidence, "processors.steal", stolen * 0.7);
        verdict.causes.push_back(
            {fmt::format("The host {} {} of the processors' time to others: this is a virtual machine "
                         "whose host is busy{}.",
                 tense(evidence, "gives", "gave"), shareText(steal), lastingText(evidence, lasting)),
                lasting ? std::optional(lasting->since) : std::nullopt});
    }
}

/// Busy processors that do not run as fast as they could.
void addHeldBack(const Evidence& evidence, Verdict& verdict)
{
    const auto highest = figureAt(evidence.machine, {"maximumFrequency"});
    const Value* cpu = find(evidence.machine, "cpu");
    const Value* all = cpu ? find(*cpu, "processors") : nullptr;
    if (!highest || *highest <= 0 || !all || !all->is_array()) {
        return;
    }
    constexpr double busyEnough = 80; // %: an idle one is slow on purpose
    double fastest = 0;
    for (const Value& each : *all) {
        if (number(each, "busy").value_or(0) >= busyEnough) {
            fastest = std::max(fastest, number(each, "frequency").value_or(0));
        }
    }
    if (fastest > 0 && fastest < heldBack * *highest) {
        constexpr double gigahertz = 1e9;
        verdict.causes.push_back(
            {fmt::format("Busy processors run at {:.1f} of {:.1f} GHz: something holds them back, such as "
                         "heat, a weak supply or a saving mode.",
                 fastest / gigahertz, *highest / gigahertz),
                std::nullopt});
    }
}

std::optional<double> usedShare(const Evidence& evidence)
{
    const auto used = figureAt(evidence.machine, {"memory", "used"});
    const auto available = figureAt(evidence.machine, {"memory", "available"});
    const double total = used && available ? *used + *available : 0;
    return total > 0 ? std::optional(100 * *used / total) : std::nullopt;
}

std::string memoryText(const Evidence& evidence)
{
    const double used = figureAt(evidence.machine, {"memory", "used"}).value_or(0);
    const double available = figureAt(evidence.machine, {"memory", "available"}).value_or(0);
    return fmt::format("{} of {} {} used ({}), {} {} available", formatBytes(used), formatBytes(used + available),
        tense(evidence, "are", "were"), shareText(usedShare(evidence).value_or(0)), formatBytes(available),
        tense(evidence, "are", "were"));
}

/// Whom the kernel killed of late; where nobody says who it was, how many since the boot.
void addKills(const Evidence& evidence, Verdict& verdict)
{
    constexpr double late = 86'400; // s
    constexpr std::size_t most = 3;
    const Value* kills = find(evidence.machine, "memoryKills");
    std::size_t told = 0;
    for (std::size_t place = kills && kills->is_array() ? kills->size() : 0; place > 0 && told < most; --place) {
        const Value& kill = (*kills)[place - 1];
        const double ago = evidence.time - number(kill, "time").value_or(0);
        if (ago < 0 || ago > late) {
            continue;
        }
        const auto bytes = number(kill, "bytes");
        verdict.causes.push_back(
            {fmt::format("The kernel killed {}{} for want of memory {} {}.",
                 printable(text(kill, "name").value_or("a program")), bytes ? " (" + formatBytes(*bytes) + ")" : "",
                 formatSpan(std::round(ago)), tense(evidence, "ago", "before")),
                number(kill, "time")});
        ++told;
    }
    const double count = figureAt(evidence.machine, {"memory", "oomkills"}).value_or(0);
    if (told == 0 && count > 0) {
        verdict.remarks.push_back(fmt::format("The kernel has killed {} for want of memory since the machine started.",
            count == 1 ? "a program" : fmt::format("{:.0f} programs", count)));
    }
}

/// Which of the large ones have become larger.
void addGrowing(const Evidence& evidence, Verdict& verdict)
{
    for (const Consumer& each : evidence.memory) {
        const auto before = std::find_if(evidence.memoryBefore.begin(), evidence.memoryBefore.end(),
            [&](const Consumer& earlier) { return earlier.name == each.name; });
        if (before != evidence.memoryBefore.end() && each.amount - before->amount >= muchGrowth) {
            verdict.remarks.push_back(fmt::format("{} {} by {} within {}, from {}.", printable(each.name),
                tense(evidence, "has grown", "grew"), formatBytes(each.amount - before->amount),
                formatSpan(evidence.memoryBeforeSpan), formatBytes(before->amount)));
        }
    }
    const auto course = evidence.courses.find("memory.used");
    const auto used = figureAt(evidence.machine, {"memory", "used"});
    if (course != evidence.courses.end() && !course->second.points.empty() && used) {
        const auto& [time, first] = course->second.points.front();
        if (*used - first >= muchGrowth) {
            verdict.remarks.push_back(fmt::format("In all {} more {} used than {} before.", formatBytes(*used - first),
                tense(evidence, "are", "were"), formatSpan(std::round((evidence.time - time) / 60) * 60)));
        }
    }
}

/// Memory that no program's figure shows.
void addHidden(const Evidence& evidence, Verdict& verdict)
{
    constexpr double worthTelling = 0.1; // of all memory
    const double total = figureAt(evidence.machine, {"memory", "used"}).value_or(0)
        + figureAt(evidence.machine, {"memory", "available"}).value_or(0);
    const auto add = [&](const char* entry, const char* what) {
        const double bytes = figureAt(evidence.machine, {"memory", entry}).value_or(0);
        if (total > 0 && bytes >= worthTelling * total) {
            verdict.remarks.push_back(
                fmt::format("{} {} {}.", formatBytes(bytes), tense(evidence, "are", "were"), what));
        }
    };
    add("shared", "shared memory and files that lie in memory (tmpfs)");
    add("slab", "the kernel's own (slab)");
    add("compressed", "taken by compressed memory");
}

} // namespace

bool addLoad(const Evidence& evidence, Verdict& verdict)
{
    constexpr double worksHard = 25; // % of all processors
    const auto busy = figureAt(evidence.machine, {"cpu", "busy"});
    const std::string who = consumersText(evidence.cpu, coresText, leastCpu);
    bool isBusy = false;
    if (busy && (*busy >= worksHard || (!evidence.cpu.empty() && evidence.cpu.front().amount >= fullCore))) {
        isBusy = true;
        verdict.remarks.push_back(fmt::format("The processors {} {} busy{}.", tense(evidence, "are", "were"),
            shareText(*busy), who.empty() ? "" : ", mostly with " + who));
    }
    const Value* gpus = find(evidence.machine, "gpus");
    if (!gpus || !gpus->is_object()) {
        return isBusy;
    }
    for (const auto& [name, gpu] : gpus->items()) {
        if (const double share = number(gpu, "busy").value_or(0); share >= worksHard) {
            isBusy = true;
            verdict.remarks.push_back(fmt::format("The graphics processor {} {} {} busy.", printable(name),
                tense(evidence, "is", "was"), shareText(share)));
        }
    }
    return isBusy;
}

void judgeSlow(const Evidence& evidence, Verdict& verdict)
{
    addShortOfMemory(evidence, verdict); // slows everything else down, too
    addWaitingForDisks(evidence, verdict);
    addBusyProcessors(evidence, verdict);
    addOneFullCore(evidence, verdict);
    addStolen(evidence, verdict);
    addHeldBack(evidence, verdict);
    const auto busy = figureAt(evidence.machine, {"cpu", "busy"});
    if (!verdict.causes.empty()) {
        addRecent(evidence, "processor time of programs", verdict);
    } else if (busy) {
        std::string text = fmt::format("The processors {} {} busy", tense(evidence, "are", "were"), shareText(*busy));
        if (const auto share = usedShare(evidence)) {
            text += fmt::format(", {} of the memory {} used", shareText(*share), tense(evidence, "is", "was"));
        }
        const Value* disk = busiestDisk(evidence);
        const auto diskBusy = disk ? number(*disk, "busy") : std::nullopt;
        text += diskBusy
            ? fmt::format(", and no disk {} busier than {}", tense(evidence, "is", "was"), shareText(*diskBusy))
            : "";
        verdict.remarks.push_back(text + ".");
    }
    if (!busy) {
        verdict.notKnown.emplace_back("how busy the processors are");
        verdict.isKnown = false;
    }
    const Value* pressure = find(evidence.machine, "pressure");
    if (!pressure || !pressure->is_object() || pressure->empty()) {
        verdict.notKnown.emplace_back("for how long programs wait (this system does not account for it)");
    }
}

void judgeMemory(const Evidence& evidence, Verdict& verdict)
{
    const auto share = usedShare(evidence);
    addShortOfMemory(evidence, verdict);
    const std::string who =
        mostBy(tense(evidence, "Most is held by", "Most was held by"), evidence.memory, formatBytes, oneMebibyte);
    const bool isFull = share && *share >= fullMemory;
    if (isFull && verdict.causes.empty()) {
        const auto lasting =
            lastingOf(evidence, "memory.used", 0.95 * figureAt(evidence.machine, {"memory", "used"}).value_or(0));
        verdict.causes.push_back({memoryText(evidence) + lastingText(evidence, lasting) + "." + who,
            lasting ? std::optional(lasting->since) : std::nullopt});
    } else if (share) {
        verdict.remarks.push_back(memoryText(evidence) + "." + (verdict.causes.empty() ? who : ""));
    } else {
        verdict.notKnown.emplace_back("how much memory is used");
        verdict.isKnown = false;
    }
    addKills(evidence, verdict);
    const double swap = figureAt(evidence.machine, {"memory", "swapused"}).value_or(0);
    if (swap > 0) {
        verdict.remarks.push_back(fmt::format("{} {} in swap; {} a second {} back, {} a second {} out.",
            formatBytes(swap), tense(evidence, "lie", "lay"), formatBytes(swapRate(evidence)),
            tense(evidence, "come", "came"), formatBytes(figureAt(evidence.machine, {"memory", "swapout"}).value_or(0)),
            tense(evidence, "go", "went")));
    }
    addGrowing(evidence, verdict);
    addHidden(evidence, verdict);
}

} // namespace meridal
