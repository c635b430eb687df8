// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#import <Foundation/Foundation.h>

#include <optional>

namespace meridal {

/// A value as property-list objects (NSNull for null). Numbers keep their kind; text that is not UTF-8 is replaced
/// byte by byte. Nesting beyond maximumNesting becomes NSNull. Never nil.
id objectFromValue(const Value& value);

/// The value of an object that a client sent. NSDictionary with string keys, NSArray, NSString, NSNumber and NSNull;
/// anything else counts as null, and so does nil. Booleans and numbers are told apart. Absent when it nests deeper than
/// maximumNesting or holds more than maximumObjects.
std::optional<Value> valueFromObject(id object);

/// Objects that one argument may hold, itself and keys included: more than any honest client sends.
constexpr int maximumObjects = 262'144;

} // namespace meridal
