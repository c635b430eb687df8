// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/MemoryKillRecord.h"

#include "base/Runtime.h"
#include "database/HistoryDatabaseController.h"
#include "database/HistoryDatabaseItem.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

constexpr const char* killTable = "memory_kills";
// number: when the kernel told of it, µs of that boot. Those of one boot are in its order.
constexpr const char* killTableText =
    "create table %@ (boot varchar(100) NOT NULL, number bigint NOT NULL, time double NOT NULL, pid int NOT NULL, "
    "name text NOT NULL, user bigint, cgroup text, bytes bigint, PRIMARY KEY (boot, number))";

/// s from a question to the next for the same kills, as the system's journal may be behind where memory is short. The first is
/// the least between any two, each of which costs a process there.
constexpr std::array<double, 3> pauses = {5, 15, 60};

SqlValue sqlOf(const auto& figure) { return figure ? SqlValue(static_cast<std::int64_t>(*figure)) : SqlValue(); }

} // namespace

MemoryKillRecord::MemoryKillRecord(Context& context, std::filesystem::path file)
    : context_(context), file_(std::move(file))
{
}

/// While nothing is recorded one that is there already. Null where there is none.
std::shared_ptr<HistoryDatabaseItem> MemoryKillRecord::database() const
{
    std::error_code failure;
    return context_.databases && (isRecording_ || std::filesystem::exists(file_, failure))
        ? context_.databases->databaseWithPath(file_)
        : nullptr;
}

void MemoryKillRecord::update(std::optional<std::uint64_t> count, bool isRecording)
{
    isRecording_ = isRecording;
    if (isRecording_ && context_.databases && !std::exchange(isDeclared_, true)) {
        database()->declareTable({.table = killTable, .create = killTableText});
    }
    if (phase_ == Phase::NotStarted) {
        phase_ = Phase::Loading;
        boot_ = context_.host.machine->bootIdentifier().value_or("");
        load();
    }
    count_ = count.value_or(count_);
    if (phase_ == Phase::Loaded) {
        askForNews();
    }
}

void MemoryKillRecord::load()
{
    const auto file = database();
    if (!file) {
        return loaded({});
    }
    file->queryDatabaseAsync([take = lifetime_.guard([this](const auto& recorded) { loaded(recorded); }),
                                 &main = context_.runtime.mainQueue()](SQLiteConnection& connection) {
        const auto rows =
            connection.rows(fmt::format("SELECT * FROM {} ORDER BY rowid DESC LIMIT {}", killTable, mostTold));
        std::deque<Entry> recorded;
        for (const Dictionary& row : rows ? *rows : std::vector<Dictionary>()) {
            const auto figure = [&row](const char* column) { return integer(row, column); };
            Entry entry{.boot = text(row, "boot").value_or(""), .time = number(row, "time").value_or(0), .kill = {}};
            entry.kill.number = static_cast<std::uint64_t>(figure("number").value_or(0));
            entry.kill.pid = static_cast<std::int32_t>(figure("pid").value_or(0));
            entry.kill.name = text(row, "name").value_or("");
            entry.kill.cgroup = text(row, "cgroup");
            if (const auto user = figure("user")) {
                entry.kill.uid = static_cast<std::uint32_t>(*user);
            }
            if (const auto bytes = figure("bytes")) {
                entry.kill.bytes = static_cast<std::uint64_t>(*bytes);
            }
            recorded.push_front(std::move(entry));
        }
        main.post([take, recorded = std::move(recorded)]() mutable { take(recorded); });
    });
}

void MemoryKillRecord::loaded(const std::deque<Entry>& recorded)
{
    latest_ = recorded;
    phase_ = Phase::Loaded;
    askForNews();
}

/// Looks again for what the log did not have yet, a few times: what came before its first record, or was never written, does
/// not come.
void MemoryKillRecord::askForNews()
{
    if (count_ > countSeen_) {
        missing_ += count_ - std::exchange(countSeen_, count_);
        questions_ = 0;
    }
    const double now = context_.runtime.monotonicTime();
    const double pause = pauses[questions_ == 0 ? 0 : questions_ - 1];
    if (missing_ == 0 || isAsking_ || (asked_ && now < *asked_ + pause)) {
        return;
    }
    isAsking_ = true;
    asked_ = now;
    context_.host.machineCounters->memoryKills(
        lifetime_.guard([this](std::vector<MemoryKill> news) { takeNews(std::move(news)); }));
}

void MemoryKillRecord::takeNews(std::vector<MemoryKill> news)
{
    isAsking_ = false;
    missing_ -= std::min<std::uint64_t>(missing_, news.size());
    if (++questions_ > pauses.size()) {
        missing_ = questions_ = 0;
    }
    const double now = context_.runtime.monotonicTime();
    // Where everything is killed over and over, the latest are what is worth a row.
    const std::size_t first = news.size() - std::min(news.size(), mostTold);
    for (std::size_t index = first; index < news.size(); ++index) {
        const double ago = std::max(now - news[index].monotonicTime, 0.0);
        add(std::move(news[index]), context_.runtime.wallTime() - ago);
    }
}

void MemoryKillRecord::add(MemoryKill kill, double time)
{
    // An earlier version counted otherwise: its rows of this boot are told by what was killed.
    const bool isKnown = std::any_of(latest_.begin(), latest_.end(), [&](const Entry& entry) {
        const MemoryKill& other = entry.kill;
        return entry.boot == boot_
            && (other.number == kill.number
                || (other.pid == kill.pid && other.name == kill.name && other.bytes == kill.bytes));
    });
    if (isKnown) {
        return;
    }
    if (const auto file = isRecording_ ? database() : nullptr) {
        file->addItem({.table = killTable,
            .format = "INSERT OR IGNORE INTO %@ VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
            .args = {boot_, static_cast<std::int64_t>(kill.number), time, std::int64_t{kill.pid}, kill.name,
                sqlOf(kill.uid), kill.cgroup ? SqlValue(*kill.cgroup) : SqlValue(), sqlOf(kill.bytes)}});
        file->addItem({.table = killTable,
            .format = "DELETE FROM %@ WHERE rowid <= (SELECT max(rowid) FROM %@) - ?",
            .args = {static_cast<std::int64_t>(mostRecorded)}});
    }
    latest_.push_back({.boot = boot_, .time = time, .kill = std::move(kill)});
    if (latest_.size() > mostTold) {
        latest_.pop_front();
    }
}

Value MemoryKillRecord::state() const
{
    Value kills = Value::array();
    for (const Entry& entry : latest_) {
        Value& told =
            kills.emplace_back(Value{{"time", entry.time}, {"pid", entry.kill.pid}, {"name", entry.kill.name}});
        put(told, "user", entry.kill.uid);
        put(told, "cgroup", entry.kill.cgroup);
        put(told, "bytes", entry.kill.bytes);
    }
    return kills;
}

} // namespace meridal
