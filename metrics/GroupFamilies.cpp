// SPDX-License-Identifier: Apache-2.0
#include "metrics/GroupFamilies.h"

namespace meridal {

std::string groupLabels(const std::string& name, const std::string& identity, const std::optional<std::int64_t>& user)
{
    constexpr std::string_view unitPrefix = "unit:";
    const std::string unit = identity.starts_with(unitPrefix) ? identity.substr(unitPrefix.size()) : "";
    return MetricsWriter::labelText(
        {{"group", name}, {"identity", identity}, {"unit", unit}, {"user", user ? std::to_string(*user) : ""}});
}

} // namespace meridal
