// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dispatch/dispatch.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

namespace meridal {

// libdispatch's calls with functions of C++, by its forms for C functions: no compiler for blocks is needed, nothing is
// copied, and the function goes where it ran. One that throws ends the program.

inline std::int64_t dispatchNanoseconds(double seconds)
{
    constexpr double longest = 9e18; // some 285 years, and still a signed number
    return std::llround(std::clamp(seconds * 1e9, 0.0, longest));
}

template <typename Function>
void callOnce(void* context) noexcept
{
    const std::unique_ptr<Function> function(static_cast<Function*>(context));
    (*function)();
}

template <typename Function>
void dispatchAsync(dispatch_queue_t queue, Function function)
{
    dispatch_async_f(queue, std::make_unique<Function>(std::move(function)).release(), callOnce<Function>);
}

template <typename Function>
void dispatchAsync(dispatch_group_t group, dispatch_queue_t queue, Function function)
{
    dispatch_group_async_f(group, queue, std::make_unique<Function>(std::move(function)).release(), callOnce<Function>);
}

template <typename Function>
void dispatchAfter(double seconds, dispatch_queue_t queue, Function function)
{
    dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, dispatchNanoseconds(seconds)), queue,
        std::make_unique<Function>(std::move(function)).release(), callOnce<Function>);
}

template <typename Function>
void dispatchSync(dispatch_queue_t queue, Function&& function)
{
    dispatch_sync_f(queue, &function,
        [](void* context) noexcept { (*static_cast<std::remove_reference_t<Function>*>(context))(); });
}

} // namespace meridal
