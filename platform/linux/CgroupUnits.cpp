#include "platform/linux/CgroupUnits.h"

#include "platform/linux/ProcParsers.h"

#include <sys/stat.h>

namespace meridal {

std::string_view CgroupUnits::unitOf(ProcFolder& processes, std::int32_t pid, std::uint64_t cgroup)
{
    constexpr std::size_t maximumUnits = 4096; // transient scopes come and go: beyond this, all is read afresh
    if (const auto known = units_.find(cgroup); known != units_.end()) {
        return known->second;
    }
    std::string_view text;
    if (processes.read(pid, "cgroup", text) != ProcOutcome::Read) {
        return {};
    }
    const std::string_view unit = proc::parseCgroup(text);
    if (!isFolder(cgroup, text)) { // it has moved since its record was made, or is known by another hierarchy
        return unit;
    }
    if (units_.size() >= maximumUnits) {
        units_.clear();
    }
    return units_.emplace(cgroup, unit).first->second;
}

bool CgroupUnits::isFolder(std::uint64_t cgroup, std::string_view text) const
{
    constexpr std::string_view unified = "0::/";
    std::size_t line = text.starts_with(unified) ? 0 : text.find("\n0::/");
    if (line == std::string_view::npos) {
        return false;
    }
    line += text[line] == '\n' ? 1 + unified.size() : unified.size();
    const std::string_view path = text.substr(line, text.find('\n', line) - line);
    struct stat folder { };
    return ::stat((hierarchy_ / path).c_str(), &folder) == 0 && folder.st_ino == cgroup;
}

} // namespace meridal
