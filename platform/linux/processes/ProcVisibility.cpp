// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ProcVisibility.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <string>

namespace meridal {

namespace {

/// What comes before the separator; the text is left with what comes after it.
std::string_view cutAt(std::string_view& text, char separator)
{
    const std::string_view head = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(head.size() + 1, text.size()));
    return head;
}

/// An id that stands for every one of the first three (real, effective, saved) in a line of /proc/PID/status.
std::optional<std::uint32_t> onlyId(const std::optional<std::string>& line)
{
    std::string_view rest = line ? std::string_view(*line) : std::string_view();
    const std::string_view real = cutAt(rest, '\t');
    std::uint32_t id = 0;
    const auto [end, error] = std::from_chars(real.data(), real.data() + real.size(), id);
    const bool isWhole = error == std::errc() && end == real.data() + real.size();
    return isWhole && cutAt(rest, '\t') == real && cutAt(rest, '\t') == real ? std::optional(id) : std::nullopt;
}

} // namespace

std::optional<ProcessRestriction> parseRestriction(std::string_view mounts)
{
    std::optional<ProcessRestriction> restriction;
    while (!mounts.empty()) {
        std::string_view line = cutAt(mounts, '\n');
        cutAt(line, ' '); // the device
        if (cutAt(line, ' ') != "/proc" || cutAt(line, ' ') != "proc") {
            continue;
        }
        restriction.reset(); // this one lies on top of those before it
        std::string_view options = cutAt(line, ' ');
        std::string_view mode = "off";
        std::uint32_t group = 0; // the kernel leaves the option out when it is root's
        while (!options.empty()) {
            std::string_view value = cutAt(options, ',');
            const std::string_view name = cutAt(value, '=');
            if (name == "hidepid") {
                mode = value;
            } else if (name == "gid") {
                std::from_chars(value.data(), value.data() + value.size(), group);
            }
        }
        if (mode == "ptraceable" || mode == "4") {
            restriction = ProcessRestriction{.exemptGroup = std::nullopt}; // the group counts in the other modes only
        } else if (mode != "off" && mode != "0") {
            restriction = ProcessRestriction{.exemptGroup = group};
        }
    }
    return restriction;
}

std::optional<ProcessRestriction> ProcVisibility::restriction()
{
    if (const auto mounts = folder_.read("proc/self/mounts")) {
        last_ = parseRestriction(*mounts);
    }
    return last_;
}

/// As the kernel decides it: whose three user ids are all theirs, with one group, in a process that may be traced. Files
/// of one that may not (a set-uid program, a key agent) are root's.
std::optional<std::uint32_t> ProcVisibility::ownerOf(std::int32_t pid)
{
    const std::string file = "proc/" + std::to_string(pid) + "/status";
    const std::string text = folder_.read(file).value_or("");
    const auto user = onlyId(valueOfKey(text, "Uid", ':'));
    struct stat status { };
    const bool isTheirs = user && onlyId(valueOfKey(text, "Gid", ':'))
        && ::stat(folder_.path(file).c_str(), &status) == 0 && status.st_uid == *user;
    return isTheirs ? user : std::nullopt;
}

} // namespace meridal
