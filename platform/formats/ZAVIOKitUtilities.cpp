// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/ZAVIOKitUtilities.h"

#include "base/Value.h"

namespace meridal {

Value ZAVIOKitUtilities::searchForKeyInParents(std::string_view key, int limit, const RegistryEntry& object)
{
    RegistryEntryPtr entry = object.parent();
    for (int level = 0; entry && level < limit; ++level, entry = entry->parent()) {
        Value found = entry->property(key);
        if (!found.is_null()) {
            return found;
        }
    }
    return nullptr;
}

} // namespace meridal
