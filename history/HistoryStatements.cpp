#include "history/HistoryStatements.h"

namespace meridal {

InsertPlan makeInsertPlan(
    const Dictionary& config, std::string_view sqlKey, std::string_view keysKey, std::string_view table)
{
    InsertPlan plan;
    const auto format = text(config, sqlKey);
    if (!format || table.empty()) {
        return plan;
    }
    plan.text = std::make_shared<const StatementText>(table, *format);
    const Value* keys = find(config, keysKey);
    if (keys && keys->is_array()) {
        for (const Value& key : *keys) {
            if (key.is_string()) {
                plan.keys.push_back(key.get<std::string>());
            }
        }
    }
    return plan;
}

} // namespace meridal
