// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace meridal {

using SharedLine = std::shared_ptr<const std::string>;

/// Puts answers and envelopes of one client in the order in which they are written: in turn, so that neither a client's
/// questions nor its subscriptions wait for the other for ever, and whole lines only. An envelope is asked for when its
/// turn comes, not before, and until then may be replaced. Used on one thread.
class OutputQueue {
public:
    /// Gives the next envelope's line, or null.
    using EnvelopeSource = std::function<SharedLine()>;
    /// What consume() brought to its end.
    enum class Finished { Nothing, Answers, Envelope };

    explicit OutputQueue(EnvelopeSource source) : source_(std::move(source)) { }

    void addAnswer(std::string_view line);
    /// The bytes to write next; none when nothing waits.
    std::string_view front();
    /// That many bytes of the front are written.
    Finished consume(std::size_t count);
    /// Bytes of answers that the client has not taken.
    std::size_t unsentAnswers() const { return answers_.size() + (currentIsEnvelope_ ? 0 : front_.size()); }

private:
    bool startAnswers();
    bool startEnvelope();

    EnvelopeSource source_;
    std::string answers_;    // complete lines
    SharedLine current_;     // being written
    std::string_view front_; // what is left of it
    bool currentIsEnvelope_ = false;
};

} // namespace meridal
