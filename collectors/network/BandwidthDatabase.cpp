// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/BandwidthDatabase.h"

#include "base/Text.h"
#include "base/Value.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

constexpr double retryInterval = 30;         // s
constexpr std::size_t longestWaiting = 4096; // samples; a month of one interface

// The first three in the layout that every version of the file and every reader of it has had. A number is never given
// out twice, so that samples of an interface that was forgotten do not become another's.
const std::array<TableSchema, 3> bandwidthTables = {
    TableSchema{.table = "bandwidth_wifi_map",
        .create = "create table %@ (identifier INTEGER PRIMARY KEY AUTOINCREMENT, bssid text NOT NULL, name text)",
        .added = {{.column = "name", .alter = "ALTER TABLE %@ ADD COLUMN name TEXT"}}},
    TableSchema{.table = "bandwidth_interface_map",
        .create = "create table %@ (identifier INTEGER PRIMARY KEY AUTOINCREMENT, interface text NOT NULL)"},
    TableSchema{.table = "bandwidth_samples",
        .create =
            "create table %@ (sample INTEGER PRIMARY KEY AUTOINCREMENT, start double NOT NULL, end double NOT NULL, "
            "interface INTEGER NOT NULL, network INTEGER NOT NULL DEFAULT -1, upload double NOT NULL DEFAULT 0, "
            "download double NOT NULL DEFAULT 0)",
        .added = {{.column = "network", .alter = "ALTER TABLE %@ ADD COLUMN network INTEGER NOT NULL DEFAULT -1"}}},
};
// Which hardware a number of "bandwidth_interface_map" stands for.
const TableSchema addressTable = {.table = "bandwidth_interface_addresses",
    .create = "create table %@ (address text PRIMARY KEY NOT NULL, identifier INTEGER NOT NULL)"};
const ViewSchema namedSamples = {.view = "bandwidth_samples_named",
    .create = "CREATE VIEW %@ AS SELECT datetime(samples.start, 'unixepoch', 'localtime') AS started, "
              "datetime(samples.end, 'unixepoch', 'localtime') AS ended, "
              "interfaces.interface, networks.name AS network, networks.bssid, samples.upload, samples.download "
              "FROM bandwidth_samples AS samples "
              "LEFT JOIN bandwidth_interface_map AS interfaces ON interfaces.identifier = samples.interface "
              "LEFT JOIN bandwidth_wifi_map AS networks ON networks.identifier = samples.network"};

/// A single number; 0 where there is no row.
std::optional<std::int64_t> readNumber(SQLiteConnection& connection, std::string_view sql, const SqlValues& args)
{
    std::int64_t number = 0;
    const auto done = connection.forEachRow(
        sql, args, [&](std::span<const SqlValue> row) { number = row.empty() ? 0 : sqlInteger(row[0]); });
    return done ? std::optional(number) : std::nullopt;
}

std::optional<std::int64_t> lastGivenOut(SQLiteConnection& connection, const std::string& table)
{
    return readNumber(connection, "SELECT seq FROM sqlite_sequence WHERE name = ?", {table});
}

} // namespace

std::string textOf(const HardwareAddress& address) { return fmt::format("{:02x}", fmt::join(address, ":")); }

BandwidthDatabase::BandwidthDatabase(
    Context& context, HistoryDatabaseController& databases, const std::filesystem::path& path)
    : context_(context), file_(databases.databaseWithPath(path))
{
}

// Start

void BandwidthDatabase::prepare()
{
    for (const TableSchema& schema : bandwidthTables) {
        file_->declareTable(schema);
    }
    file_->declareTable(addressTable);
    file_->declareView(namedSamples);
}

