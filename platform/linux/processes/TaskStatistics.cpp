// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/TaskStatistics.h"

#include "platform/linux/kernel/GenericNetlink.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <linux/taskstats.h>
#include <unistd.h>

namespace meridal {

namespace {

// The answers wait in the socket, some 1.3 KiB of the kernel's memory each, which is a third of what it may hold by default.
constexpr std::size_t mostAtOnce = 64;
constexpr std::size_t requestBytes = sizeof(nlmsghdr) + sizeof(genlmsghdr) + sizeof(nlattr) + sizeof(std::uint32_t);
constexpr std::size_t requestWords = requestBytes / sizeof(std::uint32_t);

} // namespace

std::optional<proc::Schedstat> parseTaskStatistics(const nlmsghdr& message)
{
    std::optional<proc::Schedstat> sums;
    forEachGenericAttribute(message, TASKSTATS_CMD_NEW, [&sums](const nlattr& nest) {
        if (mnl_attr_get_type(&nest) != TASKSTATS_TYPE_AGGR_TGID) {
            return;
        }
        forEachNested(nest, [&sums](const nlattr& attribute) {
            constexpr std::size_t needed = offsetof(taskstats, cpu_run_virtual_total) + sizeof(std::uint64_t);
            const std::string_view bytes = bytesOf(attribute);
            if (mnl_attr_get_type(&attribute) == TASKSTATS_TYPE_STATS && bytes.size() >= needed) {
                taskstats told{};
                std::memcpy(&told, bytes.data(), needed);
                sums = {
                    .runTime = told.cpu_run_virtual_total, .waitTime = told.cpu_delay_total, .slices = told.cpu_count};
            }
        });
    });
    return sums;
}

std::unique_ptr<TaskStatistics> TaskStatistics::open()
{
    std::unique_ptr<TaskStatistics> statistics(new TaskStatistics());
    const std::array self{static_cast<std::int32_t>(::getpid())};
    std::vector<proc::Schedstat> sums;
    const bool answers = statistics->findFamily() && statistics->read(self, sums);
    return answers && sums.front().slices > 0 && sums.front().runTime > 0 ? std::move(statistics) : nullptr;
}

bool TaskStatistics::findFamily()
{
    std::array<std::uint32_t, 64> memory{};
    socket_.ask(beginFamilyRequest(memory.data(), TASKSTATS_GENL_NAME), [this](const nlmsghdr& message) {
        if (const auto family = parseGenericFamily(message)) {
            family_ = family->identifier;
        }
    });
    return family_ != 0;
}

bool TaskStatistics::read(std::span<const std::int32_t> pids, std::vector<proc::Schedstat>& sums)
{
    sums.assign(pids.size(), {});
    for (std::size_t i = 0; i < pids.size(); i += mostAtOnce) {
        const std::size_t count = std::min(mostAtOnce, pids.size() - i);
        if (!readSome(pids.subspan(i, count), std::span(sums).subspan(i, count))) {
            return false;
        }
    }
    return true;
}

bool TaskStatistics::readSome(std::span<const std::int32_t> pids, std::span<proc::Schedstat> sums)
{
    requests_.assign(pids.size() * requestWords, 0);
    for (std::size_t i = 0; i < pids.size(); ++i) {
        nlmsghdr& request = beginGenericRequest(requests_.data() + i * requestWords, family_, TASKSTATS_CMD_GET);
        mnl_attr_put_u32(&request, TASKSTATS_CMD_ATTR_TGID, static_cast<std::uint32_t>(pids[i]));
    }
    return socket_.askEach(requests_, [&](std::size_t index, const nlmsghdr& answer) {
        if (const auto told = parseTaskStatistics(answer)) {
            sums[index] = *told;
        }
    });
}

} // namespace meridal
