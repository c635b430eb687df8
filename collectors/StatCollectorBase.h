// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

/// Root of all collectors.
class StatCollectorBase {
public:
    virtual ~StatCollectorBase() = default;
};

/// Root of all things that collectors track.
class StatCollectorItemBase {
public:
    virtual ~StatCollectorItemBase() = default;
};

} // namespace meridal
