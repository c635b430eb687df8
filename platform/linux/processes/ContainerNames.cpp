// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/ContainerNames.h"

#include "base/Value.h"

#include <fmt/format.h>

namespace meridal {

namespace {

Value readJson(const RootFolder& root, const std::string& file)
{
    const auto text = root.read(file);
    return (text ? parseUntrusted(*text) : std::nullopt).value_or(Value());
}

std::optional<std::string> nameInDocker(const RootFolder& root, std::string_view id)
{
    std::string data = text(readJson(root, "etc/docker/daemon.json"), "data-root").value_or("/var/lib/docker");
    data.erase(0, data.find_first_not_of('/'));
    for (const std::string& folder : {data, std::string("var/snap/docker/common/var-lib-docker")}) {
        auto name = text(readJson(root, fmt::format("{}/containers/{}/config.v2.json", folder, id)), "Name");
        if (name && name->size() > 1) {
            return name->substr(name->front() == '/' ? 1 : 0);
        }
    }
    return std::nullopt;
}

std::optional<std::string> nameInStorage(const RootFolder& root, std::string_view id)
{
    for (const char* driver : {"overlay", "btrfs", "vfs", "zfs"}) {
        for (const char* file : {"containers", "volatile-containers"}) {
            const Value list =
                readJson(root, fmt::format("var/lib/containers/storage/{}-containers/{}.json", driver, file));
            for (const Value& each : list.is_array() ? list : Value::array()) {
                const Value* names = text(each, "id") == id ? find(each, "names") : nullptr;
                if (names && names->is_array() && !names->empty() && names->front().is_string()) {
                    return names->front().get<std::string>();
                }
            }
        }
    }
    return std::nullopt;
}

/// "POD_NAMESPACE_CONTAINER-ID.log". The names themselves hold no underscore.
std::optional<std::string> nameInKubernetes(const RootFolder& root, std::string_view id)
{
    const std::string end = fmt::format("-{}.log", id);
    for (const std::string& link : root.list("var/log/containers")) {
        const std::size_t pod = link.find('_');
        const std::size_t space = pod == std::string::npos ? pod : link.find('_', pod + 1);
        if (space != std::string::npos && link.ends_with(end) && link.size() > space + 1 + end.size()) {
            return link.substr(0, pod) + '/' + link.substr(space + 1, link.size() - end.size() - space - 1);
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> containerName(const RootFolder& root, std::string_view id)
{
    for (const auto look : {nameInKubernetes, nameInDocker, nameInStorage}) {
        if (auto name = look(root, id)) {
            return name;
        }
    }
    return std::nullopt;
}

} // namespace meridal
