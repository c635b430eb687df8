#include "client/commands/UptimeCommand.h"

#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/UptimeView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t usualBoots = 20;
constexpr std::size_t bootsPage = 500; // the daemon's own limit

/// Asks page after page until there are as many boots as wanted, or no more.
class UptimeQuery {
public:
    explicit UptimeQuery(Session& session) : session_(session)
    {
        const Arguments& arguments = session.arguments();
        wanted_ = !arguments.history ? 1 : arguments.rows > 0 ? arguments.rows : usualBoots;
        if (arguments.days > 0) {
            parameters_["from"] = wallTime() - arguments.days * day;
        }
    }

    void ask()
    {
        parameters_["limit"] = std::min(wanted_ - boots_.size(), bootsPage);
        session_.call(method::uptimeBoots, Value::array({parameters_}), [this](const Value& page) { take(page); });
    }

private:
    void take(const Value& page)
    {
        const Value* boots = find(page, "boots");
        if (!boots || !boots->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no boots: " + terminalJson(page));
        }
        boots_.insert(boots_.end(), boots->begin(), boots->end());
        const Value* more = find(page, "more");
        const auto last = boots->empty() ? std::nullopt : number(boots->back(), "boot");
        if (more && *more == true && boots_.size() < wanted_ && last) {
            parameters_["before"] = *last;
            return ask();
        }
        report(page);
    }

    void report(const Value& page)
    {
        const Arguments& arguments = session_.arguments();
        Value answer = page;
        if (arguments.history) {
            answer["boots"] = std::move(boots_);
        } else {
            answer.erase("boots");
            answer.erase("more");
        }
        const bool printed = arguments.json ? session_.print(terminalJson(answer) + '\n')
                                            : session_.print(uptimeLines(answer, arguments.history));
        if (printed) {
            session_.finish(exitStatus::success);
        }
    }

    Session& session_;
    std::size_t wanted_ = 0;
    Value parameters_ = Value::object();
    Value boots_ = Value::array();
};

} // namespace

int runUptime(Session& session)
{
    UptimeQuery query(session);
    return session.run([&query] { query.ask(); });
}

} // namespace meridal
