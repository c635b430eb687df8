// SPDX-License-Identifier: Apache-2.0
#include "daemon/ProcessDetails.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "collectors/process/ProcessStatCollector.h"
#include "collectors/process/ProcessTextCache.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostSockets = 4096;

bool isVisible(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    return !view.shown || view.shown->contains(item.pid);
}

/// What goes over all connections with one other end.
struct HostTraffic {
    std::uint64_t connections = 0;
    std::optional<std::uint64_t> received;
    std::optional<std::uint64_t> sent;
    std::set<std::uint16_t> ports;

    std::uint64_t all() const { return received.value_or(0) + sent.value_or(0); }
};

void addBytes(std::optional<std::uint64_t>& sum, const std::optional<std::uint64_t>& bytes)
{
    if (bytes) {
        sum = sum.value_or(0) + *bytes;
    }
}

} // namespace

ProcessDetails::Point ProcessDetails::pointOf(const ProcessStatCollectorItem& item, double time)
{
    return {.time = time, .cpu = item.figures.cpu, .footprint = item.figures.memory};
}

void ProcessDetails::passed()
{
    const double now = context_.runtime.monotonicTime();
    const double time = context_.runtime.wallTime();
    std::erase_if(courses_, [now](const auto& entry) { return now - entry.second.askedAt > keptFor; });
    for (auto& [pid, course] : courses_) {
        const ProcessStatCollectorItem* item = std::as_const(processes_).processForPid(pid);
        if (!item || item->startIdentity != course.startIdentity) {
            continue;
        }
        course.points.push_back(pointOf(*item, time));
        while (course.points.front().time < time - courseLength || course.points.front().time > time) {
            course.points.pop_front();
        }
    }
}

/// In place of the one that nobody has asked for longest, where there are too many.
ProcessDetails::Course& ProcessDetails::courseOf(const ProcessStatCollectorItem& item)
{
    if (!courses_.contains(item.pid) && courses_.size() >= mostCourses) {
        courses_.erase(std::min_element(courses_.begin(), courses_.end(),
            [](const auto& one, const auto& other) { return one.second.askedAt < other.second.askedAt; }));
    }
    Course& course = courses_[item.pid];
    if (course.startIdentity != item.startIdentity || course.points.empty()) {
        course = {.startIdentity = item.startIdentity, .askedAt = 0, .points = {}};
        course.points.push_back(pointOf(item, context_.runtime.wallTime()));
    }
    course.askedAt = context_.runtime.monotonicTime();
    return course;
}

Value ProcessDetails::describe(ProcessStatCollectorItem& item)
{
    return {{"pid", item.pid}, {"name", texts_.name(item, false)}};
}

/// Its parent first, up to the first process of all or to one that is not to be seen.
Value ProcessDetails::parentsOf(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    Value parents = Value::array();
    std::int32_t pid = item.parentPid;
    while (parents.size() < mostRelatives) {
        ProcessStatCollectorItem* parent = processes_.processForPid(pid);
        if (!parent || parent->pid == item.pid || !isVisible(*parent, view)) {
            break;
        }
        parents.push_back(describe(*parent));
        if (parent->parentPid == parent->pid) {
            break;
        }
        pid = parent->parentPid;
    }
    return parents;
}

Value ProcessDetails::childrenOf(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    Value children = Value::array();
    for (ProcessStatCollectorItem* each : processes_.processes()) {
        if (each->parentPid == item.pid && each != &item && isVisible(*each, view) && children.size() < mostRelatives) {
            children.push_back(describe(*each));
        }
    }
    return children;
}

Value ProcessDetails::groupOf(ProcessStatCollectorItem& item, const ProcessView& view)
{
    ProcessSelection selection;
    ProcessTableQuery query{.sort = ProcessColumn::Group, .filter = {.pid = item.pid}, .limit = 1};
    selection.select(processes_.table(), view, query, {}, texts_);
    if (selection.rows().empty()) {
        return nullptr;
    }
    const auto head =
        static_cast<std::int32_t>(selection.figure(selection.rows().front(), ProcessColumn::Group).value_or(item.pid));
    query = {.group = head, .limit = 1};
    selection.select(processes_.table(), view, query, {}, texts_);
    return {
        {"pid", head}, {"name", texts_.name(*processes_.processForPid(head), true)}, {"processes", selection.total()}};
}

