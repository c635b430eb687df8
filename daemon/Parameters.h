// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// Reads the named parameters of a second-interface method: an object, also as the only element of an array, or nothing.
/// Null stands for a parameter that was left out. The first thing wrong is kept for the reply; reading goes on.
class Parameters {
public:
    explicit Parameters(const Value& given);

    std::optional<std::string> text(const std::string& name);
    /// Seconds since 1970.
    std::optional<double> moment(const std::string& name);
    /// A number, in seconds.
    std::optional<double> seconds(const std::string& name);
    /// A whole number from 0.
    std::optional<std::uint64_t> count(const std::string& name);
    /// True or false; false when left out.
    bool flag(const std::string& name);
    /// A list of texts.
    std::optional<std::vector<std::string>> texts(const std::string& name);
    /// An object, to be read as parameters of its own; null when left out.
    const Value* object(const std::string& name);
    std::optional<std::int64_t> wholeNumber(const std::string& name);
    /// "limit", the entries on a page: from 1 to the longest.
    std::size_t limit(std::size_t standard, std::size_t longest);
    /// Notes what the caller found wrong by itself.
    void refuse(std::string message);

    bool valid() const { return !error_; }
    /// The failure to answer with; only while not valid().
    Unexpected failure() const { return {*error_}; }

private:
    const Value* entry(const std::string& name) const;

    const Value* object_ = nullptr; ///< null: no parameters
    std::optional<Error> error_;
};

} // namespace meridal
