// SPDX-License-Identifier: Apache-2.0
#include "daemon/ProcessTableService.h"

#include "collectors/process/ProcessStatCollector.h"
#include "daemon/Parameters.h"
#include "daemon/ProcessTableParameters.h"
#include "daemon/TrafficService.h"
#include "daemon/Watches.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Link.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint32_t everyTableFigure =
    mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk) | mask(RequestKey::Energy);
constexpr const char* listName = "processes";

/// By pid, in an answer.
std::unordered_map<std::int64_t, const Value*> rowsByPid(const Value& state)
{
    std::unordered_map<std::int64_t, const Value*> rows;
    const Value* list = state.is_object() ? find(state, listName) : nullptr;
    if (!list) {
        return rows;
    }
    for (const Value& row : *list) {
        rows.emplace(row["pid"].get<std::int64_t>(), &row);
    }
    return rows;
}

Value pidsIn(const Value& state)
{
    Value pids = Value::array();
    const Value* list = state.is_object() ? find(state, listName) : nullptr;
    if (!list) {
        return pids;
    }
    for (const Value& row : *list) {
        pids.push_back(row["pid"]);
    }
    return pids;
}

} // namespace

ProcessTableService::ProcessTableService(Context& context, ProcessStatCollector& processes, TrafficService& traffic)
    : context_(context)
    , processes_(processes)
    , traffic_(traffic)
    , userNames_(context)
    , texts_(context, processes, [this](std::uint32_t uid) { return userNames_.of(uid); })
    , details_(context, processes, texts_)
{
}

bool ProcessTableService::isWatched() const { return watches_ && watches_->count(method::processesWatch) > 0; }

std::uint32_t ProcessTableService::wanted() const { return isAsked_ || isWatched() ? everyTableFigure : 0; }

void ProcessTableService::passed()
{
    latestPass_ = context_.runtime.monotonicTime();
    texts_.forgetOld();
    details_.passed();
    if (watches_) {
        watches_->happened(method::processesWatch);
    }
}

void ProcessTableService::readIfOlderThan(double seconds)
{
    const bool isRecent = latestPass_ && context_.runtime.monotonicTime() - *latestPass_ < seconds;
    if (!isRecent || !processes_.hasRecentFigures(everyTableFigure)) {
        isAsked_ = true;
        daemon_.pass();
        isAsked_ = false;
    }
}

bool ProcessTableService::knowsRates() const
{
    const auto& processes = processes_.processes();
    return std::any_of(processes.begin(), processes.end(), [](const auto* item) { return item->figures.wakeups; });
}

Value ProcessTableService::rowOf(const ProcessSelection::Row& row, const ProcessTableQuery& query)
{
    ProcessStatCollectorItem& item = *row.item;
    Value entry = {{"pid", item.pid}};
    for (const ProcessColumn column : query.columns) {
        const char* name = traitsOf(column).name;
        std::string text;
        switch (column) {
        case ProcessColumn::Start:
            entry[name] = context_.host.processes->startTime(item.startIdentity);
            continue;
        case ProcessColumn::User:
            put(entry, "uid", item.user());
            text = texts_.user(item);
            break;
        case ProcessColumn::Name:
            text = texts_.name(item, query.grouped);
            break;
        case ProcessColumn::State:
            text = nameOfState(item);
            break;
        case ProcessColumn::Unit:
            text = texts_.unit(item);
            break;
        case ProcessColumn::Command:
            text = texts_.command(item);
            break;
        default:
            if (const auto figure = selection_.figure(row, column)) {
                entry[name] = roundedFigure(column, *figure);
            }
            continue;
        }
        if (!text.empty()) {
            entry[name] = std::move(text);
        }
    }
    return entry;
}

Value ProcessTableService::table(const ProcessTableQuery& query, const Viewer& viewer)
{
    const TableMoment moment{.trafficSeconds = traffic_.foldSeconds()};
    selection_.select(processes_.table(), daemon_.viewOf(viewer, query.grouped), query, moment, texts_);
    Value rows = Value::array();
    for (const ProcessSelection::Row& row : selection_.rows()) {
        rows.push_back(rowOf(row, query));
    }
    return {{"time", context_.runtime.wallTime()}, {"total", selection_.total()}, {listName, std::move(rows)},
        {"more", query.offset < selection_.total() && selection_.total() - query.offset > query.limit}};
}

ProcessTableService::State ProcessTableService::state(const ProcessTableQuery& query, const Peer& peer)
{
    return std::make_shared<const Value>(table(query, daemon_.viewerOf(peer)));
}

