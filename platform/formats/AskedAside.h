// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace meridal {

/// What the system says of itself when it answers slowly or not at all, asked for on another thread: the main queue waits a
/// moment and goes on with what was said before. Made and used on one thread.
template <typename Answer>
class AskedAside {
public:
    /// Runs on another thread, one at a time, and may outlive this object: it holds what it needs.
    using Question = std::function<Answer()>;

    static constexpr double patience = 0.1; ///< s, for each question once

    /// `mayRepeat`: it is asked all the time, so that the answer before is worth something.
    AskedAside(std::shared_ptr<SlowWork> work, Question question, bool mayRepeat = true)
        : work_(std::move(work)), question_(std::move(question)), slot_(std::make_shared<Slot>(mayRepeat))
    {
    }

    /// The answer, else the one before, once: who hangs is not to be believed for ever. Absent where there is neither.
    std::optional<Answer> ask()
    {
        const bool begins = !slot_->isUnderWay();
        if (begins) {
            slot_->begin();
            work_->post([slot = slot_, question = question_] { slot->end(question()); });
            work_->wait([slot = slot_] { return !slot->isUnderWay(); }, patience);
        }
        // The answer to a question that somebody else began may come at any moment, even now.
        return begins || slot_->mayRepeat() ? slot_->take() : std::nullopt;
    }

private:
    class Slot {
    public:
        explicit Slot(bool mayRepeat) : mostUses_(mayRepeat ? 2 : 1) { }
        bool mayRepeat() const { return mostUses_ > 1; }
        void begin()
        {
            const std::lock_guard lock(mutex_);
            isUnderWay_ = true;
            if (!mayRepeat()) {
                answer_.reset(); // one that came too late for who had asked
            }
        }
        void end(Answer answer)
        {
            const std::lock_guard lock(mutex_);
            isUnderWay_ = false;
            answer_ = std::move(answer);
            uses_ = 0;
        }
        bool isUnderWay() const
        {
            const std::lock_guard lock(mutex_);
            return isUnderWay_;
        }
        std::optional<Answer> take()
        {
            const std::lock_guard lock(mutex_);
            return uses_++ < mostUses_ ? answer_ : std::nullopt;
        }

    private:
        const int mostUses_;
        mutable std::mutex mutex_;
        bool isUnderWay_ = false;
        std::optional<Answer> answer_;
        int uses_ = 0; ///< of the answer
    };

    std::shared_ptr<SlowWork> work_;
    Question question_;
    std::shared_ptr<Slot> slot_;
};

} // namespace meridal
