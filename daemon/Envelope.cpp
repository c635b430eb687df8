#include "daemon/Envelope.h"

#include <charconv>
#include <utility>

namespace meridal {

Envelope::Envelope(Dictionary dictionary) : dictionary_(std::move(dictionary))
{
    if (const auto type = text(dictionary_, "type")) {
        std::from_chars(type->data(), type->data() + type->size(), type_);
    }
}

const std::shared_ptr<const void>& Envelope::encoded(
    const std::function<std::shared_ptr<const void>(const Dictionary&)>& encode) const
{
    std::call_once(encodedOnce_, [&] { encoded_ = encode(dictionary_); });
    return encoded_;
}

} // namespace meridal
