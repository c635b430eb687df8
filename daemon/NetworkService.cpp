// SPDX-License-Identifier: Apache-2.0
#include "daemon/NetworkService.h"

#include "base/Text.h"
#include "collectors/network/NetworkStatCollectorItem.h"
#include "collectors/network/NetworkStatCollectorMac.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "platform/Context.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t usualPage = 100;

constexpr std::array<std::pair<std::string_view, BandwidthGroup>, 6> groups = {{{"hour", BandwidthGroup::Hour},
    {"day", BandwidthGroup::Day}, {"month", BandwidthGroup::Month}, {"interface", BandwidthGroup::Interface},
    {"network", BandwidthGroup::Network}, {"station", BandwidthGroup::Station}}};

BandwidthGroup groupFrom(Parameters& parameters)
{
    const std::string word = parameters.text("by").value_or("day");
    for (const auto& [name, group] : groups) {
        if (name == word) {
            return group;
        }
    }
    parameters.refuse("\"by\" must be \"hour\", \"day\", \"month\", \"interface\", \"network\" or \"station\"");
    return BandwidthGroup::Day;
}

/// The key of the page before: text for times, a whole number for the others.
SqlValue keyFrom(Parameters& parameters, BandwidthGroup by)
{
    if (by == BandwidthGroup::Interface || by == BandwidthGroup::Network || by == BandwidthGroup::Station) {
        const auto key = parameters.wholeNumber("after");
        return key ? SqlValue(*key) : SqlValue();
    }
    const auto key = parameters.text("after");
    return key ? SqlValue(*key) : SqlValue();
}

BandwidthQuestion bandwidthQuestionFrom(Parameters& parameters)
{
    BandwidthQuestion question;
    question.by = groupFrom(parameters);
    question.limit = parameters.limit(usualPage, NetworkService::longestPage);
    question.from = parameters.moment("from").value_or(-std::numeric_limits<double>::max());
    question.until = parameters.moment("until");
    question.interface = parameters.text("interface");
    question.after = keyFrom(parameters, question.by);
    const std::string which = parameters.text("interfaces").value_or("hardware");
    if (which != "hardware" && which != "all") {
        parameters.refuse("\"interfaces\" must be \"hardware\" or \"all\"");
    }
    // By interface each is told apart, so none is counted twice.
    question.all = which == "all" || question.by == BandwidthGroup::Interface;
    return question;
}

Value describe(const BandwidthTotal& total)
{
    Value description = {{"key", valueOf(total.key)}, {"start", total.start}, {"end", total.end},
        {"upload", total.amount.upload}, {"download", total.amount.download}};
    if (total.name) {
        description["name"] = validUtf8(*total.name);
    }
    if (total.bssid) {
        description["bssid"] = validUtf8(*total.bssid);
    }
    return description;
}

Value describe(const WirelessIdentity& wifi)
{
    Value description = Value::object();
    if (wifi.ssid) {
        description["name"] = validUtf8(*wifi.ssid);
    }
    if (wifi.bssid) {
        description["bssid"] = validUtf8(*wifi.bssid);
    }
    return description;
}

Result<Value> answerFrom(const std::optional<BandwidthAnswer>& answer, BandwidthGroup by)
{
    if (!answer) {
        return unexpected(ErrorCode::Unavailable, "the record of bandwidth cannot be read now");
    }
    Value totals = Value::array();
    for (const BandwidthTotal& total : answer->totals) {
        totals.push_back(describe(total));
    }
    const auto* name =
        std::find_if(groups.begin(), groups.end(), [by](const auto& group) { return group.second == by; });
    return Value{{"by", std::string(name->first)}, {"totals", std::move(totals)}, {"more", answer->more},
        {"upload", answer->sum.upload}, {"download", answer->sum.download}};
}

} // namespace

NetworkService::NetworkService(Context& context, NetworkStatCollectorMac& collector)
    : context_(context), collector_(collector)
{
}

void NetworkService::update() { collector_.updateStats(); }

void NetworkService::saveBandwidth(Task written) { collector_.saveBandwidth(std::move(written)); }

void NetworkService::addTo(MeridalHistory& history)
{
    history.addAsyncMethod(
        method::bandwidthTotals, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            totals(parameters, std::move(reply));
        });
    history.addMethod(method::networkInterfaces, [this](const Value& parameters) { return interfaces(parameters); });
}

void NetworkService::prepare()
{
    collector_.setBandwidthDataasePath(context_.paths.bandwidthDatabase().string());
    collector_.prepareBandwidthDatabase();
    collector_.setBandwidthMonitoringEnabled(true);
    collector_.prepareBandwidthMonitoring();
}

void NetworkService::totals(const Value& given, std::function<void(Result<Value>)> reply)
{
    Parameters parameters(given);
    const BandwidthQuestion question = bandwidthQuestionFrom(parameters);
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    collector_.readBandwidthTotals(
        question, [reply = std::move(reply), by = question.by](const std::optional<BandwidthAnswer>& answer) {
            reply(answerFrom(answer, by));
        });
}

Result<Value> NetworkService::interfaces(const Value& given) const
{
    Parameters parameters(given);
    const std::size_t limit = parameters.limit(usualPage, longestPage);
    const std::int64_t after = parameters.wholeNumber("after").value_or(0);
    if (!parameters.valid()) {
        return parameters.failure();
    }
    std::vector<const NetworkStatCollectorItem*> found;
    for (const auto& item : collector_.items()) {
        const auto& interface = static_cast<const NetworkStatCollectorItem&>(*item);
        if (interface.record().index > after) {
            found.push_back(&interface);
        }
    }
    std::sort(
        found.begin(), found.end(), [](const auto* a, const auto* b) { return a->record().index < b->record().index; });
    const bool more = found.size() > limit;
    found.resize(std::min(found.size(), limit));
    Value list = Value::array();
    for (const auto* interface : found) {
        Value description = interface->describe();
        const auto& joined = collector_.joinedWifi();
        if (const auto wifi = joined.find(interface->record().name); wifi != joined.end()) {
            description["wifi"] = describe(wifi->second);
        }
        list.push_back(std::move(description));
    }
    Value networks = Value::array();
    for (const WifiTraffic::Network& network : collector_.wifiTraffic()) {
        Value& entry = networks.emplace_back(describe(network.identity));
        entry["received"] = static_cast<std::uint64_t>(network.amount.download);
        entry["sent"] = static_cast<std::uint64_t>(network.amount.upload);
    }
    return Value{{"interfaces", std::move(list)}, {"networks", std::move(networks)},
        {"primary", collector_.primarySettings()}, {"more", more}};
}

} // namespace meridal
