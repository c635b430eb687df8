// SPDX-License-Identifier: Apache-2.0
#include "collectors/uptime/UptimeStatCollector.h"

#include "base/Value.h"

namespace meridal {

UptimeStatCollector::UptimeStatCollector(Context& context) : StatCollector(context, "UptimeStatCollector")
{
    config()["xmlNoSamples"] = true;
}

} // namespace meridal
