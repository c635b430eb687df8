// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

/// One result on its way to clients: a dictionary whose "type" is its request key in decimal, or what a method's watchers
/// are told. Built once and shared by every connection that wants it; immutable, so any thread may read it.
class Envelope {
public:
    explicit Envelope(Dictionary dictionary);
    /// A list that was written as JSON from the start: on its way to a socket it never is a dictionary.
    Envelope(int type, std::string json) : json_(std::move(json)), type_(type) { }

    const Dictionary& dictionary() const;
    /// What a method of the second interface tells who watches it: an object of parameters, as JSON, to call that method
    /// at the client with.
    Envelope(std::string method, std::string json) : json_(std::move(json)), method_(std::move(method)) { }

    /// Which method of the second interface it is of; empty for one of DaemonProtocol's.
    const std::string& method() const { return method_; }
    /// Whether it makes an older one that was not sent superfluous.
    bool replaces(const Envelope& older) const { return type_ == older.type_ && method_ == older.method_; }

    /// As JSON; `made` holds the text where it has to be made.
    std::string_view json(std::string& made) const;
    /// The "type" entry as a number: which older unsent envelope this one replaces. 0 when there is none.
    int type() const { return type_; }

    /// The transport's own form of this envelope, made by the first connection that sends it and kept for the rest. All
    /// callers of one program pass the same encoder.
    const std::shared_ptr<const void>& encoded(
        const std::function<std::shared_ptr<const void>(const Envelope&)>& encode) const;

private:
    mutable Dictionary dictionary_;
    mutable std::once_flag parsedOnce_; ///< where only the text was given
    std::string json_;
    std::string method_;
    int type_ = 0;
    mutable std::once_flag encodedOnce_;
    mutable std::shared_ptr<const void> encoded_;
};

using EnvelopePtr = std::shared_ptr<const Envelope>;

} // namespace meridal
