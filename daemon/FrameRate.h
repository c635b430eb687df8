// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <functional>
#include <memory>
#include <vector>

namespace meridal {

struct Context;

/// How many frames a second the display shows. A host that counts frames has no rate at a single moment: who asks is
/// answered after a second look, together with all who ask meanwhile. Main queue only.
class FrameRate {
public:
    explicit FrameRate(Context& context) : context_(context) { }
    /// The rate, 0 where none can be had: at once, or after `span`.
    void ask(std::function<void(double)> reply);

    static constexpr double span = 0.5; ///< s between the two looks

private:
    Context& context_;
    std::vector<std::function<void(double)>> waiting_;
    std::unique_ptr<Timer> secondLook_;
};

} // namespace meridal
