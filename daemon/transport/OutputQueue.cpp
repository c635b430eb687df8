// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/OutputQueue.h"

#include <utility>

namespace meridal {

void OutputQueue::addAnswer(std::string_view line) { answers_.append(line); }

std::string_view OutputQueue::front()
{
    if (!current_) {
        // currentIsEnvelope_ still tells whose turn it was last.
        const bool started = currentIsEnvelope_ ? startAnswers() || startEnvelope() : startEnvelope() || startAnswers();
        if (!started) {
            return {};
        }
    }
    return front_;
}

OutputQueue::Finished OutputQueue::consume(std::size_t count)
{
    front_.remove_prefix(count);
    if (!front_.empty()) {
        return Finished::Nothing;
    }
    current_.reset();
    return currentIsEnvelope_ ? Finished::Envelope : Finished::Answers;
}

bool OutputQueue::startAnswers()
{
    if (answers_.empty()) {
        return false;
    }
    current_ = std::make_shared<const std::string>(std::exchange(answers_, {}));
    front_ = *current_;
    currentIsEnvelope_ = false;
    return true;
}

bool OutputQueue::startEnvelope()
{
    SharedLine line = source_();
    if (!line) {
        return false;
    }
    current_ = std::move(line);
    front_ = *current_;
    currentIsEnvelope_ = true;
    return true;
}

} // namespace meridal
