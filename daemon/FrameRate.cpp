// SPDX-License-Identifier: Apache-2.0
#include "daemon/FrameRate.h"

#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

void FrameRate::ask(std::function<void(double)> reply)
{
    if (waiting_.empty()) {
        if (const auto rate = context_.host.display->frameRate()) {
            return reply(*rate);
        }
        Runtime& runtime = context_.runtime;
        secondLook_ = runtime.startTimer(runtime.mainQueue(), {.first = span}, [this] {
            const double rate = context_.host.display->frameRate().value_or(0);
            for (const auto& each : std::exchange(waiting_, {})) {
                each(rate);
            }
        });
    }
    waiting_.push_back(std::move(reply));
}

} // namespace meridal
