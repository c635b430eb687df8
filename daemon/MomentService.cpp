// SPDX-License-Identifier: Apache-2.0
#include "daemon/MomentService.h"

#include "base/Runtime.h"
#include "collectors/battery/BatteryStatCollector.h"
#include "collectors/network/NetworkStatCollector.h"
#include "daemon/MeridalHistory.h"
#include "daemon/MomentAnswer.h"
#include "daemon/Parameters.h"
#include "daemon/UptimeService.h"
#include "history/HistoryRecorder.h"
#include "platform/Context.h"
#include "wire/Methods.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace meridal {

namespace {

constexpr double clockSlack = 1; // s by which a moment may lie ahead: a client's "now" is a little older than ours
constexpr std::size_t mostInterfaces = 16;
constexpr std::size_t mostSeries = 1000;
constexpr double longestBandwidthPeriod = 600; // s
constexpr std::size_t bootsBefore = 4;         // the one of the moment, and what may begin in the minutes after it

std::vector<MomentSeries> seriesOf(const HistoryCatalogue& catalogue)
{
    std::vector<MomentSeries> all;
    for (const auto& [name, entry] : catalogue.entries()) {
        for (HistorySeries& series : entry.describe()) {
            if (all.size() < mostSeries) {
                all.push_back({.collector = name, .recorder = entry.recorder, .series = std::move(series)});
            }
        }
    }
    return all;
}

} // namespace

/// One question while its parts are being read. Each part holds it; the last one answers.
class MomentService::Gathering : public std::enable_shared_from_this<Gathering> {
public:
    Gathering(MomentService& service, MomentRecord record, Reply reply)
        : service_(service), record_(std::move(record)), reply_(std::move(reply))
    {
    }

    void start()
    {
        ++waitingFor_; // until all have been asked
        askForFigures();
        askForBoots();
        askForSources();
        askForBandwidth();
        askForApplications();
        finishOne();
    }

private:
    /// What a part's reply goes through.
    template <typename Take>
    auto part(Take take)
    {
        ++waitingFor_;
        return service_.lifetime_.guard([self = shared_from_this(), take = std::move(take)](auto&& answer) {
            take(self->record_, std::forward<decltype(answer)>(answer));
            self->finishOne();
        });
    }

    void finishOne()
    {
        if (--waitingFor_ == 0) {
            reply_(describeMoment(record_));
        }
    }

    void askForFigures()
    {
        std::set<HistoryRecorder*> recorders;
        for (const MomentSeries& each : record_.series) {
            recorders.insert(each.recorder);
        }
        for (HistoryRecorder* recorder : recorders) {
            recorder->readMoment(record_.time,
                part([recorder](MomentRecord& record, const auto& moment) { record.figures[recorder] = moment; }));
        }
    }

    void askForBoots()
    {
        UptimeDatabase& boots = service_.records_.uptime.database();
        UptimeQuestion question;
        question.until = record_.time + HistoryMoment::minutesAround;
        question.limit = bootsBefore;
        question.withSleeps = true;
        boots.readHistory(question,
            part([](MomentRecord& record, auto&& answer) { record.boots = std::forward<decltype(answer)>(answer); }));
        UptimeQuestion later;
        later.from = record_.time;
        later.limit = UptimeService::longestPage;
        boots.readHistory(later, part([](MomentRecord& record, auto&& answer) {
            record.laterBoots = std::forward<decltype(answer)>(answer);
        }));
    }

    void askForSources()
    {
        constexpr std::size_t changes = 16;
        BatteryQuestion question;
        question.figure = BatteryFigure::Source;
        question.until = record_.time + HistoryMoment::minutesAround;
        question.limit = changes;
        service_.records_.battery.readHistory(question,
            part([](MomentRecord& record, auto&& answer) { record.sources = std::forward<decltype(answer)>(answer); }));
    }

    BandwidthQuestion bandwidthAround(BandwidthGroup by) const
    {
        BandwidthQuestion question;
        question.by = by;
        question.from = record_.time - longestBandwidthPeriod;
        question.until = std::nextafter(record_.time, std::numeric_limits<double>::max());
        question.limit = mostInterfaces;
        return question;
    }

    void askForBandwidth()
    {
        NetworkStatCollector& network = service_.records_.network;
        network.readBandwidthTotals(
            bandwidthAround(BandwidthGroup::Interface), part([this, &network](MomentRecord& record, auto&& answer) {
                record.interfaces = std::forward<decltype(answer)>(answer);
                for (const BandwidthTotal& each :
                    record.interfaces ? record.interfaces->totals : std::vector<BandwidthTotal>()) {
                    if (each.name) {
                        askForStations(network, *each.name);
                    }
                }
            }));
    }

    void askForStations(NetworkStatCollector& network, const std::string& interface)
    {
        BandwidthQuestion question = bandwidthAround(BandwidthGroup::Station);
        question.interface = interface;
        network.readBandwidthTotals(question, part([interface](MomentRecord& record, auto&& answer) {
            if (answer) {
                record.stations[interface] = std::move(*answer);
            }
        }));
    }

    void askForApplications()
    {
        if (!service_.readApplications_) {
            return;
        }
        record_.keepsApplications = true;
        const auto ask = [this](double time, std::optional<RecordedMoment> MomentRecord::*side) {
            if (time <= record_.now) {
                service_.readApplications_(time, record_.viewer, part([side](MomentRecord& record, auto&& answer) {
                    record.*side = std::forward<decltype(answer)>(answer);
                }));
            }
        };
        ask(record_.time - HistoryMoment::minutesAround, &MomentRecord::earlier);
        ask(record_.time, &MomentRecord::then);
        ask(record_.time + HistoryMoment::minutesAround, &MomentRecord::later);
    }

    MomentService& service_;
    MomentRecord record_;
    Reply reply_;
    int waitingFor_ = 0;
};

MomentService::MomentService(Context& context, const Records& records) : context_(context), records_(records) { }

void MomentService::setApplications(ReadApplications read, ViewerOf viewerOf)
{
    readApplications_ = std::move(read);
    viewerOf_ = std::move(viewerOf);
}

void MomentService::addTo(MeridalHistory& methods)
{
    methods.addAsyncMethod(method::momentsAt, [this](const Value& parameters, const Peer& peer, Reply reply) {
        records_.catalogue.whenComplete(
            [this, parameters, peer, reply = std::move(reply)] { at(parameters, peer, reply); });
    });
}

void MomentService::at(const Value& given, const Peer& peer, Reply reply)
{
    Parameters parameters(given);
    const auto time = parameters.moment("time");
    const double now = context_.runtime.wallTime();
    if (!time) {
        parameters.refuse("\"time\" must say which moment, in seconds since 1970");
    } else if (*time < 0) {
        parameters.refuse("\"time\" lies before 1970");
    } else if (*time > now + clockSlack) {
        parameters.refuse("\"time\" lies in the future");
    }
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    MomentRecord record;
    record.time = std::min(*time, now);
    record.now = now;
    record.isExact = peer.isRoot();
    record.viewer = viewerOf_ ? viewerOf_(peer) : std::nullopt;
    record.series = seriesOf(records_.catalogue);
    std::make_shared<Gathering>(*this, std::move(record), std::move(reply))->start();
}

} // namespace meridal
