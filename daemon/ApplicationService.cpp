// SPDX-License-Identifier: Apache-2.0
#include "daemon/ApplicationService.h"

#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "daemon/TrafficService.h"
#include "daemon/Watches.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Link.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr std::size_t usualGroups = 100;
constexpr std::size_t mostGroupsOnPage = 512;
constexpr double intervalLeeway = 0.5; // s, by which the daemon's timer may come early
constexpr double secondsOfMinute = 60;
constexpr std::uint32_t everyFigure =
    mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk) | mask(RequestKey::Energy);

/// Clocks tell no more of it, and text none of it.
double inThousandths(double figure) { return std::round(figure * 1e3) / 1e3; }

std::uint64_t countOf(double bytes) { return bytes > 0 ? static_cast<std::uint64_t>(std::llround(bytes)) : 0; }

/// Groups by what clients know them by.
std::map<std::pair<std::string, std::string>, const Value*> byName(const Value& state)
{
    std::map<std::pair<std::string, std::string>, const Value*> groups;
    const Value* list = state.is_object() ? find(state, "groups") : nullptr;
    if (list) {
        for (const Value& group : *list) {
            const Value* user = find(group, "user");
            groups[{group["group"].get<std::string>(), user ? serialise(*user) : ""}] = &group;
        }
    }
    return groups;
}

} // namespace

ApplicationService::ApplicationService(Context& context, ProcessStatCollector& processes, TrafficService& traffic)
    : context_(context), processes_(processes), traffic_(traffic), recorder_(context)
{
    traffic_.setFolded([this](const TrafficAccount& fold) { addTraffic(fold); });
}

ApplicationService::~ApplicationService() { traffic_.setFolded({}); }

void ApplicationService::setRecording(bool recording)
{
    isToRecord_ = recording;
    apply();
}

void ApplicationService::start()
{
    isStarted_ = true;
    apply();
}

void ApplicationService::apply()
{
    if (!isStarted_ || isToRecord_ == groups_.has_value()) {
        return;
    }
    states_.clear();
    if (isToRecord_) {
        recorder_.skip({}); // the time without a record is nobody's
        minute_ = 0;
        latestRecord_.reset();
        groups_.emplace(context_, processes_);
        largest_.startOver();
        traffic_.startRecording();
    } else {
        save();
        groups_.reset();
        latestFull_.reset();
        traffic_.stopRecording();
    }
}

double ApplicationService::interval() const
{
    return interval_.value_or(context_.host.processes->method() == "bpf" ? cheapInterval : dearInterval);
}

bool ApplicationService::isDue() const
{
    return groups_
        && (isAsked_ || !latestFull_ || context_.runtime.monotonicTime() - *latestFull_ >= interval() - intervalLeeway);
}

std::uint32_t ApplicationService::wanted() const { return isDue() ? everyFigure : 0; }

void ApplicationService::measured(std::uint32_t updateMask)
{
    if (!groups_) {
        return;
    }
    groups_->update();
    states_.clear();
    latestPass_ = context_.runtime.monotonicTime();
    if ((updateMask & everyFigure) == everyFigure) {
        latestFull_ = latestPass_;
    }
}

/// What waits in sockets for a process, or cannot be told apart, is nobody's as long as it does.
void ApplicationService::addTraffic(const TrafficAccount& fold)
{
    if (groups_) {
        groups_->addTraffic(processes_.table(), countOf(fold.kernel.download) + countOf(fold.unattributed.download),
            countOf(fold.kernel.upload) + countOf(fold.unattributed.upload));
        states_.clear();
    }
}

/// Not with each pass that clients cause: rows are of minutes.
void ApplicationService::record()
{
    if (!groups_) {
        return;
    }
    const double now = context_.runtime.wallTime();
    const double minute = std::floor(now / secondsOfMinute);
    if (minute != minute_) {
        if (minute_ > 0) {
            recorder_.recordMinute(now, groups_->takeMinute());
        }
        minute_ = minute;
    } else if (latestRecord_ && *latestPass_ - *latestRecord_ < interval() - intervalLeeway) {
        return;
    }
    latestRecord_ = latestPass_;
    recorder_.record(now, groups_->totals());
}

