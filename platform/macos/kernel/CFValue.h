// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"

#include <CoreFoundation/CoreFoundation.h>

namespace meridal {

/// A property list as a Value: strings and data as text (data up to its first NUL), numbers and booleans as such, dates as
/// seconds since 1970, arrays and dictionaries with what can be had of their content. Null for anything else, and for
/// what lies deeper than maximumNesting.
Value valueOf(CFTypeRef object);

} // namespace meridal
