#include "platform/macos/MacUserRights.h"

#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
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

} // namespace

bool MacUserRights::administers(std::uint32_t uid)
{
    if (uid == 0) {
        return true;
    }
    std::vector<char> buffer(64 * 1024);
    group entry{};
    group* found = nullptr;
    if (::getgrnam_r("admin", &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
        return false;
    }
    const std::vector<int> groups = groupsOf(uid);
    return std::find(groups.begin(), groups.end(), static_cast<int>(found->gr_gid)) != groups.end();
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

} // namespace meridal
