// SPDX-License-Identifier: Apache-2.0
#include "database/HistoryDatabaseItem.h"

#include "base/Log.h"
#include "database/HistoryDatabaseFile.h"
#include "platform/Context.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

HistoryDatabaseItem::HistoryDatabaseItem(Context& context, std::filesystem::path path, const Limits& limits)
    : context_(context)
    , path_(std::move(path))
    , limits_(limits)
    , queue_(context.runtime.makeSerialQueue("dbqueue-" + path_.filename().string()))
    , file_(std::make_unique<HistoryDatabaseFile>(
          context, path_, HistoryDatabaseFile::Options{limits.walBytes, {limits.busyTimeout, limits.vfs}}))
{
}

HistoryDatabaseItem::~HistoryDatabaseItem() = default;

bool HistoryDatabaseItem::busy() const
{
    const std::lock_guard lock(mutex_);
    return busy_;
}

double HistoryDatabaseItem::lastUse() const
{
    const std::lock_guard lock(mutex_);
    return lastUse_;
}

// The queue

void HistoryDatabaseItem::onQueue(const Task& task)
{
    if (queue_->isCurrent()) {
        task();
    } else {
        queue_->runAndWait(task);
    }
}

void HistoryDatabaseItem::post(Task task)
{
    queue_->post([self = shared_from_this(), task = std::move(task)] { task(); });
}

void HistoryDatabaseItem::publish()
{
    const DatabaseStatistics& figures = file_->statistics();
    const std::lock_guard lock(mutex_);
    statistics_ = figures;
    lastUse_ = context_.runtime.wallTime();
}

bool HistoryDatabaseItem::openIfNeeded()
{
    bool open = false;
    onQueue([&] {
        open = file_->open();
        publish();
    });
    return open;
}

void HistoryDatabaseItem::openLater()
{
    post([this] {
        file_->open();
        publish();
    });
}

void HistoryDatabaseItem::close()
{
    whileClosed([] {});
}

void HistoryDatabaseItem::whileClosed(const Task& task)
{
    seal();
    onQueue([&] {
        writeSealed();
        file_->close();
        task();
        publish();
    });
}

void HistoryDatabaseItem::declareTable(TableSchema schema)
{
    post([this, schema = std::move(schema)] {
        file_->declareTable(schema);
        publish();
    });
}

void HistoryDatabaseItem::declareView(ViewSchema schema)
{
    post([this, schema = std::move(schema)] {
        file_->declareView(schema);
        publish();
    });
}

// Statements

void HistoryDatabaseItem::addItem(PendingStatement statement)
{
    addItem(std::make_shared<const StatementText>(statement.table, statement.format), statement.args);
}

void HistoryDatabaseItem::addItem(const std::shared_ptr<const StatementText>& text, std::span<const SqlValue> args)
{
    bool full = false;
    {
        const std::lock_guard lock(mutex_);
        queries_.add(text, args);
        full = queries_.size() >= limits_.batchStatements;
    }
    if (full) {
        commit();
    }
}

/// What waits becomes a batch of its own, so that statements added after a commit was asked for are not part of it.
void HistoryDatabaseItem::seal()
{
    const std::lock_guard lock(mutex_);
    if (!queries_.empty()) {
        sealedStatements_ += queries_.size();
        sealed_.push_back(std::exchange(queries_, {}));
    }
    // A write that hangs has not failed yet, and may hang for ever.
    dropBeyond(failing_ ? limits_.keptStatements : 2 * limits_.keptStatements);
}

void HistoryDatabaseItem::dropBeyond(std::size_t statements)
{
    while (sealedStatements_ > statements && !sealed_.empty()) {
        statementsDropped_ += sealed_.front().size();
        sealedStatements_ -= sealed_.front().size();
        sealed_.pop_front();
    }
}

void HistoryDatabaseItem::commit()
{
    seal();
    {
        const std::lock_guard lock(mutex_);
        if (sealed_.empty() || std::exchange(writePosted_, true)) {
            return;
        }
    }
    post([this] {
        {
            const std::lock_guard lock(mutex_);
            writePosted_ = false; // before it looks: what is sealed from now on asks again
        }
        writeSealed();
    });
}

void HistoryDatabaseItem::commitSync()
{
    seal();
    onQueue([this] { writeSealed(); });
}

void HistoryDatabaseItem::writeSealed()
{
    for (bool goOn = true; goOn;) {
        StatementBatch batch;
        {
            const std::lock_guard lock(mutex_);
            if (sealed_.empty()) {
                break;
            }
            batch = std::move(sealed_.front());
            sealed_.pop_front();
            sealedStatements_ -= batch.size();
            busy_ = true;
        }
        goOn = file_->write(batch);
        const std::lock_guard lock(mutex_);
        busy_ = false;
        failing_ = !goOn;
        if (!goOn) {
            sealedStatements_ += batch.size();
            sealed_.push_front(std::move(batch));
            dropBeyond(limits_.keptStatements);
        }
    }
    publish();
}

// Queries

void HistoryDatabaseItem::query(const QueryBlock& block)
{
    file_->open();
    block(file_->connection());
    file_->afterUse();
    publish();
}

void HistoryDatabaseItem::queryDatabase(const QueryBlock& block)
{
    onQueue([&] { query(block); });
}

void HistoryDatabaseItem::queryDatabaseAsync(QueryBlock block)
{
    post([this, block = std::move(block)] { query(block); });
}

DatabaseStatistics HistoryDatabaseItem::statistics() const
{
    const std::lock_guard lock(mutex_);
    DatabaseStatistics figures = statistics_;
    figures.statementsWaiting = queries_.size() + sealedStatements_;
    figures.statementsDropped = statementsDropped_;
    figures.failing = failing_;
    return figures;
}

} // namespace meridal
