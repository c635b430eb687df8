// SPDX-License-Identifier: Apache-2.0
#include "base/Value.h"
#include "client/commands/Commands.h"
#include "client/screen/Format.h"
#include "client/screen/Output.h"
#include "wire/Methods.h"
#include "wire/RequestKey.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

namespace {

constexpr double reconnectInterval = 1; // s
constexpr int watchRequestInterval = 2; // s; the daemon notes it and keeps its own rhythm

constexpr const char* watchExamples = R"(Prints what the daemon sends, one JSON object a line, until interrupted.
Keys, by name or number: cpu 1, memory 2, disk 4, network 8, energy 16,
smart-temperatures 32, smart-status 64, battery 128.

Examples:
  meridalctl watch cpu battery
  meridalctl watch memory --count 2 | tail -n 1
)";

struct WatchOptions {
    std::vector<std::string> keys; ///< names or numbers
    bool hierarchy = false;
    std::size_t count = 0; ///< stop after so many lines; 0: never
};

/// All that anything answers.
constexpr std::int64_t allKeys = [] {
    std::int64_t keys = 0;
    for (const RequestKeyName& named : requestKeyNames) {
        keys |= mask(named.key);
    }
    return keys;
}();

/// The key of that name or number, or the sum of several; nothing when it is none.
std::optional<std::int64_t> watchKey(const std::string& word)
{
    for (const RequestKeyName& named : requestKeyNames) {
        if (named.name == word) {
            return mask(named.key);
        }
    }
    errno = 0;
    char* end = nullptr;
    const std::int64_t number = std::strtoll(word.c_str(), &end, 0);
    const bool isKey = errno == 0 && *end == '\0' && number > 0 && (number & ~allKeys) == 0;
    return isKey ? std::optional(number) : std::nullopt;
}

class Watcher {
public:
    Watcher(Session& session, const WatchOptions& options) : session_(session), options_(options)
    {
        for (const std::string& word : options.keys) {
            keys_.push_back(*watchKey(word));
        }
    }

    void start()
    {
        session_.client().setReconnectInterval(reconnectInterval);
        session_.client().setEvents({[this] { connected(); },
            [this](const Error&) {
                complain("the daemon at " + session_.client().socketPath() + " closed the connection; waiting for it");
            },
            [this](const Dictionary& envelope) { received(envelope); }});
    }

private:
    void connected()
    {
        if (options_.hierarchy) {
            session_.tell(method::enableHierachy, Value::array());
        }
        for (const std::int64_t key : keys_) {
            if (key == mask(RequestKey::SmartTemperatures)) {
                session_.tell(
                    method::startSMARTTemps, Value::array()); // unlike a plain request these also open the disks
            } else if (key == mask(RequestKey::SmartStatus)) {
                session_.tell(method::startSMARTStatus, Value::array());
            } else {
                session_.tell(method::startRequestWithKey, Value::array({key, watchRequestInterval}));
            }
        }
    }

    /// The daemon sends network lists to everybody once one client asks for them.
    bool isWanted(const Dictionary& envelope) const
    {
        const auto type = parseUntrusted(text(envelope, "type").value_or(""));
        if (!type || !type->is_number_integer()) {
            return false;
        }
        const auto bits = type->get<std::int64_t>();
        for (const std::int64_t key : keys_) {
            if ((key & bits) != 0) {
                return true;
            }
        }
        return false;
    }

    void received(const Dictionary& envelope)
    {
        const bool wanted = isWanted(envelope);
        if (wanted && session_.print(jsonLine(envelope)) && ++printed_ == options_.count) {
            session_.finish(exitStatus::success);
        }
    }

    Session& session_;
    const WatchOptions& options_;
    std::vector<std::int64_t> keys_;
    std::size_t printed_ = 0;
};

int runWatch(Session& session, const WatchOptions& options)
{
    Watcher watcher(session, options);
    return session.runUntilInterrupted([&watcher] { watcher.start(); });
}

} // namespace

void addWatch(Grammar& grammar)
{
    auto [watch, options] = grammar.add("watch", "Print the daemon's results as JSON lines", runWatch);
    watch.examples(watchExamples);
    watch.words("key", options.keys, "What to watch, by name or number", [](const std::string& word) {
        return watchKey(word) ? std::string()
                              : '"' + word
                + "\" is no key: nothing would come. There are cpu 1, memory 2, disk 4, "
                  "network 8, energy 16, smart-temperatures 32, smart-status 64, battery 128";
    });
    watch.flag("--hierarchy", options.hierarchy, "Group processes under the one responsible for them");
    watch.count("-n,--count", options.count, "Stop after so many lines");
}

} // namespace meridal
