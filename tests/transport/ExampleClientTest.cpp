#include "tests/transport/SocketFixture.h"

#include <cstdlib>

namespace meridal {
namespace {

class ExampleClientTest : public test::SocketFixture { };

/// The client that docs/protocol.md shows, against a daemon that has nothing to report: what it expects of every method
/// and what goes over the wire agree. When envelopes come is checked against the real daemon.
TEST_F(ExampleClientTest, TheDocumentedClientAgreesOnEveryMethod)
{
    prepare = [this](test::FakeExportedConnection& exported, std::size_t index) {
        exported.onCall = [this, index](const std::string& selector, const Value& arguments) {
            const std::string type = selector == "startRequestWithKey:interval:"
                ? std::to_string(arguments[0].get<int>())
                : selector == "startSMARTStatus"                            ? "64"
                : selector == "smartTemps" || selector == "startSMARTTemps" ? "32"
                                                                            : "";
            if (!type.empty()) {
                Dictionary dictionary{{"type", type}};
                if (type == "1" || type == "2" || type == "16") {
                    dictionary["processes"] = Value::array();
                }
                mainQueue.post([link = client(index).link, dictionary = std::move(dictionary)] {
                    link->daemonResponse(std::make_shared<const Envelope>(dictionary));
                });
            }
        };
    };
    listen();
    const std::string command = "PYTHONDONTWRITEBYTECODE=1 python3 " MERIDAL_SOURCE_DIR
                                "/tests/transport/python/client_test.py --no-cadence --actions --socket "
        + path.string();
    EXPECT_EQ(std::system(command.c_str()), 0);
}

} // namespace
} // namespace meridal
