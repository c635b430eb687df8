// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/CgroupPath.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace meridal {

namespace {

constexpr std::size_t idLength = 64;
constexpr std::size_t shortIdLength = 12; // as the runtimes' own tools show it
constexpr std::string_view scopeSuffix = ".scope";
constexpr std::string_view serviceSuffix = ".service";

bool isHexadecimal(std::string_view text)
{
    return text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool isDecimal(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// What stands between the two; absent when it does not begin and end so or nothing is in between.
std::optional<std::string_view> between(std::string_view text, std::string_view start, std::string_view end)
{
    if (text.size() <= start.size() + end.size() || !text.starts_with(start) || !text.ends_with(end)) {
        return std::nullopt;
    }
    return text.substr(start.size(), text.size() - start.size() - end.size());
}

/// The id in "docker-ID.scope", "cri-containerd-ID.scope", "libpod-ID", a bare "ID", "SLICE:cri-containerd:ID".
std::optional<std::string_view> containerId(std::string_view component)
{
    if (component.ends_with(scopeSuffix)) {
        component.remove_suffix(scopeSuffix.size());
    }
    if (component.size() < idLength) {
        return std::nullopt;
    }
    const std::string_view runtime = component.substr(0, component.size() - idLength);
    const std::string_view id = component.substr(runtime.size());
    const bool parted = runtime.empty() || runtime.ends_with('-') || runtime.ends_with(':');
    // "libpod-conmon-ID.scope" and its like hold who watches the container from outside.
    const bool isMonitor = runtime.find("conmon") != std::string_view::npos;
    return parted && !isMonitor && isHexadecimal(id) ? std::optional(id) : std::nullopt;
}

/// "qemu-2-NAME" and "lxc-1234-NAME", as libvirt registers its machines.
std::string machineName(std::string name)
{
    for (const std::string_view driver : {"qemu-", "lxc-"}) {
        const std::size_t dash = name.starts_with(driver) ? name.find('-', driver.size()) : std::string::npos;
        if (dash < name.size() - 1 && isDecimal(std::string_view(name).substr(driver.size(), dash - driver.size()))) {
            return name.substr(dash + 1);
        }
    }
    return name;
}

/// The name of a machine or a container that the component itself tells.
std::optional<std::string> containerName(std::string_view component, std::string_view parent)
{
    if (const auto name = between(component, "machine-", scopeSuffix)) {
        return machineName(decodedUnitName(*name));
    }
    if (const auto name = between(component, "systemd-nspawn@", serviceSuffix)) {
        return decodedUnitName(*name);
    }
    if (const auto name = between(component, "lxc.payload.", "")) {
        return std::string(*name);
    }
    const bool inFolder = parent == "lxc" || parent == "lxc.payload";
    return inFolder && !component.empty() ? std::optional(std::string(component)) : std::nullopt;
}

std::optional<CgroupUnit> containerOf(std::string_view path)
{
    std::string_view parent;
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string_view component = path.substr(begin, end - begin);
        CgroupUnit unit{.kind = ProcessUnitKind::Container, .key = std::string(path.substr(0, end))};
        if (const auto id = containerId(component)) {
            unit.name = id->substr(0, shortIdLength);
            // Below a user's own slice anybody may call a folder so, and the files of root's runtimes do not know of it.
            unit.container = path.starts_with("/user.slice/") ? std::string_view() : *id;
            return unit;
        }
        if (auto name = containerName(component, parent)) {
            unit.name = *std::move(name);
            return unit;
        }
        parent = component;
        begin = end + 1;
    }
    return std::nullopt;
}

/// Without the "-UUID" or ".UUID" behind it.
std::string_view withoutUuid(std::string_view text)
{
    constexpr std::size_t length = 36;
    if (text.size() <= length + 1) {
        return text;
    }
    const std::string_view uuid = text.substr(text.size() - length);
    const bool valid = uuid.find_first_not_of("0123456789abcdef-") == std::string_view::npos && uuid[8] == '-'
        && uuid[13] == '-' && uuid[18] == '-' && uuid[23] == '-';
    return valid ? text.substr(0, text.size() - length - 1) : text;
}

/// "app-flatpak-APP-INSTANCE.scope": all instances of an application belong together.
bool readFlatpak(std::string_view component, CgroupUnit& unit)
{
    auto middle = between(component, "app-flatpak-", scopeSuffix);
    middle = middle ? middle : between(component, "flatpak-", scopeSuffix); // before 1.9
    const std::size_t dash = middle ? middle->rfind('-') : std::string_view::npos;
    if (dash == std::string_view::npos || !isDecimal(middle->substr(dash + 1))) {
        return false;
    }
    unit.name = unit.application = decodedUnitName(middle->substr(0, dash));
    unit.key += "flatpak " + unit.name;
    return true;
}

/// "snap.SNAP.APP-UUID.scope", with a dot before the UUID in older releases; a command that is called as its snap has
/// that one name.
bool readSnap(std::string_view component, CgroupUnit& unit)
{
    const auto middle = between(component, "snap.", scopeSuffix);
    const std::string decoded = decodedUnitName(middle.value_or(""));
    const std::string tag(withoutUuid(decoded));
    const std::size_t dot = tag.find('.');
    if (dot == std::string::npos) {
        return false;
    }
    const std::string snap = tag.substr(0, dot);
    const std::string command = tag.substr(dot + 1);
    unit.name = command == snap ? snap : tag;
    unit.application = snap + "_" + command;
    unit.key += "snap " + unit.name;
    return true;
}

/// The application in "app-LAUNCHER-APP-RANDOM.scope", "app-LAUNCHER-APP@RANDOM.service" and "dbus-:1.2-APP@0.service":
/// dashes within it are escaped.
std::string desktopApplication(std::string_view component)
{
    if (!component.starts_with("app-") && !component.starts_with("dbus-")) {
        return {};
    }
    const bool isScope = component.ends_with(scopeSuffix);
    component.remove_suffix(isScope ? scopeSuffix.size() : serviceSuffix.size());
    const std::size_t at = component.find('@');
    const std::size_t dash = component.rfind('-');
    if (at != std::string_view::npos) {
        component = component.substr(0, at);
    } else if (isScope || isDecimal(component.substr(dash + 1))) {
        component = component.substr(0, dash);
    }
    const std::size_t last = component.rfind('-');
    return last == std::string_view::npos ? std::string() : decodedUnitName(component.substr(last + 1));
}

bool isShared(std::string_view component)
{
    return component.starts_with("user@") || component.starts_with("session-") || component == "init.scope";
}

/// "run-u123.service", "run-r0123456789abcdef.scope", "run-p12-i34.service".
bool isMadeUpUnitName(std::string_view name, bool isScope)
{
    constexpr std::string_view digits = "0123456789";
    const bool hasDigit = name.find_first_of(digits) != std::string_view::npos;
    // Scopes have no file that would name them: what stands in their names beside words is a number of a process or a UUID.
    return hasDigit && (isScope || name.starts_with("run-"));
}

} // namespace

std::string lastingIdentity(const CgroupUnit& unit)
{
    if (unit.kind == ProcessUnitKind::Shared) {
        return {};
    }
    if (unit.kind == ProcessUnitKind::Container) {
        return "container:" + unit.name;
    }
    if (!unit.application.empty()) {
        return "app:" + unit.application;
    }
    const std::string_view component = std::string_view(unit.key).substr(unit.key.rfind('/') + 1); // npos + 1 is 0
    const bool isScope = component.ends_with(scopeSuffix);
    const std::string_view suffix = isScope ? scopeSuffix : serviceSuffix;
    const std::string_view name = component.substr(0, component.size() - std::min(suffix.size(), component.size()));
    if (name.empty() || isMadeUpUnitName(name, isScope)) {
        return {};
    }
    const std::size_t at = name.find('@');
    const std::string_view lasting = at == std::string_view::npos ? name : name.substr(0, at + 1);
    return "unit:" + std::string(lasting) + std::string(suffix);
}

std::string decodedUnitName(std::string_view name)
{
    std::string decoded;
    while (!name.empty()) {
        unsigned char byte = 0;
        const bool escaped = name.size() >= 4 && name.starts_with("\\x")
            && std::from_chars(name.data() + 2, name.data() + 4, byte, 16).ptr == name.data() + 4;
        decoded += escaped ? static_cast<char>(byte) : name.front();
        name.remove_prefix(escaped ? 4 : 1);
    }
    return decoded;
}

CgroupUnit unitOfCgroup(std::string_view path)
{
    if (auto container = containerOf(path)) {
        return *std::move(container);
    }
    std::string_view shared;
    for (std::string_view rest = path; !rest.empty();) {
        const std::size_t slash = rest.rfind('/');
        const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
        const std::string_view component = rest.substr(begin);
        if (component.ends_with(scopeSuffix) || component.ends_with(serviceSuffix)) {
            if (!isShared(component)) {
                CgroupUnit unit{.kind = ProcessUnitKind::Application, .key = std::string(rest.substr(0, begin))};
                if (!readFlatpak(component, unit) && !readSnap(component, unit)) {
                    unit.key = rest;
                    unit.application = desktopApplication(component);
                }
                return unit;
            }
            shared = shared.empty() ? rest : shared;
        }
        rest = rest.substr(0, slash == std::string_view::npos ? 0 : slash);
    }
    CgroupUnit unit;
    unit.key = shared;
    return unit;
}

CgroupPlace placeInCgroups(std::string_view text)
{
    constexpr std::string_view deleted =
        " (deleted)"; // the kernel's mark of a control group that was removed meanwhile
    CgroupUnit unified;
    CgroupUnit systemd;
    CgroupUnit other;
    CgroupPlace place;
    bool onlyUnified = true;
    for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
        const std::string_view line = text.substr(0, end);
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second == std::string_view::npos) {
            continue;
        }
        const std::string_view controllers = line.substr(first + 1, second - first - 1);
        std::string_view path = line.substr(second + 1);
        path.remove_suffix(path.ends_with(deleted) ? deleted.size() : 0);
        onlyUnified = onlyUnified && controllers.empty();
        if (controllers.empty()) {
            place.unifiedPath = path;
            unified = unitOfCgroup(path);
        } else if (controllers == "name=systemd") {
            systemd = unitOfCgroup(path);
        } else if (other.key.empty()) {
            other = containerOf(path).value_or(CgroupUnit{});
        }
    }
    place.byUnified = onlyUnified || !unified.key.empty();
    place.unit = !unified.key.empty() ? unified : !systemd.key.empty() ? systemd : other;
    return place;
}

} // namespace meridal
