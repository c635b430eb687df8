// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/BandwidthTotals.h"

#include "base/Value.h"
#include "database/SQLiteConnection.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostRunning = 1000;

/// All rows, stored and running, that a question is about: ?1 from, ?2 until, and as JSON ?3 the interfaces and ?4 the
/// running periods.
const std::string rowsAskedFor = R"(
    WITH rows AS (
        SELECT start, "end", interface, network, upload, download FROM bandwidth_samples
        UNION ALL
        SELECT json_extract(value, '$[0]'), json_extract(value, '$[1]'), json_extract(value, '$[2]'),
            json_extract(value, '$[3]'), json_extract(value, '$[4]'), json_extract(value, '$[5]') FROM json_each(?4)),
    asked AS (SELECT * FROM rows
        WHERE start >= ?1 AND start < ?2 AND interface IN (SELECT value FROM json_each(?3))))";

const char* keyFor(BandwidthGroup group)
{
    switch (group) {
    case BandwidthGroup::Hour:
        return "strftime('%Y-%m-%d %H:00', start, 'unixepoch', 'localtime')";
    case BandwidthGroup::Day:
        return "strftime('%Y-%m-%d', start, 'unixepoch', 'localtime')";
    case BandwidthGroup::Month:
        return "strftime('%Y-%m', start, 'unixepoch', 'localtime')";
    case BandwidthGroup::Interface:
        return "interface";
    case BandwidthGroup::Network:
    case BandwidthGroup::Station:
        return "network";
    }
    return "";
}

/// The interfaces that count. Where none is known to be hardware (a container), all but the loopback.
Value interfacesAskedFor(const BandwidthQuestion& question, const BandwidthMaps& maps)
{
    const std::set<std::int64_t> unaddressed(maps.hardware.begin(), maps.hardware.end());
    const auto isHardware = [&unaddressed](const BandwidthDatabase::InterfaceRow& row) {
        return row.address || unaddressed.count(row.identifier) > 0;
    };
    const bool anyHardware = std::any_of(maps.interfaces.begin(), maps.interfaces.end(), isHardware);
    const auto counts = [&](const BandwidthDatabase::InterfaceRow& row) {
        if (question.interface) {
            return row.interface == *question.interface;
        }
        if (question.all) {
            return true;
        }
        return anyHardware ? isHardware(row) : row.interface != "lo" && row.interface != "lo0";
    };
    Value counted = Value::array();
    for (const auto& row : maps.interfaces) {
        if (counts(row)) {
            counted.push_back(row.identifier);
        }
    }
    return counted;
}

std::string runningAsJson(std::span<const BandwidthRow> running)
{
    Value rows = Value::array();
    for (const BandwidthRow& row : running.first(std::min(running.size(), mostRunning))) {
        rows.push_back({row.start, row.end, row.interface, row.network, row.amount.upload, row.amount.download});
    }
    return serialise(rows);
}

std::optional<std::vector<BandwidthTotal>> readTotals(
    SQLiteConnection& connection, const BandwidthQuestion& question, SqlValues args)
{
    const std::string sql = rowsAskedFor + ", keyed AS (SELECT " + keyFor(question.by)
        + " AS key, * FROM asked) SELECT key, min(start), max(\"end\"), total(upload), total(download) FROM keyed "
          "WHERE (?5 IS NULL OR key > ?5) GROUP BY key ORDER BY key LIMIT ?6";
    const bool isPage = question.by != BandwidthGroup::Network; // base stations are joined first
    args.push_back(isPage ? question.after : SqlValue());
    args.emplace_back(isPage ? static_cast<std::int64_t>(question.limit) + 1 : -1);
    std::vector<BandwidthTotal> totals;
    const auto done = connection.forEachRow(sql, args, [&totals](std::span<const SqlValue> row) {
        totals.push_back({.key = row[0],
            .name = std::nullopt,
            .bssid = std::nullopt,
            .start = sqlNumber(row[1]),
            .end = sqlNumber(row[2]),
            .amount = {.upload = sqlNumber(row[3]), .download = sqlNumber(row[4])}});
    });
    return done ? std::optional(std::move(totals)) : std::nullopt;
}

