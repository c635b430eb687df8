// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace meridal::test {

/// What stands for an exception of Objective-C, which is of no class of C++'s.
struct Raised {
    std::string reason;
};

} // namespace meridal::test
