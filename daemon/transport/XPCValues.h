// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#import <Foundation/Foundation.h>

#include <optional>

namespace meridal {

/// A value as property-list objects. Numbers keep their kind; text that is not UTF-8 is replaced byte by byte. What is null
/// or nests beyond maximumNesting is left out of arrays and dictionaries: NSNull is in no list of classes that a connection
/// decodes, and would cost the client the whole message. Such a value itself is NSNull. Never nil.
id objectFromValue(const Value& value);

/// The value of an object that a client sent. NSDictionary with string keys, NSArray, NSString, NSNumber and NSNull;
/// anything else counts as null, and so does nil. Booleans and numbers are told apart. Absent when it nests deeper than
/// maximumNesting or holds more than maximumObjects.
std::optional<Value> valueFromObject(id object);

/// Objects that one argument may hold, itself and keys included: more than any honest client sends.
constexpr int maximumObjects = 262'144;

} // namespace meridal
