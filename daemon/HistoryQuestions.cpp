// SPDX-License-Identifier: Apache-2.0
#include "daemon/HistoryQuestions.h"

#include "base/Text.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "history/HistoryRecorder.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t seriesOnPage = 100;
constexpr std::size_t longestSeriesPage = 500;
constexpr std::size_t samplesOnPage = 603; // all that a table keeps
constexpr std::size_t longestSamplesPage = 1000;

constexpr std::array<std::pair<std::string_view, StorageIndex>, 8> resolutions = {{
    {"hour", StorageIndex::Hour},
    {"day", StorageIndex::Day},
    {"week", StorageIndex::Week},
    {"month", StorageIndex::Month},
    {"threemonth", StorageIndex::ThreeMonths},
    {"sixmonth", StorageIndex::SixMonths},
    {"year", StorageIndex::Year},
    {"longterm", StorageIndex::LongTerm},
}};

std::optional<StorageIndex> resolutionNamed(std::string_view name)
{
    const auto found = std::find_if(
        resolutions.begin(), resolutions.end(), [name](const auto& resolution) { return resolution.first == name; });
    return found != resolutions.end() ? std::optional(found->second) : std::nullopt;
}

std::string fullName(const std::string& collector, const std::string& key)
{
    return key.empty() ? collector : collector + "/" + key;
}

/// One series of the catalogue, with what reading it takes.
struct Found {
    HistoryRecorder* recorder = nullptr;
    HistorySeries series;
};

std::optional<Found> findSeries(const HistoryCatalogue& catalogue, std::string_view name)
{
    const std::size_t slash = std::min(name.find('/'), name.size());
    const auto entry = catalogue.entries().find(name.substr(0, slash));
    if (entry == catalogue.entries().end()) {
        return std::nullopt;
    }
    for (HistorySeries& series : entry->second.describe()) {
        if (fullName(entry->first, series.key) == name) {
            return Found{entry->second.recorder, std::move(series)};
        }
    }
    return std::nullopt;
}

/// How a sample's values become those of an answer.
class ValueReader {
public:
    ValueReader(const Found& found, const Peer& peer) : step_(peer.isRoot() ? 0 : found.series.step)
    {
        for (const std::string& column : found.series.values) {
            places_.push_back(found.recorder->columnNamed(column));
        }
    }
    Value read(std::span<const double> values) const
    {
        Value answer = Value::array();
        for (const auto& place : places_) {
            const double value = place ? values[*place] : absentFigure;
            answer.push_back(std::isnan(value) ? Value() : Value(inSteps(value, step_)));
        }
        return answer;
    }

private:
    std::vector<std::optional<std::size_t>> places_;
    double step_ = 0;
};

Value describePage(const HistoryPage& page, const Found& found, const std::string& name, std::string_view resolution,
    const ValueReader& reader)
{
    Value samples = Value::array();
    const StoredRows& rows = page.samples;
    for (std::size_t row = 0; row < rows.rows.size(); ++row) {
        Value sample = {{"sample", rows.rows[row].sampleID}, {"time", rows.rows[row].time},
            {"values", reader.read(rows.valuesOf(row))}};
        Value low = rows.lowest.empty() ? Value::array() : reader.read(rows.lowestOf(row));
        if (std::any_of(low.begin(), low.end(), [](const Value& each) { return !each.is_null(); })) {
            sample["low"] = std::move(low);
            sample["high"] = reader.read(rows.highestOf(row));
        }
        samples.push_back(std::move(sample));
    }
    const auto interval = storageConstants[position(*resolutionNamed(resolution))].interval;
    Value answer{{"series", name}, {"resolution", resolution}, {"interval", interval}, {"unit", found.series.unit},
        {"values", found.series.values}, {"samples", std::move(samples)}, {"more", page.more}};
    if (page.more) {
        answer["next"] = page.next;
    }
    return answer;
}

} // namespace

std::string_view resolutionName(StorageIndex index)
{
    const auto* found = std::find_if(
        resolutions.begin(), resolutions.end(), [index](const auto& each) { return each.second == index; });
    return found != resolutions.end() ? found->first : std::string_view();
}

/// Fractions are divided by their whole number a one: 0.3 is to come out as 0.3.
double inSteps(double value, double step)
{
    if (!(step > 0)) {
        return value;
    }
    const double steps = std::round(value / step);
    return step < 1 ? steps / std::round(1 / step) : steps * step;
}

void HistoryQuestions::addTo(MeridalHistory& history)
{
    history.addAsyncMethod(method::historySeries, [this](const Value& parameters, const Peer&, Reply reply) {
        catalogue_.whenComplete([this, parameters, reply = std::move(reply)] { reply(series(parameters)); });
    });
    history.addAsyncMethod(method::historySamples, [this](const Value& parameters, const Peer& peer, Reply reply) {
        catalogue_.whenComplete(
            [this, parameters, peer, reply = std::move(reply)] { samples(parameters, peer, reply); });
    });
}

Result<Value> HistoryQuestions::series(const Value& given) const
{
    Parameters parameters(given);
    const auto only = parameters.text("collector");
    const auto after = parameters.text("after");
    const std::size_t limit = parameters.limit(seriesOnPage, longestSeriesPage);
    if (!parameters.valid()) {
        return parameters.failure();
    }
    std::map<std::string, Value> all;
    for (const auto& [name, entry] : catalogue_.entries()) {
        if (only && *only != name) {
            continue;
        }
        for (const HistorySeries& series : entry.describe()) {
            std::string full = fullName(name, series.key);
            Value description{{"series", full}, {"collector", name}, {"key", series.key}, {"name", series.name},
                {"unit", series.unit}, {"values", series.values}};
            if (!series.origin.empty()) {
                description["origin"] = validUtf8(series.origin);
            }
            all.insert_or_assign(std::move(full), std::move(description));
        }
    }
    Value page = Value::array();
    auto next = after ? all.upper_bound(*after) : all.begin();
    for (; next != all.end() && page.size() < limit; ++next) {
        page.push_back(std::move(next->second));
    }
    return Value{{"series", std::move(page)}, {"more", next != all.end()}};
}

void HistoryQuestions::samples(const Value& given, const Peer& peer, Reply reply) const
{
    Parameters parameters(given);
    const auto name = parameters.text("series");
    const std::string resolution = parameters.text("resolution").value_or("hour");
    HistoryPageQuestion question;
    question.from = parameters.moment("from").value_or(0);
    question.until = parameters.moment("until");
    question.before = parameters.count("before");
    question.withBands = parameters.flag("band");
    question.limit = parameters.limit(samplesOnPage, longestSamplesPage);
    const auto index = resolutionNamed(resolution);
    if (!name) {
        parameters.refuse(R"("series" must name one of history.series)");
    }
    if (!index) {
        parameters.refuse("\"resolution\" must be hour, day, week, month, threemonth, sixmonth, year or longterm");
    }
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    auto found = findSeries(catalogue_, *name);
    if (!found) {
        return reply(unexpected(ErrorCode::NotFound, "there is no such series; see history.series"));
    }
    question.index = *index;
    question.key = found->series.key;
    const ValueReader reader(*found, peer);
    HistoryRecorder& recorder = *found->recorder;
    recorder.readHistory(question,
        [found = std::move(*found), name = *name, resolution, reader, reply = std::move(reply)](
            const std::optional<HistoryPage>& page) {
            if (!page) {
                return reply(unexpected(ErrorCode::Unavailable, "the record cannot be read now"));
            }
            reply(describePage(*page, found, name, resolution, reader));
        });
}

} // namespace meridal
