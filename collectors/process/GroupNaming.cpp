// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/GroupNaming.h"

#include "base/Text.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

/// Of a desktop's application what a shell in it starts is no part; of all other units everything is.
constexpr std::string_view desktopScheme = "app:";
constexpr std::size_t longestGroupIdentity = 512; // bytes

std::string withinBounds(std::string identity)
{
    if (identity.size() > longestGroupIdentity) {
        identity = validUtf8(identity.substr(0, longestGroupIdentity));
    }
    return identity;
}

/// By where it lies, else by what it is called.
std::string identityOfProgram(const std::string& path, const std::string& name)
{
    return withinBounds(path.empty() ? "name:" + name : path.ends_with(".app") ? "bundle:" + path : "exe:" + path);
}

/// "nginx" of "unit:nginx.service", "firefox" of "app:firefox".
std::string nameWithin(std::string_view identity)
{
    identity.remove_prefix(identity.find(':') + 1);
    for (const std::string_view end : {".service", ".scope"}) {
        if (identity.ends_with(end)) {
            identity.remove_suffix(end.size());
        }
    }
    return std::string(identity);
}

/// Whether what a program does is what the script says that it runs.
bool isInterpreter(std::string_view file)
{
    constexpr std::array<std::string_view, 14> interpreters = {
        "python", "perl", "ruby", "node", "bash", "dash", "sh", "zsh", "ksh", "php", "lua", "tclsh", "guile", "gjs"};
    return std::any_of(
        interpreters.begin(), interpreters.end(), [file](std::string_view name) { return file.starts_with(name); });
}

} // namespace

GroupName GroupNaming::of(ProcessStatCollectorItem& head)
{
    const auto owner = context_.host.processVisibility->ownerOf(head.pid);
    if (auto unit = ofUnit(head.unit, owner)) {
        return *std::move(unit);
    }
    GroupName group{.name = std::string(processes_.sharingNameForProcess(head, true)), .owner = owner};
    const std::string unit = context_.host.processes->unitIdentity(head.unit);
    if (!unit.empty() && processes_.bearsNameOfUnit(head)) {
        group.identity = withinBounds(unit);
        return group;
    }
    const std::string program = programOf(head);
    programs_.store(std::string(head.commandName), program);
    group.identity = identityOfProgram(program, group.name);
    return group;
}

std::optional<GroupName> GroupNaming::ofUnit(const ProcessUnit& unit, std::optional<std::uint32_t> owner)
{
    std::string identity = context_.host.processes->unitIdentity(unit);
    if (identity.empty() || identity.starts_with(desktopScheme)) {
        return std::nullopt;
    }
    std::string name = context_.host.processes->unitName(unit);
    if (name.empty()) {
        name = nameWithin(identity);
    }
    return GroupName{.identity = withinBounds(std::move(identity)), .name = std::move(name), .owner = owner};
}

/// Of a script its own path: what runs it is the same for many.
std::string GroupNaming::programOf(const ProcessStatCollectorItem& head)
{
    ProcessSource& source = *context_.host.processes;
    const std::string path = validUtf8(source.bundleLocation(head.pid, {}).value_or(""));
    const std::string file = lastComponent(path).value_or("");
    // A shell by another name ("sh") is that shell, however it was called.
    const bool isScript = isInterpreter(file) && !file.starts_with(head.commandName) && !head.startsCommands;
    if (!isScript) {
        return path;
    }
    const auto script = source.executablePath(head.pid, head.commandName);
    return script && script->starts_with('/') ? validUtf8(*script) : path;
}

GroupName GroupNaming::ofEnded(std::string_view name, std::optional<std::uint32_t> owner)
{
    const std::string command(name);
    GroupName group{.name = validUtf8(command), .owner = owner};
    const std::string* path = programs_.find(command);
    if (!path) {
        programs_.store(command, validUtf8(context_.host.processes->usualPath(command).value_or("")));
        path = programs_.find(command);
    }
    group.identity = identityOfProgram(*path, group.name);
    return group;
}

} // namespace meridal
