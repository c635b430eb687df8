// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/commands/Session.h"
#include "client/commands/Syntax.h"

#include <functional>
#include <span>

namespace meridal {

/// For whom a list of rows is printed; for people when nothing is said.
struct RowsForm {
    bool csv = false;
    bool json = false;
};

/// Adds --json and --csv, of which one goes.
void addRowsOptions(Syntax& syntax, RowsForm& form);

/// A list in each of its forms.
struct RowsReport {
    Value answer;                         ///< an object, for --json
    const char* list = "";                ///< its entry that has the rows
    std::span<const char* const> columns; ///< of --csv
    std::function<Lines(int room)> lines; ///< for people; `room` is the width that there is, 0 for any
};

/// Prints it in the form that was asked for, and ends the run.
void concludeRows(Session& session, RowsForm form, const RowsReport& report);

} // namespace meridal
