// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace meridal {

class SensorStatCollectorItem;

/// Names and keys are kept for as long as the item lives: what is longer than this is cut, or is no key. Bytes.
constexpr std::size_t longestSensorName = 256;

/// The client's configurations or entries; what is no array holds none.
const Value& sensorList(const Value& given);

/// Those of some entries whose key one of the client's configurations has: what came without being named is nobody's wish.
Value configuredEntries(const Value& entries, const Value& configurations);

/// As much of a text as fits into so many bytes, not cut in the midst of a character.
std::string shortenedText(const std::string& text, std::size_t longest);

/// Whether the sensor of an entry is made of more keys than are sampled for one.
bool makesTooManyKeys(const Value& entry);

/// Brings an item up to date with its entry, which has this place in its list.
void takeSensorEntry(SensorStatCollectorItem& item, const Value& entry, std::int64_t index);

} // namespace meridal
