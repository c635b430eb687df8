// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace meridal::test {

/// An entry of the I/O registry.
struct RegistryNode {
    std::string name;
    std::vector<std::string> classes; ///< its own and those that it is derived from
    std::uint64_t identifier = 0;
    Value properties = Value::object(); ///< data as binary values
    RegistryNode* parent = nullptr;     ///< null at the root, and for one that is gone
    std::vector<std::shared_ptr<RegistryNode>> children;

    bool isA(std::string_view className) const;
};

/// What `ioreg -il -w0` prints on a Mac, whole or in part: entries below each other by their indentation. A property whose value
/// the tool could not show is left out. Identifiers that are not told are 0.
std::vector<std::shared_ptr<RegistryNode>> parseRegistry(std::string_view text);

} // namespace meridal::test
