#include "daemon/DiskKeeper.h"

#include "collectors/disks/DiskReport.h"
#include "daemon/CollectorPorts.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

namespace {

struct Question {
    ReportedAttributes attributes = ReportedAttributes::Failing;
    std::optional<std::string> after;
    std::size_t limit = DiskKeeper::longestPage;
};

Result<Question> questionFrom(const Value& given)
{
    const Value& parameters = given.is_array() && given.size() == 1 ? given[0] : given;
    const bool none = parameters.is_null() || (parameters.is_array() && parameters.empty());
    if (!none && !parameters.is_object()) {
        return unexpected(ErrorCode::InvalidArgument, R"(expected an object with "attributes", "after" and "limit")");
    }
    Question question;
    if (const Value* all = find(parameters, "attributes"); all && !all->is_null()) {
        if (!all->is_boolean()) {
            return unexpected(ErrorCode::InvalidArgument, "\"attributes\" must be true or false");
        }
        question.attributes = *all == true ? ReportedAttributes::All : ReportedAttributes::Failing;
    }
    if (const Value* after = find(parameters, "after"); after && !after->is_null()) {
        question.after = text(parameters, "after");
        if (!question.after) {
            return unexpected(ErrorCode::InvalidArgument, "\"after\" must be the key of a disk");
        }
    }
    if (const Value* limit = find(parameters, "limit"); limit && !limit->is_null()) {
        const auto count = integer(parameters, "limit");
        if (!count || *count < 1 || *count > static_cast<std::int64_t>(DiskKeeper::longestPage)) {
            return unexpected(ErrorCode::InvalidArgument, "\"limit\" must be a whole number from 1 to 64");
        }
        question.limit = static_cast<std::size_t>(*count);
    }
    return question;
}

Result<Value> answer(const SMARTStatCollector& collector, const Question& question)
{
    const auto disks = collector.disks();
    auto disk = disks.begin();
    if (question.after) {
        disk =
            std::find_if(disks.begin(), disks.end(), [&](const auto& each) { return each->key() == *question.after; });
        if (disk == disks.end()) {
            return unexpected(ErrorCode::NotFound, "there is no disk of the key in \"after\"");
        }
        ++disk;
    }
    Value page = Value::array();
    for (; disk != disks.end() && page.size() < question.limit; ++disk) {
        page.push_back(describeDisk(**disk, question.attributes));
    }
    return Value{{"disks", std::move(page)}, {"more", disk != disks.end()}};
}

} // namespace

DiskKeeper::DiskKeeper(SMARTStatCollector& collector) : collector_(collector) { collector_.setLoadAllAttributes(true); }

void DiskKeeper::setWanted(std::function<bool()> wanted)
{
    wanted_ = wanted;
    collector_.setWanted(std::move(wanted));
}

void DiskKeeper::plugInto(CollectorPorts& ports)
{
    ports.loadDisks = [this] { collector_.loadDisks(); };
    ports.updateDisks = [this](std::function<void()> done) { collector_.updateStats(std::move(done)); };
    ports.diskTemperatures = [this] { return collector_.diskTemperatures(); };
    ports.diskStatus = [this] { return collector_.diskStatus(); };
}

void DiskKeeper::list(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = questionFrom(parameters);
    if (!question) {
        return reply(unexpected(question.error().code, question.error().message));
    }
    Task finish = [this, question = *question, reply = std::move(reply)] { reply(answer(collector_, question)); };
    if (wanted_ && wanted_() && collector_.isUpdateDue()) {
        collector_.updateStats(std::move(finish));
    } else {
        finish();
    }
}

} // namespace meridal
