#include "client/commands/BatteryCommand.h"

#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/BatteryView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t usualChanges = 20;
constexpr std::size_t changesPage = 500; // the daemon's own limit
constexpr int chartColumns = 80;
constexpr std::array<const char*, 2> figures = {"health", "cycles"};

/// Asks for the state, then page after page of each figure's history until there are as many rows as wanted.
class BatteryQuery {
public:
    explicit BatteryQuery(Session& session) : session_(session)
    {
        const Arguments& arguments = session.arguments();
        wanted_ = arguments.rows > 0 ? arguments.rows : usualChanges;
    }

    void ask()
    {
        session_.call(method::batteryState, Value::array(), [this](const Value& state) {
            const Value* batteries = find(state, "batteries");
            if (!batteries || !batteries->is_array()) {
                return session_.fail(
                    exitStatus::refused, "the daemon's answer tells no batteries: " + terminalJson(state));
            }
            state_ = state;
            session_.arguments().history ? askHistory() : report();
        });
    }

private:
    void askHistory()
    {
        if (figure_ == figures.size()) {
            state_["history"] = std::move(history_);
            return report();
        }
        rows_ = Value::array();
        parameters_ = {{"figure", figures[figure_]}};
        if (session_.arguments().days > 0) {
            parameters_["from"] = wallTime() - session_.arguments().days * day;
        }
        askPage();
    }

    void askPage()
    {
        parameters_["limit"] = std::min(wanted_ - rows_.size(), changesPage);
        session_.call(method::batteryHistory, Value::array({parameters_}), [this](const Value& page) { take(page); });
    }

    void take(const Value& page)
    {
        const Value* rows = find(page, "rows");
        if (!rows || !rows->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no history: " + terminalJson(page));
        }
        rows_.insert(rows_.end(), rows->begin(), rows->end());
        const Value* more = find(page, "more");
        const auto last = rows->empty() ? std::nullopt : integer(rows->back(), "row");
        if (more && *more == true && rows_.size() < wanted_ && last) {
            parameters_["before"] = *last;
            return askPage();
        }
        history_[figures[figure_++]] = std::move(rows_);
        askHistory();
    }

    void report()
    {
        const bool printed = session_.arguments().json
            ? session_.print(terminalJson(state_) + '\n')
            : session_.print(batteryLines(state_, terminalColumns().value_or(chartColumns)));
        if (printed) {
            session_.finish(exitStatus::success);
        }
    }

    Session& session_;
    std::size_t wanted_ = 0;
    std::size_t figure_ = 0;
    Value state_;
    Value parameters_;
    Value rows_;
    Value history_ = Value::object();
};

} // namespace

int runBattery(Session& session)
{
    BatteryQuery query(session);
    return session.run([&query] { query.ask(); });
}

} // namespace meridal
