// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

namespace meridal {

/// Where the one object of a class that everybody shares is kept; empty until somebody makes it. One queue at a time.
template <typename Object>
std::unique_ptr<Object>& sharedInstance()
{
    // Never destroyed: at exit what the object refers to may go first.
    static auto& instance = *new std::unique_ptr<Object>;
    return instance;
}

} // namespace meridal