void ApplicationService::tick()
{
    recorder_.updateHistory();
    largest_.forgetIdle(context_.runtime.monotonicTime());
}

void ApplicationService::save()
{
    if (groups_ && latestPass_) {
        recorder_.record(context_.runtime.wallTime(), groups_->totals());
    }
    recorder_.runDatabaseQueue();
}

/// Whoever asks twice wants to know what came in between.
void ApplicationService::readIfOlderThan(double seconds)
{
    if (pass_ && (!latestPass_ || context_.runtime.monotonicTime() - *latestPass_ >= seconds)) {
        isAsked_ = true;
        pass_();
        isAsked_ = false;
    }
}

bool ApplicationService::isShown(const GroupTotals& group, const Viewer& viewer)
{
    return !viewer || group.kind == GroupKind::Kernel
        || (group.kind == GroupKind::Application && group.owner == viewer);
}

Value ApplicationService::describe(const GroupTotals& group) const
{
    const GroupSums& sums = group.sums;
    Value entry = Value::object();
    // In its order, which saves looking for the place: there may be 500 of these.
    auto& fields = entry.get_ref<Value::object_t&>();
    fields.emplace_hint(fields.end(), "cpuSystem", inThousandths(sums.cpuSystemSeconds));
    fields.emplace_hint(fields.end(), "cpuUser", inThousandths(sums.cpuUserSeconds));
    fields.emplace_hint(fields.end(), "diskRead", sums.bytesRead);
    fields.emplace_hint(fields.end(), "diskWritten", sums.bytesWritten);
    fields.emplace_hint(fields.end(), "ended", sums.processesEnded);
    fields.emplace_hint(fields.end(), "energyScore", inThousandths(sums.energyScore));
    fields.emplace_hint(fields.end(), "footprint", group.now.footprintBytes);
    fields.emplace_hint(fields.end(), "footprintPeak", group.peak.footprintBytes);
    fields.emplace_hint(fields.end(), "group", group.identity);
    fields.emplace_hint(fields.end(), "kind", groupKindName(group.kind));
    fields.emplace_hint(fields.end(), "name", group.name);
    fields.emplace_hint(fields.end(), "processes", group.now.processes);
    fields.emplace_hint(fields.end(), "processesPeak", group.peak.processes);
    fields.emplace_hint(fields.end(), "received", sums.bytesReceived);
    fields.emplace_hint(fields.end(), "resident", group.now.residentBytes);
    fields.emplace_hint(fields.end(), "residentPeak", group.peak.residentBytes);
    fields.emplace_hint(fields.end(), "sent", sums.bytesSent);
    fields.emplace_hint(fields.end(), "started", sums.processesStarted);
    fields.emplace_hint(fields.end(), "wakeups", sums.wakeups);
    put(entry, "user", group.owner);
    if (sums.joules) {
        entry["joules"] = inThousandths(*sums.joules);
    }
    if (sums.graphicsSeconds) {
        entry["graphics"] = inThousandths(*sums.graphicsSeconds);
    }
    put(entry, "graphicsMemory", group.now.graphicsBytes);
    return entry;
}

/// What stands around the groups.
Value ApplicationService::frame() const
{
    Value state = {{"time", context_.runtime.wallTime()}, {"since", groups_->since()}, {"groups", Value::array()}};
    if (const std::string_view method = context_.host.processes->method(); !method.empty()) {
        state["source"] = method;
    }
    if (const auto idle = groups_->idleJoules()) {
        state["idleJoules"] = inThousandths(*idle);
    }
    return state;
}

std::vector<const GroupTotals*> ApplicationService::shownTo(const Viewer& viewer) const
{
    std::vector<const GroupTotals*> groups;
    for (const GroupTotals& group : groups_->totals()) {
        if (isShown(group, viewer)) {
            groups.push_back(&group);
        }
    }
    return groups;
}

