// SPDX-License-Identifier: Apache-2.0
#include "base/LogWriter.h"

#include <algorithm>
#include <utility>

namespace meridal {

LogWriter::LogWriter(std::size_t capacity, std::function<void(const Batch&)> write)
    : capacity_(capacity), write_(std::move(write)), thread_([this] { serve(); })
{
}

LogWriter::~LogWriter()
{
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    work_.notify_one();
    thread_.join();
}

void LogWriter::push(LogLine line)
{
    {
        const std::lock_guard lock(mutex_);
        ++pushed_;
        if (ring_.size() < capacity_) {
            ring_.push_back(std::move(line));
        } else {
            ring_[first_] = std::move(line);
            first_ = (first_ + 1) % capacity_;
            ++lost_;
        }
    }
    work_.notify_one();
}

void LogWriter::flush()
{
    std::unique_lock lock(mutex_);
    progress_.wait(lock, [this, target = pushed_] { return finished_ >= target; });
}

std::uint64_t LogWriter::lostLines() const
{
    const std::lock_guard lock(mutex_);
    return lost_;
}

void LogWriter::serve()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [this] { return ending_ || !ring_.empty(); });
        if (ring_.empty()) {
            return;
        }
        Batch batch = std::exchange(ring_, {});
        std::rotate(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(std::exchange(first_, 0)), batch.end());
        const std::uint64_t end = pushed_;
        lock.unlock();
        write_(batch);
        lock.lock();
        finished_ = end;
        progress_.notify_all();
    }
}

} // namespace meridal
