// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxUserRights.h"

#include <grp.h>
#include <pwd.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace meridal {

namespace {

constexpr std::array administratorGroups{"sudo", "wheel", "admin"};
constexpr const char* readersGroup = "meridal"; // made at installation; it may read and nothing else

std::vector<gid_t> groupsOf(uid_t uid)
{
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
        return {};
    }
    int count = 64;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    if (::getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) < 0) {
        groups.resize(static_cast<std::size_t>(count));
        if (::getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) < 0) {
            return {};
        }
    }
    groups.resize(static_cast<std::size_t>(count));
    return groups;
}

std::optional<gid_t> groupInDatabase(const char* name)
{
    std::vector<char> buffer(64 * 1024);
    group entry{};
    group* found = nullptr;
    const bool exists = ::getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found) == 0 && found;
    return exists ? std::optional(found->gr_gid) : std::nullopt;
}

/// The unit's, which may be another one than meridal there. An ordinary user's own group says nothing.
std::optional<std::uint32_t> groupOfStart()
{
    const gid_t group = ::getegid();
    return ::geteuid() == 0 && group != 0 ? std::optional(group) : std::nullopt;
}

} // namespace

LinuxUserRights::LinuxUserRights() : LinuxUserRights(groupInDatabase, groupOfStart()) { }

bool LinuxUserRights::administers(std::uint32_t uid)
{
    if (uid == 0) {
        return true;
    }
    const std::vector<gid_t> groups = groupsOf(uid);
    return std::any_of(groups.begin(), groups.end(), [this](gid_t gid) {
        return std::any_of(administratorGroups.begin(), administratorGroups.end(),
            [this, gid](const char* name) { return groupNamed_(name) == gid; });
    });
}

bool LinuxUserRights::ownsActiveSeat(std::uint32_t uid)
{
    char** seats = nullptr;
    if (::sd_get_seats(&seats) < 0) {
        return false;
    }
    bool owns = false;
    for (char** seat = seats; seat && *seat; ++seat) {
        uid_t active = 0;
        owns = owns || (::sd_seat_get_active(*seat, nullptr, &active) >= 0 && active == uid);
        std::free(*seat);
    }
    std::free(static_cast<void*>(seats));
    return owns;
}

std::string LinuxUserRights::userName(std::uint32_t uid)
{
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    return ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found ? found->pw_name : "";
}

std::optional<std::uint32_t> LinuxUserRights::readers()
{
    const std::lock_guard lock(mutex_);
    chosen_ = chosen_ ? chosen_ : groupNamed_(readersGroup);
    for (const char* name : administratorGroups) {
        chosen_ = chosen_ ? chosen_ : groupNamed_(name);
    }
    return chosen_;
}

Result<void> LinuxUserRights::shareWithReaders(const std::string& path)
{
    const auto gid = readers();
    if (!gid) {
        return unexpected(ErrorCode::NotFound, "there is neither a group meridal nor one of administrators");
    }
    struct stat status { };
    if (::lstat(path.c_str(), &status) == 0 && status.st_gid == *gid) {
        return {}; // also where nothing may be given to anybody
    }
    if (::lchown(path.c_str(), static_cast<uid_t>(-1), *gid) != 0) {
        return unexpected(ErrorCode::NotPermitted, std::error_code(errno, std::generic_category()).message());
    }
    return {};
}

} // namespace meridal
