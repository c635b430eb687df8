// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

/// Unmaps the pages of the program and its libraries that hold code and constants. What is used again is mapped again as it
/// is met, out of the page cache, a few pages at a time. A debugger's breakpoints go with the pages that they are written to.
void releaseProgramPages();

} // namespace meridal
