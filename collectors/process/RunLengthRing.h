#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace meridal {

/// The rows of one thing over the last `Window` passes of its collector, newest first. Rows that repeat are kept once
/// with a count, so that a thing at rest costs no heap at all and a steady pass neither copies nor allocates. A row
/// belongs to a numbered pass; passes may go by without one. When a pass took place is kept once, by the collector.
template <typename Row, std::uint16_t Window>
class RunLengthRing {
public:
    /// Adds the row of a pass, which must be later than every pass before, and drops what left the window.
    void append(const Row& row, std::uint32_t pass)
    {
        assert(rows_ == 0 || pass > newestPass_);
        std::uint32_t step = rows_ == 0 ? 1 : pass - newestPass_;
        if (step >= Window) {
            clear();
            step = 1;
        }
        if (rows_ > 0 && step == 1 && newest_.row == row) {
            ++newest_.rows;
        } else {
            if (rows_ > 0) {
                pushOlder();
            }
            newest_ = {row, 1, static_cast<std::uint16_t>(step - 1)};
        }
        newestPass_ = pass;
        ++rows_;
        span_ = static_cast<std::uint16_t>(span_ + step);
        while (span_ > Window) {
            dropOldest();
        }
        giveBack();
    }

    /// Rows that are there, at most Window.
    std::size_t size() const { return rows_; }
    /// Stretches of equal rows in consecutive passes: what the ring really stores.
    std::size_t runs() const { return rows_ == 0 ? 0 : std::size_t{1} + olderCount_; }
    std::size_t heapBytes() const { return capacity_ * sizeof(Run); }

    /// Calls `visit(row, newestPass, rows)` for each run, newest first, until it answers false.
    template <typename Visit>
    void forEachRun(Visit visit) const
    {
        std::uint32_t pass = newestPass_;
        for (std::size_t index = 0; index < runs(); ++index) {
            const Run& run = runAt(index);
            if (!visit(run.row, pass, static_cast<std::uint32_t>(run.rows))) {
                return;
            }
            pass -= std::uint32_t{run.rows} + run.skipped;
        }
    }

    /// Calls `found(row, pass)` with the row at an index, 0 the newest; answers false when there is none.
    template <typename Found>
    bool at(std::size_t index, Found found) const
    {
        bool present = false;
        forEachRun([&](const Row& row, std::uint32_t newestPass, std::uint32_t rows) {
            if (index >= rows) {
                index -= rows;
                return true;
            }
            found(row, newestPass - static_cast<std::uint32_t>(index));
            present = true;
            return false;
        });
        return present;
    }

    void clear()
    {
        older_.reset();
        capacity_ = head_ = olderCount_ = rows_ = span_ = 0;
    }

private:
    struct Run {
        Row row{};
        std::uint16_t rows = 0;
        std::uint16_t skipped = 0; ///< passes without a row between this run and the next older one
    };
    static constexpr std::uint16_t firstCapacity = 4;
    static constexpr std::uint16_t fullCapacity = Window; // every pass its own run

    const Run& runAt(std::size_t index) const { return index == 0 ? newest_ : older_[slot(index - 1)]; }
    /// Where the run lies that is `index` steps older than the newest of the older ones.
    std::size_t slot(std::size_t index) const { return (std::size_t{head_} + index) % capacity_; }

    void pushOlder()
    {
        if (olderCount_ == capacity_) {
            resize(capacity_ == 0 ? firstCapacity : static_cast<std::uint16_t>(std::min(2 * capacity_, +fullCapacity)));
        }
        head_ = static_cast<std::uint16_t>((head_ + capacity_ - 1) % capacity_);
        older_[head_] = newest_;
        ++olderCount_;
    }

    /// A process that calmed down gives its memory back: at a quarter, so that it does not go to and fro.
    void giveBack()
    {
        if (olderCount_ == 0) {
            older_.reset();
            capacity_ = head_ = 0;
        } else if (capacity_ > firstCapacity && olderCount_ < capacity_ / 4) {
            resize(static_cast<std::uint16_t>(capacity_ / 2));
        }
    }

    /// Drops from the oldest run what is outside the window and, when nothing of it is left, the passes skipped after it.
    void dropOldest()
    {
        Run& oldest = olderCount_ == 0 ? newest_ : older_[slot(olderCount_ - 1u)];
        const auto dropped = std::min(static_cast<std::uint16_t>(span_ - Window), oldest.rows);
        oldest.rows = static_cast<std::uint16_t>(oldest.rows - dropped);
        rows_ = static_cast<std::uint16_t>(rows_ - dropped);
        span_ = static_cast<std::uint16_t>(span_ - dropped);
        if (oldest.rows == 0) {
            --olderCount_; // never the newest run: its last row is inside the window
            Run& next = olderCount_ == 0 ? newest_ : older_[slot(olderCount_ - 1u)];
            span_ = static_cast<std::uint16_t>(span_ - next.skipped);
            next.skipped = 0;
        }
    }

    void resize(std::uint16_t capacity)
    {
        auto runs = std::make_unique<Run[]>(capacity);
        for (std::size_t index = 0; index < olderCount_; ++index) {
            runs[index] = older_[slot(index)];
        }
        older_ = std::move(runs);
        capacity_ = capacity;
        head_ = 0;
    }

    Run newest_;
    std::uint32_t newestPass_ = 0;
    std::unique_ptr<Run[]> older_; // a circle of runs, newest at head_
    std::uint16_t capacity_ = 0;
    std::uint16_t head_ = 0;
    std::uint16_t olderCount_ = 0;
    std::uint16_t rows_ = 0;
    std::uint16_t span_ = 0; // passes from the oldest row's to the newest's, both included
    static_assert(Window > 1 && Window < 0x4000, "counts and spans are 16 bits wide");
};

} // namespace meridal