void ProcessTableService::answer(const Value& given, const Peer& peer, const MeridalHistory::Reply& answered)
{
    Parameters parameters(given);
    const ProcessTableQuery query = processTableQuery(parameters);
    if (!parameters.valid()) {
        return answered(parameters.failure());
    }
    askWithRates([this, query, peer, answered] { reply(query, peer, answered); });
}

/// Out of a recent pass; where there are no rates yet, which take two, a while later.
void ProcessTableService::askWithRates(std::function<void()> reply)
{
    readIfOlderThan(recentEnough);
    if (knowsRates()) {
        return reply();
    }
    context_.runtime.after(rateDelay, lifetime_.guard([this, reply = std::move(reply)] {
        readIfOlderThan(recentEnough / 2);
        reply();
    }));
}

void ProcessTableService::answerDetails(const Value& given, const Peer& peer, const MeridalHistory::Reply& answered)
{
    Parameters parameters(given);
    const auto pid = parameters.count("pid");
    if (!pid || *pid > std::numeric_limits<std::int32_t>::max()) {
        parameters.refuse("\"pid\" says which process");
    }
    if (!parameters.valid()) {
        return answered(parameters.failure());
    }
    askWithRates([this, pid = static_cast<std::int32_t>(*pid), peer, answered] {
        if (const auto* item = processes_.processForPid(pid)) {
            texts_.user(*item);
        }
        userNames_.whenKnown([this, pid, peer, answered] { answered(details(pid, peer)); }, namePatience);
    });
}

/// What the host tells of a process to its owner alone, we tell to them and to root.
Result<Value> ProcessTableService::details(std::int32_t pid, const Peer& peer)
{
    ProcessStatCollectorItem* item = processes_.processForPid(pid);
    const ProcessView view = daemon_.viewOf(daemon_.viewerOf(peer), false);
    if (!item || (view.shown && !view.shown->contains(pid))) {
        return unexpected(ErrorCode::NotFound, "there is no such process");
    }
    const bool isOwner = peer.known && context_.host.processVisibility->ownerOf(pid) == peer.uid;
    return details_.of(*item, view, peer.isRoot() || isOwner, {.trafficSeconds = traffic_.foldSeconds()});
}

/// With the names of users, if those are to be had soon.
void ProcessTableService::reply(const ProcessTableQuery& query, const Peer& peer, const MeridalHistory::Reply& answered)
{
    for (const ProcessStatCollectorItem* item : processes_.processes()) {
        texts_.user(*item);
    }
    userNames_.whenKnown(
        [this, query, peer, answered] { answered(table(query, daemon_.viewerOf(peer))); }, namePatience);
}

Result<Watches::State> ProcessTableService::choose(const Value& given)
{
    Parameters parameters(given);
    const ProcessTableQuery query = processTableQuery(parameters);
    if (!parameters.valid()) {
        return parameters.failure();
    }
    return Watches::State([this, query, isFirst = true](const Peer& peer) mutable {
        if (std::exchange(isFirst, false)) {
            readIfOlderThan(recentEnough);
        }
        return state(query, peer);
    });
}

Value ProcessTableService::changedRows(const Value& before, const Value& now)
{
    auto known = rowsByPid(before);
    Value changed = Value::array();
    for (const Value& row : now.at(listName)) {
        const auto same = known.find(row["pid"].get<std::int64_t>());
        if (same == known.end() || *same->second != row) {
            changed.push_back(row);
        }
        if (same != known.end()) {
            known.erase(same);
        }
    }
    Value changes = Value::object();
    if (!changed.empty()) {
        changes[listName] = std::move(changed);
    }
    for (const auto& [pid, row] : known) {
        changes["gone"].push_back(pid);
    }
    if (Value order = pidsIn(now); order != pidsIn(before)) {
        changes["order"] = std::move(order);
    }
    const Value* total = before.is_object() ? find(before, "total") : nullptr;
    if (!total || *total != now.at("total")) {
        changes["total"] = now.at("total");
    }
    if (changes.empty()) {
        return nullptr;
    }
    changes["time"] = now.at("time");
    return changes;
}

void ProcessTableService::addTo(MeridalHistory& methods, Watches& watches, Daemon daemon)
{
    watches_ = &watches;
    daemon_ = std::move(daemon);
    methods.addAsyncMethod(
        method::processesTable, [this](const Value& parameters, const Peer& peer, const MeridalHistory::Reply& reply) {
            answer(parameters, peer, reply);
        });
    methods.addAsyncMethod(
        method::processDetails, [this](const Value& parameters, const Peer& peer, const MeridalHistory::Reply& reply) {
            answerDetails(parameters, peer, reply);
        });
    watches.addChosenWatch(
        method::processesWatch, shortestWatch, [this](const Value& parameters) { return choose(parameters); },
        changedRows);
}

} // namespace meridal
