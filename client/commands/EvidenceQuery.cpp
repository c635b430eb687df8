// SPDX-License-Identifier: Apache-2.0
#include "client/commands/EvidenceQuery.h"

#include "client/screen/WallClock.h"
#include "client/views/MomentState.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

namespace meridal {

namespace {

constexpr double hour = 3600;
constexpr double recentSpan = 300;  // s
constexpr double growthSpan = 1800; // s
constexpr std::size_t coursePoints = 603;
constexpr std::size_t mostCourses = 12;

/// An entry of a list, as a number or as text with one in it.
double amountOf(const Value& entry, const char* key)
{
    if (const auto figure = number(entry, key)) {
        return *figure;
    }
    const auto words = text(entry, key);
    return words ? std::strtod(words->c_str(), nullptr) : 0;
}

/// Those of one name are one to a person.
Consumers consumersOf(const Value& list, const std::function<double(const Value&)>& amount)
{
    std::map<std::string, double> sums;
    for (std::size_t place = 0; list.is_array() && place < list.size(); ++place) {
        if (const double figure = amount(list[place]); figure > 0) {
            sums[text(list[place], "name").value_or("?")] += figure;
        }
    }
    Consumers all;
    for (const auto& [name, sum] : sums) {
        all.push_back({name, sum});
    }
    std::stable_sort(all.begin(), all.end(), [](const Consumer& a, const Consumer& b) { return a.amount > b.amount; });
    return all;
}

const Value& orEmpty(const Value& from, const char* entry)
{
    static const Value nothing;
    const Value* found = find(from, entry);
    return found ? *found : nothing;
}

Consumers listed(const Dictionary& envelope, const char* list, const char* figure, double per = 1)
{
    return consumersOf(
        orEmpty(envelope, list), [figure, per](const Value& each) { return amountOf(each, figure) / per; });
}

std::vector<RequestKey> listsFor(Complaint complaint)
{
    switch (complaint) {
    case Complaint::Hot:
    case Complaint::Loud:
        return {RequestKey::Cpu};
    case Complaint::Slow:
        return {RequestKey::Cpu, RequestKey::Memory, RequestKey::Disk};
    case Complaint::Draining:
        return {RequestKey::Cpu, RequestKey::Energy};
    case Complaint::BusyDisk:
        return {RequestKey::Disk};
    case Complaint::BusyNetwork:
        return {RequestKey::Network};
    case Complaint::Memory:
        return {RequestKey::Memory};
    }
    return {};
}

/// The columns of a page of samples; "busy" of the processors is made of their parts.
std::map<std::string, Course> coursesOf(const Value& page)
{
    std::map<std::string, Course> courses;
    const Value& names = orEmpty(page, "values");
    const Value& samples = orEmpty(page, "samples");
    const double interval = number(page, "interval").value_or(6);
    for (std::size_t row = 0; samples.is_array() && names.is_array() && row < samples.size(); ++row) {
        const double time = amountOf(samples[row], "time");
        const Value& values = orEmpty(samples[row], "values");
        std::optional<double> busy;
        for (std::size_t column = 0; values.is_array() && column < std::min(values.size(), names.size()); ++column) {
            if (!values[column].is_number() || !names[column].is_string()) {
                continue;
            }
            const auto name = names[column].get<std::string>();
            const double figure = values[column].get<double>();
            courses[name].interval = interval;
            courses[name].points.emplace_back(time, figure);
            if (name == "user" || name == "nice" || name == "system" || name == "interrupt" || name == "steal") {
                busy = busy.value_or(0) + figure;
            }
        }
        if (busy) {
            courses["busy"].interval = interval;
            courses["busy"].points.emplace_back(time, *busy);
        }
    }
    return courses;
}

/// The entries of a list that matter most: names of series.
std::vector<std::string> largestOf(const Value& list, std::size_t most, const char* prefix, const char* key,
    const std::function<double(const Value&)>& weight)
{
    std::vector<std::pair<double, std::string>> all;
    for (std::size_t place = 0; list.is_array() && place < list.size(); ++place) {
        const auto name = text(list[place], key);
        if (const double heavy = weight(list[place]); heavy > 0 && name) {
            all.emplace_back(heavy, prefix + *name);
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<std::string> names;
    for (std::size_t place = 0; place < std::min(all.size(), most); ++place) {
        names.push_back(all[place].second);
    }
    return names;
}

std::vector<std::string> seriesFor(Complaint complaint, const Evidence& evidence)
{
    const auto ofKind = [](const char* kind) {
        return [kind](const Value& sensor) { return text(sensor, "kind") == kind ? amountOf(sensor, "value") : 0; };
    };
    const auto disks = [&] {
        return largestOf(orEmpty(evidence.machine, "disks"), 4, "busy/", "name",
            [](const Value& disk) { return amountOf(disk, "busy"); });
    };
    std::vector<std::string> names;
    const auto add = [&names](std::vector<std::string> more) {
        names.insert(names.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    };
    switch (complaint) {
    case Complaint::Hot:
    case Complaint::Loud:
        add(largestOf(evidence.sensors, 4, "sensors/", "key", ofKind("temperature")));
        add(largestOf(evidence.sensors, 4, "sensors/", "key", ofKind("fan")));
        break;
    case Complaint::Slow:
        add({"processors", "pressure"});
        add(disks());
        break;
    case Complaint::BusyDisk:
        add(disks());
        break;
    case Complaint::BusyNetwork:
        add(largestOf(evidence.interfaces, 4, "network/", "interface",
            [](const Value& each) { return amountOf(each, "downloadRate") + amountOf(each, "uploadRate"); }));
        break;
    case Complaint::Memory:
        add({"memory", "pressure"});
        break;
    case Complaint::Draining:
        add({"battery/power"});
        break;
    }
    return names;
}

bool concernsHeat(Complaint complaint) { return complaint == Complaint::Hot || complaint == Complaint::Loud; }

} // namespace

EvidenceQuery::EvidenceQuery(Session& session, Complaint complaint, double time, bool isNow)
    : session_(session), complaint_(complaint)
{
    evidence_.time = time;
    evidence_.isNow = isNow;
}

void EvidenceQuery::start(Use use)
{
    use_ = std::move(use);
    ++waitingFor_; // until all have been asked
    evidence_.isNow ? askForState() : askForMoment();
    finishOne();
}

void EvidenceQuery::askIfThere(
    const std::string& method, const Value& parameters, std::function<void(const Value&)> take)
{
    ++waitingFor_;
    session_.client().call(
        method, Value::array({parameters}), [this, take = std::move(take)](const Result<Value>& answer) {
            if (answer) {
                take(*answer);
            } else if (answer.error().code == ErrorCode::Unavailable) {
                return session_.fail(exitStatus::noDaemon, answer.error().message);
            }
            finishOne();
        });
}

void EvidenceQuery::finishOne()
{
    if (--waitingFor_ == 0) {
        use_(evidence_);
    }
}

// Now

void EvidenceQuery::askForState()
{
    // The first question has the daemon measure every second; the second one is answered with rates of those.
    askIfThere(method::machineState, Value::object(), [](const Value&) {});
    if (concernsHeat(complaint_)) {
        askIfThere(method::sensorsList, {{"limit", 500}},
            [this](const Value& answer) { evidence_.sensors = orEmpty(answer, "sensors"); });
    }
    askForLists();
    ++waitingFor_;
    watch_ = session_.loop().after(watched, [this] {
        watchOver();
        finishOne();
    });
}

void EvidenceQuery::askForLists()
{
    session_.client().setEvents(
        {.connected = {}, .disconnected = {}, .envelope = [this](const Dictionary& envelope) { takeList(envelope); }});
    session_.tell(method::enableHierachy, Value::array());
    for (const RequestKey list : listsFor(complaint_)) {
        session_.tell(method::startRequestWithKey, Value::array({mask(list), 2}));
    }
}

void EvidenceQuery::takeList(const Dictionary& envelope)
{
    const auto type = text(envelope, "type");
    // Network lists tell the bytes since the one before.
    constexpr double usualInterval = 2; // s
    const double now = session_.loop().now();
    const double before = std::exchange(arrivals_[type.value_or("")], now);
    const double passInterval = before > 0 && now - before > 0.3 ? now - before : usualInterval;
    const auto is = [&](RequestKey key) { return type == std::to_string(mask(key)); };
    if (is(RequestKey::Cpu)) {
        evidence_.cpu = listed(envelope, "processes", "c");
    } else if (is(RequestKey::Memory)) {
        const bool hasFootprints = find(envelope, "processes-footprint") != nullptr;
        evidence_.memory = listed(envelope, hasFootprints ? "processes-footprint" : "processes", "m");
    } else if (is(RequestKey::Disk)) {
        evidence_.reading = listed(envelope, "read", "r");
        evidence_.writing = listed(envelope, "write", "w");
    } else if (is(RequestKey::Network)) {
        evidence_.receiving = listed(envelope, "download", "d", passInterval);
        evidence_.sending = listed(envelope, "upload", "u", passInterval);
    } else if (is(RequestKey::Energy)) {
        evidence_.energy = listed(envelope, "processes", "score");
    }
}

void EvidenceQuery::watchOver()
{
    session_.client().setEvents({});
    askIfThere(method::machineState, Value::object(), [this](const Value& state) {
        evidence_.machine = state;
        askForCourses();
    });
    if (complaint_ == Complaint::Slow) {
        askIfThere("machine.info", Value::object(), [this](const Value& info) {
            put(evidence_.machine, "maximumFrequency", number(orEmpty(info, "cpu"), "maximumFrequency"));
        });
    }
    if (complaint_ == Complaint::Draining) {
        askIfThere(method::batteryState, Value::object(), [this](const Value& state) { evidence_.battery = state; });
    }
    if (complaint_ == Complaint::BusyNetwork) {
        askIfThere(method::networkInterfaces, {{"limit", 500}},
            [this](const Value& answer) { evidence_.interfaces = orEmpty(answer, "interfaces"); });
    }
    askForRecent();
    askForMemoryBefore();
}

void EvidenceQuery::askForRecent()
{
    const bool isOfEnergy = complaint_ == Complaint::Draining;
    if (complaint_ != Complaint::Slow && !isOfEnergy && !concernsHeat(complaint_)) {
        return;
    }
    const Value question{{"from", evidence_.time - recentSpan}, {"by", isOfEnergy ? "energy" : "cpu"}, {"limit", 30}};
    askIfThere("groups.history", question, [this, isOfEnergy](const Value& answer) {
        evidence_.recent = consumersOf(orEmpty(answer, "groups"), [isOfEnergy](const Value& group) {
            return isOfEnergy ? amountOf(group, "energyScore")
                              : amountOf(group, "cpuUser") + amountOf(group, "cpuSystem");
        });
        evidence_.recentSpan = std::max(0.0, number(answer, "until").value_or(0) - number(answer, "from").value_or(0));
    });
}

void EvidenceQuery::askForMemoryBefore()
{
    if (complaint_ != Complaint::Memory) {
        return;
    }
    askIfThere(method::momentsAt, {{"time", evidence_.time - growthSpan}}, [this](const Value& moment) {
        evidence_.memoryBefore =
            consumersOf(orEmpty(moment, "applications"), [](const Value& group) { return amountOf(group, "memory"); });
        evidence_.memoryBeforeSpan = growthSpan;
    });
}

// Then

void EvidenceQuery::askForMoment()
{
    ++waitingFor_;
    session_.call(method::momentsAt, Value::array({{{"time", evidence_.time}}}), [this](const Value& moment) {
        const double time = evidence_.time;
        evidence_ = evidenceOfMoment(moment, Value());
        evidence_.time = time;
        askIfThere(method::sensorsList, {{"limit", 500}}, [this, moment](const Value& sensors) {
            evidence_.sensors = evidenceOfMoment(moment, orEmpty(sensors, "sensors")).sensors;
        });
        askForCourses();
        askForMemoryBefore();
        finishOne();
    });
}

Evidence evidenceOfMoment(const Value& moment, const Value& sensors)
{
    Evidence evidence;
    evidence.isNow = false;
    evidence.machine = machineOfMoment(moment);
    evidence.sensors = sensorsOfMoment(moment, sensors);
    evidence.interfaces = interfacesOfMoment(moment);
    evidence.battery = batteryOfMoment(moment);
    const Value unknown = orEmpty(moment, "unknown");
    for (std::size_t place = 0; unknown.is_array() && place < unknown.size(); ++place) {
        if (text(unknown[place], "what") == "figures") {
            evidence.gap = text(unknown[place], "why").value_or("");
        }
    }
    const double span = amountOf(moment, "applicationsUntil") - amountOf(moment, "applicationsFrom");
    if (span > 0) {
        const Value applications = orEmpty(moment, "applications");
        const auto by = [&](const char* first, const char* second, double per) {
            return consumersOf(applications, [=](const Value& group) {
                return (amountOf(group, first) + (*second != '\0' ? amountOf(group, second) : 0)) / per;
            });
        };
        constexpr double percent = 100;
        evidence.cpu = by("cpuUser", "cpuSystem", span / percent);
        evidence.memory = by("memory", "", 1);
        evidence.reading = by("diskRead", "", span);
        evidence.writing = by("diskWritten", "", span);
        evidence.receiving = by("received", "", span);
        evidence.sending = by("sent", "", span);
        evidence.energy = by("energyScore", "", span);
    }
    return evidence;
}

// How it went before

void EvidenceQuery::askForCourse(const std::string& series, const std::string& resolution, double span)
{
    if (waitingFor_ > static_cast<int>(mostCourses) * 2) {
        return;
    }
    const bool isUsual = span > hour;
    const Value question{{"series", series}, {"resolution", resolution}, {"from", evidence_.time - span},
        {"until", evidence_.time + 1}, {"limit", coursePoints}};
    askIfThere(method::historySamples, question, [this, series, isUsual](const Value& answer) {
        for (auto& [name, course] : coursesOf(answer)) {
            evidence_.courses[series + "." + name + (isUsual ? "/day" : "")] = std::move(course);
        }
    });
}

void EvidenceQuery::askForCourses()
{
    const double age = evidence_.isNow ? 0 : std::max(0.0, wallTime() - evidence_.time);
    constexpr double kept = 0.9; // of what a resolution reaches back: the hour before is wanted as well
    const std::string fine = age < hour * kept / 2 ? "hour" : age < day * kept ? "day" : "longterm";
    for (const std::string& series : seriesFor(complaint_, evidence_)) {
        askForCourse(series, fine, fine == "longterm" ? 2 * hour - 1 : hour);
        if (series.starts_with("sensors/") || series.starts_with("battery/")) {
            askForCourse(series, age < hour ? "day" : "longterm", day);
        }
    }
}

} // namespace meridal
