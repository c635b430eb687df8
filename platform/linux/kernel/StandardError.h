// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace meridal {

/// Whether a descriptor is the stream to the journal that systemd names in $JOURNAL_STREAM, as device and inode: what is
/// written there becomes a record a line, of the level in front of it. A terminal or pipe that came in its place is not.
bool leadsToJournal(int descriptor, std::string_view journalStream);

/// Has a crash (a signal of the processor's, an abort, an exception that nobody catches) write to standard error which one
/// it was and the calls that led there, a line each, before it ends the process as it would have. `program` begins the
/// first line, `prefix` ("<2>" for the journal) every one. The calls stand as the file and the offset in it, for
/// addr2line. Signals that somebody else waits for, such as a sanitizer, stay theirs.
void reportCrashes(std::string program, std::string_view prefix);

} // namespace meridal