/// The number of each base station → that of the first one in its network. One without a name is a network by itself.
std::map<std::int64_t, std::int64_t> networksOf(const BandwidthMaps& maps)
{
    std::map<std::string, std::int64_t> named;
    std::map<std::int64_t, std::int64_t> networks;
    for (const auto& row : maps.networks) {
        networks[row.identifier] =
            row.name.empty() ? row.identifier : named.try_emplace(row.name, row.identifier).first->second;
    }
    return networks;
}

void joinStations(std::vector<BandwidthTotal>& totals, const BandwidthQuestion& question, const BandwidthMaps& maps)
{
    const auto networks = networksOf(maps);
    std::map<SqlValue, BandwidthTotal> joined;
    for (BandwidthTotal& total : totals) {
        if (const auto* station = std::get_if<std::int64_t>(&total.key)) {
            const auto network = networks.find(*station);
            total.key = network != networks.end() ? network->second : *station;
        }
        const auto [entry, isNew] = joined.try_emplace(total.key, total);
        if (!isNew) {
            BandwidthTotal& sum = entry->second;
            sum.start = std::min(sum.start, total.start);
            sum.end = std::max(sum.end, total.end);
            sum.amount.upload += total.amount.upload;
            sum.amount.download += total.amount.download;
        }
    }
    totals.clear();
    for (auto& [key, total] : joined) {
        if (key > question.after || std::holds_alternative<std::monostate>(question.after)) {
            totals.push_back(std::move(total));
        }
    }
}

void addNames(std::vector<BandwidthTotal>& totals, BandwidthGroup by, const BandwidthMaps& maps)
{
    std::map<SqlValue, std::string> names;
    std::map<SqlValue, std::string> stations;
    if (by == BandwidthGroup::Interface) {
        for (const auto& row : maps.interfaces) {
            names.emplace(row.identifier, row.interface);
        }
    } else if (by == BandwidthGroup::Network || by == BandwidthGroup::Station) {
        for (const auto& row : maps.networks) {
            names.emplace(row.identifier, row.name);
            if (by == BandwidthGroup::Station || row.name.empty()) {
                stations.emplace(row.identifier, row.bssid);
            }
        }
    }
    for (BandwidthTotal& total : totals) {
        if (const auto name = names.find(total.key); name != names.end()) {
            total.name = name->second;
        }
        if (const auto station = stations.find(total.key); station != stations.end()) {
            total.bssid = station->second;
        }
    }
}

} // namespace

std::optional<BandwidthAnswer> readBandwidthTotals(SQLiteConnection& connection, const BandwidthQuestion& question,
    const BandwidthMaps& maps, std::span<const BandwidthRow> running)
{
    const SqlValues args = {question.from, question.until.value_or(std::numeric_limits<double>::max()),
        serialise(interfacesAskedFor(question, maps)), runningAsJson(running)};
    BandwidthAnswer answer;
    const auto summed = connection.forEachRow(rowsAskedFor + " SELECT total(upload), total(download) FROM asked", args,
        [&answer](std::span<const SqlValue> row) {
            answer.sum = {.upload = sqlNumber(row[0]), .download = sqlNumber(row[1])};
        });
    auto totals = summed ? readTotals(connection, question, args) : std::nullopt;
    if (!totals) {
        return std::nullopt;
    }
    if (question.by == BandwidthGroup::Network) {
        joinStations(*totals, question, maps);
    }
    answer.more = totals->size() > question.limit;
    totals->resize(std::min(totals->size(), question.limit));
    addNames(*totals, question.by, maps);
    answer.totals = std::move(*totals);
    return answer;
}

} // namespace meridal
