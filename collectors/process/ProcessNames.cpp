// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessNames.h"

#include "base/Text.h"

#include <algorithm>
#include <array>

namespace meridal {

namespace {

template <std::size_t Count>
bool isOneOf(std::string_view name, const std::array<std::string_view, Count>& names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

bool startsCommands(std::string_view name, std::string_view lower)
{
    static constexpr std::array<std::string_view, 43> launchers = {// shells
        "sh", "bash", "csh", "zsh", "ksh", "tcsh", "fish", "dash", "ash", "mksh", "nu", "pwsh",
        // what runs a command as somebody else, on another terminal or in another state
        "sudo", "su", "doas", "pkexec", "runuser", "login", "sshd", "sshd-session", "screen", "SCREEN", "script",
        "timeout",
        // scripts that start a machine
        "rc", "rcS", "rc.local", "openrc-run",
        // debuggers
        "debugserver", "lldb-server", "gdb", "gdbserver", "strace",
        // terminals without the word in their names
        "xterm", "urxvt", "rxvt", "konsole", "kitty", "alacritty", "foot", "kgx", "ptyxis", "tilix"};
    // "gnome-terminal-", as the kernel cuts it, and those that are named by the desktop's scheme: "xfce4-terminal".
    const bool isTerminal = lower == "terminal" || lower.ends_with("-terminal") || lower.starts_with("gnome-terminal-")
        || lower == "qterminal" || lower == "lxterminal" || contains(lower, "iterm");
    return isOneOf(name, launchers) || isTerminal || name.starts_with("tmux") || name.starts_with("ruby")
        || name.starts_with("perl") || contains(lower, "xpcproxy");
}

void removeAll(std::string& text, std::string_view part)
{
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at)) {
        text.erase(at, part.size());
    }
}

} // namespace

ProcessNameTraits traitsOfName(std::string_view name)
{
    const std::string lower = lowercase(name);
    return {
        .safariWebContent = lower.starts_with("safari web c") || lower.starts_with("com.apple.web"),
        .standsAlone = name == "sh" || name.starts_with("nginx"),
        .startsCommands = startsCommands(name, lower),
    };
}

std::string displayNameOf(const std::vector<std::string>& urls)
{
    std::string result;
    for (const std::string& url : urls) {
        result += result.empty() ? "" : ", ";
        result += url;
    }
    for (const std::string_view part : {"https://", "http://", "www."}) {
        removeAll(result, part);
    }
    return result;
}

std::optional<std::string> lastComponent(std::string_view path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    return validUtf8(path.substr(slash + 1));
}

const std::string* ProcessNameCache::find(const std::string& shortName) const
{
    const auto entry = names_.find(shortName);
    return entry == names_.end() ? nullptr : &entry->second;
}

void ProcessNameCache::store(const std::string& shortName, const std::string& fullName)
{
    if (names_.size() >= capacity) {
        names_.clear();
    }
    names_.insert_or_assign(shortName, fullName);
}

} // namespace meridal
