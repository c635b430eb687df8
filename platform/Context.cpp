// SPDX-License-Identifier: Apache-2.0
#include "platform/Context.h"

#include <cassert>

namespace meridal {

namespace {
Context* sharedContext = nullptr;
}

Context& Context::shared()
{
    assert(sharedContext);
    return *sharedContext;
}

void Context::setShared(Context& context) { sharedContext = &context; }

} // namespace meridal
