// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessTextCache.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <utility>

namespace meridal {

std::string commandLineOf(std::string_view arguments, std::size_t longest)
{
    const std::size_t end = arguments.find_last_not_of('\0');
    std::string line(arguments.substr(0, end == std::string_view::npos ? 0 : end + 1).substr(0, longest));
    std::replace(line.begin(), line.end(), '\0', ' ');
    line = validUtf8(line);
    return line;
}

ProcessTextCache::ProcessTextCache(Context& context, ProcessStatCollector& processes, UserName userName)
    : context_(context), processes_(processes), userName_(std::move(userName))
{
}

std::string ProcessTextCache::name(ProcessStatCollectorItem& item, bool grouped)
{
    return std::string(processes_.sharingNameForProcess(item, grouped));
}

std::string ProcessTextCache::readCommand(const ProcessStatCollectorItem& item) const
{
    const auto arguments = item.isKernelThread ? std::nullopt : context_.host.processInspection->arguments(item.pid);
    return arguments ? commandLineOf(*arguments, longestCommand) : std::string();
}

/// Those of a whole table are not read anew in one pass: their times differ by pid.
std::string_view ProcessTextCache::command(const ProcessStatCollectorItem& item)
{
    const double now = context_.runtime.monotonicTime();
    const double believed = believedFor + item.pid % static_cast<int>(believedFor);
    const auto [entry, isNew] = commands_.try_emplace(item.pid);
    Command& command = entry->second;
    if (isNew || command.startIdentity != item.startIdentity || command.program != std::string_view(item.commandName)
        || now - command.readAt > believed) {
        command.startIdentity = item.startIdentity;
        command.program = item.commandName;
        command.text = readCommand(item);
        command.readAt = now;
    }
    command.usedAt = now;
    return command.text;
}

std::string ProcessTextCache::unit(const ProcessStatCollectorItem& item)
{
    return item.unit.number == 0 || item.unit.kind == ProcessUnitKind::Shared
        ? std::string()
        : context_.host.processes->unitIdentity(item.unit);
}

std::string ProcessTextCache::user(const ProcessStatCollectorItem& item)
{
    const auto uid = item.user();
    return uid ? userName_(*uid) : std::string();
}

void ProcessTextCache::forgetOld()
{
    const double now = context_.runtime.monotonicTime();
    if (now < forgetAt_ || commands_.empty()) {
        return;
    }
    forgetAt_ = now + believedFor;
    std::erase_if(commands_, [now](const auto& entry) { return now - entry.second.usedAt > keptFor; });
}

} // namespace meridal
