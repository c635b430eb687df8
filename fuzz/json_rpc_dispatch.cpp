// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/JsonRpcDispatcher.h"
#include "tests/support/VirtualRuntime.h"
#include "tests/transport/FakeDaemon.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Any line has exactly one outcome, and what goes back is one line of JSON.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    meridal::VirtualRuntime runtime;
    meridal::test::FakeNamedMethods named;
    meridal::test::FakeExportedConnection daemon;
    const meridal::JsonRpcDispatcher dispatcher(&named, runtime.mainQueue());
    int outcomes = 0;
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    dispatcher.dispatch(line, daemon, {}, [&](const meridal::JsonRpcOutcome& outcome) {
        ++outcomes;
        if (!outcome.answer) {
            return;
        }
        const std::string text = meridal::encode(*outcome.answer);
        if (text.find('\n') != text.size() - 1 || !meridal::Value::accept(text)) {
            std::abort();
        }
    });
    runtime.runDue();
    if (outcomes != 1 || daemon.calls().size() > 1) {
        std::abort();
    }
    return 0;
}
