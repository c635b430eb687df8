// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/RegistryEntry.h"

#include <IOKit/IOKitLib.h>

#include <string>
#include <string_view>
#include <utility>

namespace meridal {

/// Owns one reference to an object of the I/O registry.
class IOObjectOwner {
public:
    IOObjectOwner() = default;
    explicit IOObjectOwner(io_object_t object) : object_(object) { }
    ~IOObjectOwner()
    {
        if (object_ != IO_OBJECT_NULL) {
            IOObjectRelease(object_);
        }
    }
    IOObjectOwner(IOObjectOwner&& other) noexcept : object_(std::exchange(other.object_, IO_OBJECT_NULL)) { }
    IOObjectOwner& operator=(IOObjectOwner&& other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    io_object_t get() const { return object_; }
    explicit operator bool() const { return object_ != IO_OBJECT_NULL; }
    /// For a call that gives a reference in an argument. Once only.
    io_object_t* receive() { return &object_; }

private:
    io_object_t object_ = IO_OBJECT_NULL;
};

/// A service of the I/O registry as an entry; without any properties where there is none.
class IORegistryObject final : public RegistryEntry {
public:
    explicit IORegistryObject(IOObjectOwner entry) : entry_(std::move(entry)) { }

    /// The one whose path that is, if it is still there.
    static IORegistryObject atPath(std::string_view path);

    /// Its registry identifier, which no other object ever gets.
    std::string path() const;
    Value property(std::string_view key) const override;
    Value searchChildren(std::string_view key) const override;
    RegistryEntryPtr parent() const override;

    io_registry_entry_t native() const { return entry_.get(); }

private:
    IOObjectOwner entry_;
};

} // namespace meridal
