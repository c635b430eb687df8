// SPDX-License-Identifier: Apache-2.0
// What groups have graphics processors do.

#include "collectors/process/GroupAccumulator.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint32_t doorRemembered = 8640; ///< passes, a day of them

} // namespace

/// Programs open the processor when they begin; one that does so later is found when it comes round and runs. Those of the
/// first pass have begun long ago.
std::vector<std::int32_t> GroupAccumulator::mayUseGraphics() const
{
    std::vector<std::int32_t> pids;
    for (const Account& account : accounts_) {
        const bool isNew = account.age == 1;
        const bool isYoung = (account.age == firstLook || account.age == secondLook) && account.age < pass_;
        if ((isNew || isYoung || (account.ran && comesRound(account))) && account.place != GroupTable::kernel) {
            pids.push_back(account.pid);
        }
    }
    return pids;
}

/// A door that several processes have is the youngest's: servers open doors for their clients.
std::vector<GraphicsClient> GroupAccumulator::graphicsByDoor()
{
    const auto told = context_.host.graphicsClients->read(mayUseGraphics(), now_);
    std::vector<GraphicsClient> clients(told.begin(), told.end());
    const auto door = [](const GraphicsClient& client) { return std::tie(client.device, client.client); };
    const auto start = [this](const GraphicsClient& client) {
        const Item* item = processes_.processForPid(client.pid);
        return item ? item->startIdentity : 0;
    };
    std::sort(clients.begin(), clients.end(), [&](const GraphicsClient& one, const GraphicsClient& other) {
        return door(one) != door(other) ? door(one) < door(other) : start(one) > start(other);
    });
    const auto same = [&](const GraphicsClient& one, const GraphicsClient& other) { return door(one) == door(other); };
    clients.erase(std::unique(clients.begin(), clients.end(), same), clients.end());
    return clients;
}

void GroupAccumulator::addGraphics()
{
    constexpr double nsPerSecond = 1e9;
    for (const GraphicsClient& client : graphicsByDoor()) {
        const Item* item = processes_.processForPid(client.pid);
        const Account* account = item ? accountOf(client.pid, item->startIdentity) : nullptr;
        if (!account) {
            continue;
        }
        auto& mark =
            graphicsMarks_.try_emplace({client.device, client.client}, pass_ == 1 ? client.busyNs : 0).first->second;
        mark.pass = pass_;
        GroupTotals& group = groups_.at(account->place);
        const auto growth = static_cast<double>(takeGrowth(mark.ns, client.busyNs));
        group.sums.graphicsSeconds = group.sums.graphicsSeconds.value_or(0) + growth / nsPerSecond;
        if (client.memoryBytes) {
            group.now.graphicsBytes = group.now.graphicsBytes.value_or(0) + *client.memoryBytes;
        }
    }
    // Numbers are not given twice: one that could not be read for a while goes on from where it was.
    std::erase_if(graphicsMarks_, [this](const auto& entry) { return pass_ - entry.second.pass >= doorRemembered; });
}

} // namespace meridal