std::optional<BandwidthDatabase::Maps> BandwidthDatabase::readMaps(SQLiteConnection& connection)
{
    Maps maps;
    const auto interfaces = connection.forEachRow(
        "SELECT map.identifier, map.interface, addresses.address FROM bandwidth_interface_map AS map LEFT JOIN "
        "bandwidth_interface_addresses AS addresses ON addresses.identifier = map.identifier ORDER BY map.identifier",
        {}, [&](std::span<const SqlValue> row) {
            InterfaceRow& entry = maps.interfaces.emplace_back();
            entry.identifier = sqlInteger(row[0]);
            entry.interface = sqlWords(row[1]);
            entry.address = sqlWords(row[2]);
            if (entry.address->empty()) {
                entry.address.reset();
            }
        });
    const auto networks =
        connection.forEachRow("SELECT identifier, bssid, name FROM bandwidth_wifi_map ORDER BY identifier", {},
            [&](std::span<const SqlValue> row) {
                maps.networks.push_back(
                    {.bssid = sqlWords(row[1]), .name = sqlWords(row[2]), .identifier = sqlInteger(row[0])});
            });
    const auto lastInterface = lastGivenOut(connection, "bandwidth_interface_map");
    const auto lastNetwork = lastGivenOut(connection, "bandwidth_wifi_map");
    const auto lastSample = lastGivenOut(connection, "bandwidth_samples");
    if (!interfaces || !networks || !lastInterface || !lastNetwork || !lastSample) {
        return std::nullopt;
    }
    maps.lastInterface = *lastInterface;
    maps.lastNetwork = *lastNetwork;
    maps.lastSample = *lastSample;
    return maps;
}

void BandwidthDatabase::loadMaps(Task done)
{
    mapsAreRead_ = true;
    auto take = lifetime_.guard([this, done = std::move(done)](std::optional<Maps> maps) {
        mapsAreRead_ = false;
        if (maps) {
            takeMaps(std::move(*maps));
        }
        if (done) {
            done();
        }
    });
    file_->queryDatabaseAsync([take, &main = context_.runtime.mainQueue()](SQLiteConnection& connection) {
        main.post([take, maps = readMaps(connection)]() mutable { take(std::move(maps)); });
    });
}

void BandwidthDatabase::takeMaps(Maps maps)
{
    if (mapsLoaded_) {
        return;
    }
    interfaces_ = std::move(maps.interfaces);
    networks_ = std::move(maps.networks);
    lastInterface_ = maps.lastInterface;
    lastNetwork_ = maps.lastNetwork;
    lastSample_ = maps.lastSample;
    mapsLoaded_ = true;
    for (const BandwidthRecord& record : std::exchange(waiting_, {})) {
        writeSample(record);
    }
}

void BandwidthDatabase::retry()
{
    const double now = context_.runtime.monotonicTime();
    if (now < nextRetry_) {
        return;
    }
    nextRetry_ = now + retryInterval;
    if (!mapsLoaded_) {
        if (!mapsAreRead_) {
            loadMaps();
        }
    } else if (file_->statistics().statementsWaiting > 0) {
        file_->commit();
    }
}

// The maps

std::int64_t BandwidthDatabase::identifierForInterface(
    const std::string& name, const std::optional<HardwareAddress>& hardware)
{
    if (!mapsLoaded_) {
        return 0;
    }
    const std::string known = validUtf8(name);
    if (!hardware) {
        const auto named = std::find_if(
            interfaces_.begin(), interfaces_.end(), [&](const InterfaceRow& row) { return row.interface == known; });
        return named != interfaces_.end() ? named->identifier : newInterface(known, {});
    }
    const std::string address = textOf(*hardware);
    auto row = std::find_if(
        interfaces_.begin(), interfaces_.end(), [&](const InterfaceRow& entry) { return entry.address == address; });
    if (row == interfaces_.end()) { // a row from before addresses were noted is this interface's, as its name says
        row = std::find_if(interfaces_.begin(), interfaces_.end(),
            [&](const InterfaceRow& entry) { return entry.interface == known && !entry.address; });
        if (row == interfaces_.end()) {
            return newInterface(known, address);
        }
        row->address = address;
        writeInterface(*row);
    }
    if (row->interface != known) {
        row->interface = known;
        file_->addItem({.table = "bandwidth_interface_map",
            .format = "UPDATE %@ SET interface = ? WHERE identifier = ?",
            .args = {known, row->identifier}});
    }
    return row->identifier;
}