Value ProcessDetails::hostsOf(const std::vector<ProcessSocket>& sockets)
{
    std::map<std::pair<std::string, std::uint8_t>, HostTraffic> hosts;
    for (const ProcessSocket& socket : sockets) {
        HostTraffic& host = hosts[{socket.host, socket.protocol}];
        ++host.connections;
        host.ports.insert(socket.port);
        addBytes(host.received, socket.bytesReceived);
        addBytes(host.sent, socket.bytesSent);
    }
    std::vector<decltype(hosts)::const_iterator> order;
    for (auto each = hosts.cbegin(); each != hosts.cend(); ++each) {
        order.push_back(each);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto& one, const auto& other) {
        return std::tuple(one->second.all(), one->second.connections)
            > std::tuple(other->second.all(), other->second.connections);
    });
    constexpr std::size_t mostPorts = 8;
    Value list = Value::array();
    for (std::size_t place = 0; place < std::min(order.size(), mostHosts); ++place) {
        const auto& [end, traffic] = *order[place];
        Value host = {{"host", end.first}, {"protocol", end.second == 6 ? "tcp" : "udp"},
            {"connections", traffic.connections}, {"ports", Value::array()}};
        for (const std::uint16_t port : traffic.ports) {
            if (host["ports"].size() < mostPorts) {
                host["ports"].push_back(port);
            }
        }
        put(host, "received", traffic.received);
        put(host, "sent", traffic.sent);
        list.push_back(std::move(host));
    }
    return list;
}

void ProcessDetails::lookInside(Value& details, const ProcessStatCollectorItem& item) const
{
    const ProcessInsight insight = context_.host.processInspection->inspect(item.pid);
    if (insight.executable) {
        details["executable"] = validUtf8(*insight.executable);
    }
    if (insight.workingDirectory) {
        details["workingDirectory"] = validUtf8(*insight.workingDirectory);
    }
    put(details, "descriptors", insight.descriptors);
    details["connections"] = hostsOf(context_.host.processConnections->socketsOf(item.pid, mostSockets));
}

Value ProcessDetails::of(
    ProcessStatCollectorItem& item, const ProcessView& view, bool mayLookInside, const TableMoment& moment)
{
    Value details = describe(item);
    for (const ProcessColumnTraits& each : processColumns()) {
        const bool isFigure = !each.isText && each.column != ProcessColumn::Start && each.column != ProcessColumn::Group
            && each.column != ProcessColumn::Processes;
        const auto figure = isFigure ? figureOf(item, each.column, moment) : std::nullopt;
        if (figure) {
            details[each.name] = roundedFigure(each.column, *figure);
        }
    }
    const auto addText = [&details](const char* name, std::string text) {
        if (!text.empty()) {
            details[name] = std::move(text);
        }
    };
    put(details, "uid", item.user());
    addText("user", texts_.user(item));
    addText("unit", texts_.unit(item));
    addText("state", std::string(nameOfState(item)));
    const auto arguments = item.isKernelThread ? std::nullopt : context_.host.processInspection->arguments(item.pid);
    addText("command", arguments ? commandLineOf(*arguments, longestCommand) : "");
    details["start"] = context_.host.processes->startTime(item.startIdentity);
    details["group"] = groupOf(item, view);
    details["parents"] = parentsOf(item, view);
    details["children"] = childrenOf(item, view);
    if (mayLookInside) {
        lookInside(details, item);
    }
    details["course"] = Value::array();
    for (const Point& point : courseOf(item).points) {
        Value entry = {{"time", point.time}};
        put(entry, "cpu", point.cpu);
        put(entry, "footprint", point.footprint);
        details["course"].push_back(std::move(entry));
    }
    details["time"] = context_.runtime.wallTime();
    return details;
}

} // namespace meridal
