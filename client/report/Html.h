// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <string>
#include <string_view>

namespace meridal {

/// What commands print, as an element for a page: the same words in columns, a class for each style. `isWrapped`: they are
/// sentences, which go on in the next line where there is too little room.
std::string htmlOf(const Lines& lines, bool isWrapped = false);

/// A page that needs nothing else: no script, nothing loaded from elsewhere, light or dark as the reader's system is.
/// `title` is any text; `body` is HTML.
std::string htmlPage(std::string_view title, std::string_view body);

/// A heading, and what stands below it; nothing where there is nothing. `title` is any text; `body` is HTML.
std::string htmlSection(std::string_view title, std::string_view body);

} // namespace meridal