std::int64_t BandwidthDatabase::newInterface(const std::string& name, const std::optional<std::string>& address)
{
    const InterfaceRow& row =
        interfaces_.emplace_back(InterfaceRow{.interface = name, .identifier = ++lastInterface_, .address = address});
    writeInterface(row);
    return row.identifier;
}

/// Does nothing where the rows are there: samples repeat it, so that they find their interface in a fresh file as well.
void BandwidthDatabase::writeInterface(const InterfaceRow& row)
{
    file_->addItem({.table = "bandwidth_interface_map",
        .format = "insert or ignore into %@ (identifier, interface) values (?, ?)",
        .args = {row.identifier, row.interface}});
    if (row.address) {
        file_->addItem({.table = addressTable.table,
            .format = "insert or ignore into %@ (address, identifier) values (?, ?)",
            .args = {*row.address, row.identifier}});
    }
}

std::int64_t BandwidthDatabase::identifierForBSSID(
    const std::optional<std::string>& bssid, const std::optional<std::string>& name)
{
    if (!bssid || !mapsLoaded_) {
        return -1;
    }
    const std::string station = validUtf8(*bssid);
    const auto known =
        std::find_if(networks_.begin(), networks_.end(), [&](const WifiRow& row) { return row.bssid == station; });
    if (known != networks_.end()) {
        if (known->name.empty() && name && !name->empty()) { // it was hidden, or the row is older than names
            known->name = validUtf8(*name);
            file_->addItem({.table = "bandwidth_wifi_map",
                .format = "UPDATE %@ SET name = ? WHERE identifier = ?",
                .args = {known->name, known->identifier}});
        }
        return known->identifier;
    }
    networks_.push_back({.bssid = station, .name = validUtf8(name.value_or("")), .identifier = ++lastNetwork_});
    return lastNetwork_;
}

// Samples

void BandwidthDatabase::addSample(BandwidthRecord record)
{
    if (mapsLoaded_) {
        writeSample(record);
        return;
    }
    waiting_.push_back(std::move(record));
    if (waiting_.size() > longestWaiting) {
        waiting_.pop_front();
    }
}

void BandwidthDatabase::writeSample(const BandwidthRecord& record)
{
    const std::int64_t interface = identifierForInterface(record.interface, record.address);
    const std::int64_t network = identifierForBSSID(record.bssid, record.networkName);
    for (const InterfaceRow& row : interfaces_) {
        if (row.identifier == interface) {
            writeInterface(row);
        }
    }
    for (const WifiRow& row : networks_) {
        if (row.identifier == network) {
            file_->addItem({.table = "bandwidth_wifi_map",
                .format = "insert or ignore into %@ (identifier, bssid, name) values (?, ?, ?)",
                .args = {row.identifier, row.bssid, row.name}});
        }
    }
    file_->addItem({.table = "bandwidth_samples",
        .format = "insert into %@ (start, end, interface, network, upload, download) values (?, ?, ?, ?, ?, ?)",
        .args = {record.start, record.end, interface, network, record.upload, record.download}});
    ++lastSample_;
    prune();
}

void BandwidthDatabase::prune()
{
    if (lastSample_ > keptSamples) {
        file_->addItem({.table = "bandwidth_samples",
            .format = "DELETE FROM %@ WHERE sample < ?",
            .args = {lastSample_ - keptSamples + 1}});
    }
}

void BandwidthDatabase::commitLater() { file_->commit(); }

void BandwidthDatabase::commit(Task written)
{
    if (!written) {
        if (!mapsLoaded_) { // samples wait for them, and there is no later
            std::optional<Maps> maps;
            file_->queryDatabase([&](SQLiteConnection& connection) { maps = readMaps(connection); });
            if (maps) {
                takeMaps(std::move(*maps));
            }
        }
        file_->commitSync();
        return;
    }
    file_->commit();
    file_->queryDatabaseAsync([written = std::move(written), &main = context_.runtime.mainQueue()](
                                  SQLiteConnection&) { main.post(written); });
}

} // namespace meridal
