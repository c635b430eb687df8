// SPDX-License-Identifier: Apache-2.0
#include "daemon/DiskService.h"

#include "collectors/disks/DiskReport.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "history/HistoryCatalogue.h"
#include "wire/Methods.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

namespace {

struct DiskQuestion {
    ReportedAttributes attributes = ReportedAttributes::Failing;
    std::optional<std::string> after;
    std::size_t limit = DiskService::longestPage;
};

Result<DiskQuestion> diskQuestionFrom(const Value& given)
{
    Parameters parameters(given);
    DiskQuestion question;
    question.attributes = parameters.flag("attributes") ? ReportedAttributes::All : ReportedAttributes::Failing;
    question.after = parameters.text("after");
    question.limit = parameters.limit(question.limit, DiskService::longestPage);
    if (!parameters.valid()) {
        return parameters.failure();
    }
    return question;
}

Result<Value> answer(const SMARTStatCollector& collector, const DiskQuestion& question)
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

DiskService::DiskService(SMARTStatCollector& collector) : collector_(collector)
{
    collector_.setLoadAllAttributes(true);
}

void DiskService::addTo(MeridalHistory& methods, HistoryCatalogue& catalogue)
{
    methods.addAsyncMethod(
        method::disksList, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            list(parameters, std::move(reply));
        });
    catalogue.add(
        "disks", collector_.history(), [this] { return collector_.temperatureSeries(); },
        &collector_.recordedTemperatures());
    catalogue.add(
        "wear", collector_.history(), [this] { return collector_.wearSeries(); }, &collector_.recordedWear());
}

void DiskService::list(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = diskQuestionFrom(parameters);
    if (!question) {
        return reply(unexpected(question.error().code, question.error().message));
    }
    Task finish = [this, question = *question, reply = std::move(reply)] { reply(answer(collector_, question)); };
    // The pages after the first belong to what the first one showed.
    if (!question->after && collector_.isWanted()) {
        collector_.updateStatsIfDue(std::move(finish));
    } else {
        finish();
    }
}

} // namespace meridal
