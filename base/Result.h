// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

namespace meridal {

/// What kind of failure a caller can act on. The message tells a person the rest.
enum class ErrorCode {
    InvalidArgument, ///< the caller's input is wrong
    NotPermitted,    ///< the caller or this process lacks the right
    NotFound,        ///< the thing asked for is not on this machine
    Unavailable,     ///< it exists but cannot be had now; trying again may help
    Internal,        ///< our own fault
};

struct Error {
    ErrorCode code = ErrorCode::Internal;
    std::string message;
    bool operator==(const Error&) const = default;
};

/// Marks a failure on its way into a Result, as std::unexpected does.
struct Unexpected {
    Error error;
};

[[nodiscard]] inline Unexpected unexpected(ErrorCode code, std::string message) { return {{code, std::move(message)}}; }

/// A value or an error, spelt like std::expected, which this language level lacks.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) { }
    Result(Unexpected failure) : state_(std::in_place_index<1>, std::move(failure.error)) { }

    bool has_value() const { return state_.index() == 0; }
    explicit operator bool() const { return has_value(); }

    T& value() &
    {
        assert(has_value());
        return *std::get_if<0>(&state_);
    }
    const T& value() const&
    {
        assert(has_value());
        return *std::get_if<0>(&state_);
    }
    T&& value() &&
    {
        assert(has_value());
        return std::move(*std::get_if<0>(&state_));
    }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T&& operator*() && { return std::move(*this).value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    const Error& error() const
    {
        assert(!has_value());
        return *std::get_if<1>(&state_);
    }

private:
    std::variant<T, Error> state_;
};

template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Unexpected failure) : error_(std::move(failure.error)), failed_(true) { }

    bool has_value() const { return !failed_; }
    explicit operator bool() const { return has_value(); }
    const Error& error() const
    {
        assert(failed_);
        return error_;
    }

private:
    Error error_;
    bool failed_ = false;
};

} // namespace meridal
