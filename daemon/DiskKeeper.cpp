#include "daemon/DiskKeeper.h"

#include "collectors/disks/DiskReport.h"
#include "daemon/CollectorPorts.h"
#include "daemon/Parameters.h"
#include "history/HistoryCatalogue.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

namespace {

struct DiskQuestion {
    ReportedAttributes attributes = ReportedAttributes::Failing;
    std::optional<std::string> after;
    std::size_t limit = DiskKeeper::longestPage;
};

Result<DiskQuestion> diskQuestionFrom(const Value& given)
{
    Parameters parameters(given);
    DiskQuestion question;
    question.attributes = parameters.flag("attributes") ? ReportedAttributes::All : ReportedAttributes::Failing;
    question.after = parameters.text("after");
    question.limit = parameters.limit(question.limit, DiskKeeper::longestPage);
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
    ports.refreshDisks = [this](std::function<void()> done) { collector_.updateStatsIfDue(std::move(done)); };
    ports.diskTemperatures = [this] { return collector_.diskTemperatures(); };
    ports.diskStatus = [this] { return collector_.diskStatus(); };
}

void DiskKeeper::addTo(HistoryCatalogue& catalogue)
{
    catalogue.add("disks", collector_.history(), [this] { return collector_.temperatureSeries(); });
    catalogue.add("wear", collector_.history(), [this] { return collector_.wearSeries(); });
}

void DiskKeeper::list(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = diskQuestionFrom(parameters);
    if (!question) {
        return reply(unexpected(question.error().code, question.error().message));
    }
    Task finish = [this, question = *question, reply = std::move(reply)] { reply(answer(collector_, question)); };
    // The pages after the first belong to what the first one showed.
    if (!question->after && wanted_ && wanted_()) {
        collector_.updateStatsIfDue(std::move(finish));
    } else {
        finish();
    }
}

} // namespace meridal
