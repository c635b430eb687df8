// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/transport/PendingAnswer.h"
#include "wire/DaemonProtocol.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace meridal {

/// What a parameter must be before the daemon sees it.
enum class ParameterKind : std::uint8_t { Integer, Number, Text, NumberList, DictionaryList, Anything };

struct MethodParameter {
    std::string_view name;
    ParameterKind kind = ParameterKind::Anything;
};

/// One method of DaemonProtocol as it is called by name.
struct DaemonMethod {
    /// Takes parameters that were checked, and may move from them.
    using Call = void (*)(DaemonProtocol& daemon, Value& parameters, const PendingAnswerPtr& answer);

    std::string_view selector;
    std::array<MethodParameter, 2> parameterSlots;
    std::size_t parameterCount;
    bool replies; ///< false: the method itself never answers
    Call call;

    std::span<const MethodParameter> parameters() const { return {parameterSlots.data(), parameterCount}; }
    /// What is wrong with these parameters (an array, an object or null); nothing when they fit.
    std::optional<JsonRpcFailure> check(const Value& given) const;

    /// All 27, in the order of DaemonProtocol.
    static std::span<const DaemonMethod> all();
    /// The method of that selector, or null.
    static const DaemonMethod* named(std::string_view selector);
};

} // namespace meridal
