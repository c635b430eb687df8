// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/CgroupUnits.h"

#include "base/Text.h"
#include "base/ThreadedSlowWork.h"
#include "platform/linux/processes/ContainerNames.h"
#include "platform/linux/processes/ProcFigures.h"

#include <bit>
#include <mutex>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace meridal {

struct CgroupUnits::FoundNames {
    std::mutex mutex;
    using Name = std::pair<std::uint32_t, std::optional<std::string>>; ///< number of the unit; absent: no file has it
    std::vector<Name> names;
};

CgroupUnits::CgroupUnits(const std::filesystem::path& root, std::unique_ptr<SlowWork> work)
    : root_(root)
    , work_(work ? std::move(work) : std::make_unique<ThreadedSlowWork>(1))
    , found_(std::make_shared<FoundNames>())
{
}

void CgroupUnits::beginPass()
{
    lookups_ = 0;
    std::vector<FoundNames::Name> names;
    {
        const std::lock_guard lock(found_->mutex);
        names.swap(found_->names);
    }
    for (auto& [number, name] : names) {
        const auto unit = units_.find(number);
        if (unit == units_.end()) {
            continue;
        }
        unit->second.isLookedFor = false;
        if (name) {
            unit->second.what.name = validUtf8(*name);
            unit->second.what.container.clear();
        }
    }
}

std::optional<CgroupUnits::Reading> CgroupUnits::read(ProcFolder& processes, std::int32_t pid, std::uint64_t cgroup)
{
    std::string_view text;
    if (processes.read(pid, "cgroup", text) != ProcOutcome::Read) {
        return std::nullopt;
    }
    CgroupPlace place = placeInCgroups(text);
    // It may have moved since its record was made.
    const bool ofCgroup = cgroup != 0 && place.byUnified && isFolder(cgroup, place.unifiedPath);
    const ProcessUnit unit = unitFor(std::move(place.unit));
    if (ofCgroup) {
        byCgroup_.insert_or_assign(cgroup, unit);
    }
    return Reading{.unit = unit, .ofCgroup = ofCgroup};
}

std::optional<ProcessUnit> CgroupUnits::ofCgroup(std::uint64_t cgroup) const
{
    const auto known = byCgroup_.find(cgroup);
    return known == byCgroup_.end() ? std::nullopt : std::optional(known->second);
}

ProcessUnit CgroupUnits::unitFor(CgroupUnit&& what)
{
    const auto [entry, isNew] = numbers_.try_emplace(what.key, lastNumber_ + 1);
    if (!isNew) {
        return units_.at(entry->second).unit;
    }
    const ProcessUnit unit{.number = ++lastNumber_, .kind = what.kind};
    what.name = validUtf8(what.name);
    units_.emplace(unit.number, Known{.unit = unit, .what = std::move(what)});
    return unit;
}

std::optional<ProcessUnit> CgroupUnits::at(std::string_view path)
{
    CgroupUnit unit = unitOfCgroup(path);
    return unit.key.empty() ? std::nullopt : std::optional(unitFor(std::move(unit)));
}

std::string CgroupUnits::identity(const ProcessUnit& unit) const
{
    const auto found = units_.find(unit.number);
    return found == units_.end() ? std::string() : validUtf8(lastingIdentity(found->second.what));
}

std::optional<std::string> CgroupUnits::programNamed(std::string_view name) const
{
    if (name.empty() || name.find('/') != std::string_view::npos || name.front() == '.') {
        return std::nullopt;
    }
    for (const char* folder : {"usr/bin/", "usr/sbin/", "usr/local/bin/", "usr/local/sbin/", "bin/", "sbin/"}) {
        const std::string path = folder + std::string(name);
        if (root_.exists(path)) {
            return "/" + path;
        }
    }
    return std::nullopt;
}

bool CgroupUnits::isFolder(std::uint64_t cgroup, std::string_view path) const
{
    // Beside hierarchies of the older kind the unified one is mounted a level deeper.
    for (const char* mount : {"sys/fs/cgroup", "sys/fs/cgroup/unified"}) {
        struct stat folder { };
        const auto file = root_.path(mount).concat(path);
        if (::stat(file.c_str(), &folder) == 0 && folder.st_ino == cgroup) {
            return true;
        }
    }
    return false;
}

std::string CgroupUnits::name(const ProcessUnit& unit)
{
    const auto found = units_.find(unit.number);
    if (found == units_.end()) {
        return {};
    }
    Known& known = found->second;
    constexpr std::uint32_t mostLookups = 64; // that were asked for; ever fewer of them are made
    constexpr int mostAPass = 8;              // files of runtimes may be large, and many may be new at once
    if (!known.what.container.empty() && !known.isLookedFor && lookups_ < mostAPass && known.nameLookups < mostLookups
        && std::has_single_bit(++known.nameLookups)) {
        lookForName(known);
    }
    return known.what.name;
}

void CgroupUnits::lookForName(Known& known)
{
    ++lookups_;
    known.isLookedFor = true;
    work_->post([root = root_, container = known.what.container, number = known.unit.number, found = found_] {
        auto name = containerName(root, container);
        const std::lock_guard lock(found->mutex);
        found->names.emplace_back(number, std::move(name));
    });
}

std::optional<std::string> CgroupUnits::bundleLocation(ProcFolder& processes, std::int32_t pid, const ProcessUnit& unit)
{
    if (const auto found = units_.find(unit.number); found != units_.end()) {
        if (const std::string& file = desktopFile(found->second); !file.empty()) {
            return file;
        }
    }
    return proc::programPath(processes, pid);
}

const std::string& CgroupUnits::desktopFile(Known& known) const
{
    if (!known.desktopFile) {
        known.desktopFile = "";
        // Any user may name a control group: a name is looked up in these folders and nowhere else.
        const std::string& application = known.what.application;
        const bool isName = application.find('/') == std::string::npos && application.find('\0') == std::string::npos;
        const std::string file = application + ".desktop";
        for (const char* folder : {"usr/share/applications/", "usr/local/share/applications/",
                 "var/lib/flatpak/exports/share/applications/", "var/lib/snapd/desktop/applications/"}) {
            if (isName && !application.empty() && root_.exists(folder + file)) {
                known.desktopFile = validUtf8(file);
            }
        }
    }
    return *known.desktopFile;
}

void CgroupUnits::keepOnly(const std::unordered_set<std::uint32_t>& numbers)
{
    ++generation_;
    std::erase_if(numbers_, [&](const auto& each) { return !numbers.contains(each.second); });
    std::erase_if(units_, [&](const auto& each) { return !numbers.contains(each.first); });
    std::erase_if(byCgroup_, [&](const auto& each) { return !numbers.contains(each.second.number); });
}

} // namespace meridal
