// SPDX-License-Identifier: Apache-2.0
#include "wire/Envelope.h"

#include <charconv>
#include <utility>

namespace meridal {

Envelope::Envelope(Dictionary dictionary) : dictionary_(std::move(dictionary))
{
    if (const auto type = text(dictionary_, "type")) {
        std::from_chars(type->data(), type->data() + type->size(), type_);
    }
}

const Dictionary& Envelope::dictionary() const
{
    if (!json_.empty()) {
        std::call_once(parsedOnce_, [this] { dictionary_ = parseUntrusted(json_).value_or(Dictionary()); });
    }
    return dictionary_;
}

std::string_view Envelope::json(std::string& made) const
{
    if (!json_.empty()) {
        return json_;
    }
    made = serialise(dictionary_);
    return made;
}

const std::shared_ptr<const void>& Envelope::encoded(
    const std::function<std::shared_ptr<const void>(const Envelope&)>& encode) const
{
    std::call_once(encodedOnce_, [&] { encoded_ = encode(*this); });
    return encoded_;
}

} // namespace meridal
