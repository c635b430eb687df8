// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "base/Value.h"
#include "client/commands/Commands.h"
#include "client/screen/Format.h"

#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr const char* callExamples = R"(A parameter that is not JSON is taken as text; "--" goes before parameters that
begin with a dash and are no number. Prints the result as JSON.

Examples:
  meridalctl call version:
  meridalctl call infoForPids:reply: '[1, 2]'
  meridalctl call refreshDHCP: eth0
)";

struct CallOptions {
    std::string method;
    std::vector<std::string> parameters; ///< of the method, as typed
};

int runCall(Session& session, const CallOptions& options)
{
    Value parameters = Value::array();
    for (const std::string& word : options.parameters) {
        auto parsed = parseUntrusted(word);
        parameters.push_back(parsed ? std::move(*parsed) : Value(validUtf8(word)));
    }
    return session.run([&] {
        session.call(
            options.method, parameters, [&session](const Value& result) { session.conclude(jsonLine(result)); });
    });
}

} // namespace

void addCall(Grammar& grammar)
{
    auto [call, options] = grammar.add("call", "Call any method of the daemon", runCall);
    call.examples(callExamples);
    call.word("method", options.method, "The method's full name, such as version:");
    call.rawWords("parameter", options.parameters, "Its parameters, in order");
}

} // namespace meridal
