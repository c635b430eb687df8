#pragma once

#include "base/Value.h"

#include <functional>
#include <memory>
#include <mutex>

namespace meridal {

/// One result on its way to clients: a dictionary whose "type" is its request key in decimal. Built once and shared by
/// every connection that wants it; immutable, so any thread may read it.
class Envelope {
public:
    explicit Envelope(Dictionary dictionary);

    const Dictionary& dictionary() const { return dictionary_; }
    /// The "type" entry as a number: which older unsent envelope this one replaces. 0 when there is none.
    int type() const { return type_; }

    /// The transport's own form of this envelope, made by the first connection that sends it and kept for the rest. All
    /// callers of one program pass the same encoder.
    const std::shared_ptr<const void>& encoded(
        const std::function<std::shared_ptr<const void>(const Dictionary&)>& encode) const;

private:
    Dictionary dictionary_;
    int type_ = 0;
    mutable std::once_flag encodedOnce_;
    mutable std::shared_ptr<const void> encoded_;
};

using EnvelopePtr = std::shared_ptr<const Envelope>;

} // namespace meridal
