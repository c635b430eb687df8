// SPDX-License-Identifier: Apache-2.0
#include "client/views/ReasonsView.h"

#include "client/screen/WallClock.h"

#include <string>

namespace meridal {

Lines verdictLines(const Evidence& evidence, const Verdict& verdict)
{
    Lines lines;
    if (!evidence.isNow) {
        lines.push_back({{Style::Title, formatWithZone(evidence.time)}});
    }
    if (verdict.causes.empty()) {
        lines.push_back({{Style::Title, verdict.isKnown ? "Nothing stands out." : "That cannot be said."}});
    }
    for (const Verdict::Cause& cause : verdict.causes) {
        lines.push_back({{Style::Title, cause.text}});
    }
    for (const std::string& remark : verdict.remarks) {
        lines.push_back({{Style::Plain, remark}});
    }
    for (const std::string& what : verdict.notKnown) {
        lines.push_back({{Style::Faint, "Not known: " + what + "."}});
    }
    return lines;
}

Value verdictValue(std::string_view complaint, const Evidence& evidence, const Verdict& verdict)
{
    Value causes = Value::array();
    for (const Verdict::Cause& cause : verdict.causes) {
        Value one{{"text", cause.text}};
        put(one, "since", cause.since);
        causes.push_back(std::move(one));
    }
    return {{"complaint", complaint}, {"time", evidence.time}, {"now", evidence.isNow}, {"known", verdict.isKnown},
        {"standsOut", !verdict.causes.empty()}, {"causes", std::move(causes)}, {"remarks", verdict.remarks},
        {"notKnown", verdict.notKnown}};
}

} // namespace meridal
