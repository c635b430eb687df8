#include "daemon/NetworkKeeper.h"

#include "base/Text.h"
#include "collectors/network/NetworkStatCollectorItem.h"
#include "collectors/network/NetworkStatCollectorMac.h"
#include "daemon/CollectorPorts.h"
#include "platform/Context.h"
#include "platform/NetworkNames.h"
#include "platform/host/Host.h"

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

constexpr std::array<std::pair<std::string_view, BandwidthGroup>, 5> groups = {
    {{"hour", BandwidthGroup::Hour}, {"day", BandwidthGroup::Day}, {"month", BandwidthGroup::Month},
        {"interface", BandwidthGroup::Interface}, {"network", BandwidthGroup::Network}}};

Unexpected wrong(std::string message) { return unexpected(ErrorCode::InvalidArgument, std::move(message)); }

/// Named parameters, also as the only element of an array; null where there are others.
const Value* namedParameters(const Value& given)
{
    const Value& parameters = given.is_array() && given.size() == 1 ? given[0] : given;
    static const Value none = Value::object();
    if ((given.is_array() && given.empty()) || given.is_null()) {
        return &none;
    }
    return parameters.is_object() ? &parameters : nullptr;
}

const Value* givenOrNull(const Value& parameters, std::string_view name)
{
    const Value* entry = find(parameters, name);
    return entry && !entry->is_null() ? entry : nullptr;
}

Result<std::size_t> limitFrom(const Value& parameters)
{
    if (!givenOrNull(parameters, "limit")) {
        return usualPage;
    }
    const auto limit = integer(parameters, "limit");
    if (!limit || *limit < 1 || *limit > static_cast<std::int64_t>(NetworkKeeper::longestPage)) {
        return wrong("\"limit\" must be a whole number from 1 to 500");
    }
    return static_cast<std::size_t>(*limit);
}

Result<BandwidthGroup> groupFrom(const Value& parameters)
{
    if (!givenOrNull(parameters, "by")) {
        return BandwidthGroup::Day;
    }
    const auto word = text(parameters, "by");
    for (const auto& [name, group] : groups) {
        if (word && name == *word) {
            return group;
        }
    }
    return wrong("\"by\" must be \"hour\", \"day\", \"month\", \"interface\" or \"network\"");
}

/// A moment among the parameters; a failure when there is something else in its place.
Result<std::optional<double>> momentFrom(const Value& parameters, const std::string& name)
{
    if (!givenOrNull(parameters, name)) {
        return std::optional<double>();
    }
    const auto moment = number(parameters, name);
    if (!moment) {
        return wrong("\"" + name + "\" must be a number, in seconds since 1970");
    }
    return moment;
}

/// The key of the page before: text for times, a whole number for interfaces and networks.
Result<SqlValue> keyFrom(const Value& parameters, BandwidthGroup by)
{
    if (!givenOrNull(parameters, "after")) {
        return SqlValue();
    }
    if (by == BandwidthGroup::Interface || by == BandwidthGroup::Network) {
        const auto key = integer(parameters, "after");
        return key ? Result<SqlValue>(SqlValue(*key)) : wrong("\"after\" must be the key of a total, a whole number");
    }
    const auto key = text(parameters, "after");
    return key ? Result<SqlValue>(SqlValue(*key)) : wrong("\"after\" must be the key of a total, a text");
}

Result<BandwidthQuestion> questionFrom(const Value& given)
{
    const Value* parameters = namedParameters(given);
    if (!parameters) {
        return wrong("bandwidth.totals takes an object");
    }
    const auto by = groupFrom(*parameters);
    const auto limit = limitFrom(*parameters);
    const auto from = momentFrom(*parameters, "from");
    const auto until = momentFrom(*parameters, "until");
    for (const Error* error : {by ? nullptr : &by.error(), limit ? nullptr : &limit.error(),
             from ? nullptr : &from.error(), until ? nullptr : &until.error()}) {
        if (error) {
            return unexpected(error->code, error->message);
        }
    }
    BandwidthQuestion question;
    question.by = *by;
    question.limit = *limit;
    question.from = from->value_or(-std::numeric_limits<double>::max());
    question.until = *until;
    if (givenOrNull(*parameters, "interface")) {
        question.interface = text(*parameters, "interface");
        if (!question.interface) {
            return wrong("\"interface\" must be the name of an interface");
        }
    }
    if (const Value* all = givenOrNull(*parameters, "all")) {
        if (!all->is_boolean()) {
            return wrong("\"all\" must be true or false");
        }
        question.all = all->get<bool>();
    }
    // Each interface is told apart there, so none is counted twice.
    question.all = question.all || question.by == BandwidthGroup::Interface;
    auto after = keyFrom(*parameters, question.by);
    if (!after) {
        return unexpected(after.error().code, after.error().message);
    }
    question.after = std::move(*after);
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

NetworkKeeper::NetworkKeeper(Context& context, NetworkStatCollectorMac& collector)
    : context_(context), collector_(collector)
{
}

void NetworkKeeper::plugInto(CollectorPorts& ports)
{
    ports.prepareNetwork = [this] { prepare(); };
    ports.updateNetwork = [this] { collector_.updateStats(); };
    ports.saveBandwidth = [this](Task written) { collector_.saveBandwidth(std::move(written)); };
    Host& host = context_.host;
    ports.refreshDHCP = [&host](const std::string& name) -> Result<void> {
        if (!isInterfaceName(name)) {
            return wrong("that cannot be the name of an interface");
        }
        return host.networkConfiguration->refreshLease(name);
    };
    ports.toggleAirPortPower = [&host] { return host.wireless->togglePower(); };
    ports.setNetworkSet = [&host](const std::string& identifier) -> Result<void> {
        if (!isNetworkSetIdentifier(identifier)) {
            return wrong("that cannot be the name of a network set");
        }
        return host.networkConfiguration->setNetworkSet(identifier);
    };
}

void NetworkKeeper::prepare()
{
    collector_.setBandwidthDataasePath(context_.paths.bandwidthDatabase().string());
    collector_.prepareBandwidthDatabase();
    collector_.setBandwidthMonitoringEnabled(true);
    collector_.prepareBandwidthMonitoring();
}

void NetworkKeeper::totals(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = questionFrom(parameters);
    if (!question) {
        return reply(unexpected(question.error().code, question.error().message));
    }
    collector_.readBandwidthTotals(
        *question, [reply = std::move(reply), by = question->by](const std::optional<BandwidthAnswer>& answer) {
            reply(answerFrom(answer, by));
        });
}

Result<Value> NetworkKeeper::interfaces(const Value& given) const
{
    const Value* parameters = namedParameters(given);
    if (!parameters) {
        return wrong("network.interfaces takes an object");
    }
    const auto limit = limitFrom(*parameters);
    if (!limit) {
        return unexpected(limit.error().code, limit.error().message);
    }
    const std::int64_t after = integer(*parameters, "after").value_or(0);
    std::vector<const NetworkStatCollectorItem*> found;
    for (const auto& item : collector_.items()) {
        const auto& interface = static_cast<const NetworkStatCollectorItem&>(*item);
        if (interface.record().index > after) {
            found.push_back(&interface);
        }
    }
    std::sort(
        found.begin(), found.end(), [](const auto* a, const auto* b) { return a->record().index < b->record().index; });
    const bool more = found.size() > *limit;
    found.resize(std::min(found.size(), *limit));
    Value list = Value::array();
    for (const auto* interface : found) {
        list.push_back(interface->describe());
    }
    return Value{{"interfaces", std::move(list)}, {"primary", collector_.primarySettings()}, {"more", more}};
}

} // namespace meridal
