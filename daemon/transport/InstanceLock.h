// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <filesystem>

namespace meridal {

/// The right to be the one daemon of a root: an advisory lock on a file, which the kernel drops with the process that
/// holds it, however that ends. Whoever holds it may take over a socket that a dead daemon left.
class InstanceLock {
public:
    /// Unavailable when another daemon holds it; the message names the holder's pid. Makes the folder when missing.
    static Result<InstanceLock> acquire(const std::filesystem::path& file);

    InstanceLock(InstanceLock&& other) noexcept;
    InstanceLock& operator=(InstanceLock&& other) noexcept;
    ~InstanceLock();

private:
    explicit InstanceLock(int descriptor) : descriptor_(descriptor) { }

    int descriptor_ = -1;
};

} // namespace meridal
