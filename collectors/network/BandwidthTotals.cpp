#include "collectors/network/BandwidthTotals.h"

#include "base/Value.h"
#include "database/SQLiteConnection.h"

#include <algorithm>
#include <limits>

namespace meridal {

namespace {

constexpr std::size_t mostRunning = 1000;

/// All rows, stored and running, that a question is about: ?1 from, ?2 until, ?3 interface, ?4 all, ?5 the running
/// periods and ?6 further hardware, as JSON. Where no interface is known to be hardware (a container), all but the loopback count.
const std::string rowsAskedFor = R"(
    WITH hardware AS (SELECT identifier FROM bandwidth_interface_addresses UNION SELECT value FROM json_each(?6)),
    counted AS (SELECT identifier FROM bandwidth_interface_map WHERE (?3 IS NULL OR interface = ?3) AND
        (?4 OR ?3 IS NOT NULL OR identifier IN hardware OR
            (NOT EXISTS (SELECT * FROM hardware) AND interface NOT IN ('lo', 'lo0')))),
    rows AS (
        SELECT start, "end", interface, network, upload, download FROM bandwidth_samples
        UNION ALL
        SELECT json_extract(value, '$[0]'), json_extract(value, '$[1]'), json_extract(value, '$[2]'),
            json_extract(value, '$[3]'), json_extract(value, '$[4]'), json_extract(value, '$[5]') FROM json_each(?5)),
    asked AS (SELECT * FROM rows WHERE start >= ?1 AND start < ?2 AND interface IN counted))";

/// What groups rows, and what is known of a group besides its key.
struct Grouping {
    const char* key = "";
    const char* name = "NULL";
    const char* bssid = "NULL";
};

Grouping groupingBy(BandwidthGroup group)
{
    switch (group) {
    case BandwidthGroup::Hour:
        return {.key = "strftime('%Y-%m-%d %H:00', start, 'unixepoch', 'localtime')"};
    case BandwidthGroup::Day:
        return {.key = "strftime('%Y-%m-%d', start, 'unixepoch', 'localtime')"};
    case BandwidthGroup::Month:
        return {.key = "strftime('%Y-%m', start, 'unixepoch', 'localtime')"};
    case BandwidthGroup::Interface:
        return {.key = "interface", .name = "(SELECT interface FROM bandwidth_interface_map WHERE identifier = key)"};
    case BandwidthGroup::Network:
        return {.key = "network",
            .name = "(SELECT name FROM bandwidth_wifi_map WHERE identifier = key)",
            .bssid = "(SELECT bssid FROM bandwidth_wifi_map WHERE identifier = key)"};
    }
    return {};
}

std::optional<std::string> textOrNone(const SqlValue& value)
{
    const auto* words = std::get_if<std::string>(&value);
    return words ? std::optional(*words) : std::nullopt;
}

std::string runningAsJson(std::span<const BandwidthRow> running)
{
    Value rows = Value::array();
    for (const BandwidthRow& row : running.first(std::min(running.size(), mostRunning))) {
        rows.push_back({row.start, row.end, row.interface, row.network, row.amount.upload, row.amount.download});
    }
    return serialise(rows);
}

bool readPage(SQLiteConnection& connection, const BandwidthQuestion& question, SqlValues args, BandwidthAnswer& answer)
{
    const Grouping grouping = groupingBy(question.by);
    const std::string sql = rowsAskedFor + ", keyed AS (SELECT " + grouping.key + " AS key, * FROM asked) SELECT key, "
        + grouping.name + ", " + grouping.bssid
        + ", min(start), max(\"end\"), total(upload), total(download) FROM keyed WHERE (?7 IS NULL OR key > ?7) "
          "GROUP BY key ORDER BY key LIMIT ?8";
    args.push_back(question.after);
    args.emplace_back(static_cast<std::int64_t>(question.limit) + 1);
    const auto done = connection.forEachRow(sql, args, [&answer](std::span<const SqlValue> row) {
        answer.totals.push_back({.key = row[0],
            .name = textOrNone(row[1]),
            .bssid = textOrNone(row[2]),
            .start = sqlNumber(row[3]),
            .end = sqlNumber(row[4]),
            .amount = {.upload = sqlNumber(row[5]), .download = sqlNumber(row[6])}});
    });
    answer.more = answer.totals.size() > question.limit;
    answer.totals.resize(std::min(answer.totals.size(), question.limit));
    return done.has_value();
}

} // namespace

std::optional<BandwidthAnswer> readBandwidthTotals(
    SQLiteConnection& connection, const BandwidthQuestion& question, std::span<const BandwidthRow> running)
{
    BandwidthAnswer answer;
    const SqlValues args = {question.from, question.until.value_or(std::numeric_limits<double>::max()),
        question.interface ? SqlValue(*question.interface) : SqlValue(), static_cast<std::int64_t>(question.all),
        runningAsJson(running), serialise(Value(question.hardware))};
    const auto summed = connection.forEachRow(rowsAskedFor + " SELECT total(upload), total(download) FROM asked", args,
        [&answer](std::span<const SqlValue> row) {
            answer.sum = {.upload = sqlNumber(row[0]), .download = sqlNumber(row[1])};
        });
    if (!summed || !readPage(connection, question, args, answer)) {
        return std::nullopt;
    }
    return answer;
}

} // namespace meridal
