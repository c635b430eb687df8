// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

/// Owns one reference to a Core Foundation object, as the calls named Create and Copy give it.
template <typename Ref>
class CFRef {
public:
    CFRef() = default;
    explicit CFRef(Ref object) : object_(object) { }
    ~CFRef()
    {
        if (object_) {
            CFRelease(object_);
        }
    }
    CFRef(CFRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) { }
    CFRef& operator=(CFRef&& other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    Ref get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    Ref object_ = nullptr;
};

/// A string of UTF-8; null for what is none.
CFRef<CFStringRef> stringOf(std::string_view text);

/// A string as UTF-8, or the bytes of a data object up to its first NUL, which is how the firmware's properties keep
/// text. Absent for anything else, null included.
std::optional<std::string> textOf(CFTypeRef object);

} // namespace meridal
