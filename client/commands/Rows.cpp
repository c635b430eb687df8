// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Rows.h"

#include "client/screen/Terminal.h"
#include "client/views/Answers.h"

namespace meridal {

void addRowsOptions(Syntax& syntax, RowsForm& form)
{
    syntax.flag("--json", form.json, "As JSON");
    syntax.flag("--csv", form.csv, "As comma-separated values");
    syntax.exclude("--csv", "--json");
}

void concludeRows(Session& session, RowsForm form, const RowsReport& report)
{
    if (form.json) {
        return session.conclude(answerLine(report.answer));
    }
    if (form.csv) {
        return session.conclude(csvOf(report.answer.at(report.list), report.columns));
    }
    session.conclude(report.lines(terminalColumns().value_or(0)));
}

} // namespace meridal
