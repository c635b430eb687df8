// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/machine/MacAdapters.h"

#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <vector>

namespace meridal {

namespace {

std::vector<int> groupsOf(uid_t uid)
{
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
        return {};
    }
    // getgrouplist does not say how many there are when they do not fit.
    std::vector<int> groups(1024);
    int count = static_cast<int>(groups.size());
    ::getgrouplist(found->pw_name, static_cast<int>(found->pw_gid), groups.data(), &count);
    groups.resize(static_cast<std::size_t>(std::clamp(count, 0, 1024)));
    return groups;
}

std::optional<gid_t> administratorGroup()
{
    std::vector<char> buffer(64 * 1024);
    group entry{};
    group* found = nullptr;
    const bool exists = ::getgrnam_r("admin", &entry, buffer.data(), buffer.size(), &found) == 0 && found;
    return exists ? std::optional(found->gr_gid) : std::nullopt;
}

class MacUserRights final : public UserRights {
public:
    bool administers(std::uint32_t uid) override;
    bool ownsActiveSeat(std::uint32_t uid) override;
    std::string userName(std::uint32_t uid) override;
    Result<void> shareWithReaders(const std::string& path) override;
};

} // namespace

bool MacUserRights::administers(std::uint32_t uid)
{
    if (uid == 0) {
        return true;
    }
    const auto admin = administratorGroup();
    const std::vector<int> groups = groupsOf(uid);
    return admin && std::find(groups.begin(), groups.end(), static_cast<int>(*admin)) != groups.end();
}

bool MacUserRights::ownsActiveSeat(std::uint32_t uid)
{
    uid_t console = 0;
    CFStringRef name = SCDynamicStoreCopyConsoleUser(nullptr, &console, nullptr);
    if (!name) {
        return false;
    }
    // The login window owns the console while nobody is logged in.
    const bool somebody = CFStringCompare(name, CFSTR("loginwindow"), 0) != kCFCompareEqualTo;
    CFRelease(name);
    return somebody && console == uid;
}

std::string MacUserRights::userName(std::uint32_t uid)
{
    std::vector<char> buffer(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    return ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found ? found->pw_name : "";
}

Result<void> MacUserRights::shareWithReaders(const std::string& path)
{
    const auto group = administratorGroup();
    if (!group) {
        return unexpected(ErrorCode::NotFound, "there is no group of administrators");
    }
    if (::lchown(path.c_str(), static_cast<uid_t>(-1), *group) != 0) {
        return unexpected(ErrorCode::NotPermitted, std::error_code(errno, std::generic_category()).message());
    }
    return {};
}

std::unique_ptr<UserRights> makeMacUserRights() { return std::make_unique<MacUserRights>(); }

} // namespace meridal