Value ApplicationService::page(
    std::vector<const GroupTotals*> groups, const std::optional<std::uint64_t>& after, std::size_t limit) const
{
    std::erase_if(groups, [&after](const auto* group) { return after && group->number <= *after; });
    std::sort(groups.begin(), groups.end(), [](const auto* a, const auto* b) { return a->number < b->number; });
    Value page = frame();
    page["more"] = groups.size() > limit;
    groups.resize(std::min(groups.size(), limit));
    for (const GroupTotals* group : groups) {
        page["groups"].push_back(describe(*group));
    }
    if (page["more"] == true) {
        page["next"] = groups.back()->number;
    }
    return page;
}

Value ApplicationService::largest(std::size_t count, const Viewer& viewer, const Peer& peer)
{
    Value page = frame();
    const double now = context_.runtime.monotonicTime();
    const double age = context_.runtime.wallTime() - groups_->since();
    LargestGroups& groups = largest_.of({peer.user(), viewer, count}, now);
    for (const GroupTotals& group : groups.take(shownTo(viewer), now, age)) {
        page["groups"].push_back(describe(group));
    }
    page["more"] = false;
    return page;
}

Result<Value> ApplicationService::totals(const Value& given, const Peer& peer)
{
    Parameters parameters(given);
    const auto after = parameters.count("after");
    const std::size_t limit = parameters.limit(usualGroups, mostGroupsOnPage);
    const auto count = parameters.count("largest");
    const bool isPassive = parameters.flag("passive");
    if (count && (*count < 1 || *count > mostGroupsOnPage)) {
        parameters.refuse(fmt::format("\"largest\" must be a whole number from 1 to {}", mostGroupsOnPage));
    }
    if (count && after) {
        parameters.refuse("\"largest\" is answered in one page, so there is none \"after\" it");
    }
    if (!parameters.valid()) {
        return parameters.failure();
    }
    if (!groups_) {
        return unexpected(ErrorCode::Unavailable, "applications are not recorded here");
    }
    readIfOlderThan(isPassive ? std::numeric_limits<double>::infinity() : recentEnough);
    const Viewer viewer = viewerOf_(peer);
    return count ? largest(*count, viewer, peer) : page(shownTo(viewer), after, limit);
}

std::shared_ptr<const Value> ApplicationService::state(const Peer& peer)
{
    if (!groups_) {
        return std::make_shared<const Value>(Value::object());
    }
    readIfOlderThan(recentEnough);
    const Viewer viewer = viewerOf_(peer);
    auto& state = states_[viewer];
    if (!state) {
        Value all = frame();
        for (const GroupTotals* group : shownTo(viewer)) {
            all["groups"].push_back(describe(*group));
        }
        all["more"] = false;
        state = std::make_shared<const Value>(std::move(all));
    }
    return state;
}

Value ApplicationService::changedGroups(const Value& before, const Value& now)
{
    const auto known = byName(before);
    const auto current = byName(now);
    Value changes = {{"time", now.value("time", 0.0)}, {"groups", Value::array()}};
    for (const auto& [name, group] : current) {
        const auto same = known.find(name);
        if (same == known.end() || *same->second != *group) {
            changes["groups"].push_back(*group);
        }
    }
    for (const auto& [name, group] : known) {
        if (!current.contains(name)) {
            Value gone = {{"group", name.first}};
            if (const Value* user = find(*group, "user")) {
                gone["user"] = *user;
            }
            changes["gone"].push_back(std::move(gone));
        }
    }
    return changes["groups"].empty() && !changes.contains("gone") ? Value() : changes;
}

void ApplicationService::addTo(MeridalHistory& methods, Watches& watches, Task pass, ViewerOf viewerOf)
{
    pass_ = std::move(pass);
    viewerOf_ = std::move(viewerOf);
    methods.addAsyncMethod(
        method::groupsTotals, [this](const Value& parameters, const Peer& peer, const NamedMethods::Reply& reply) {
            reply(totals(parameters, peer));
        });
    watches.addWatch(
        method::groupsWatch, recentEnough, [this](const Peer& peer) { return state(peer); }, changedGroups);
}

} // namespace meridal
