#include "client/commands/DisksCommand.h"

#include "client/screen/Format.h"
#include "client/views/DisksView.h"
#include "wire/Methods.h"

#include <utility>

namespace meridal {

namespace {

/// Holds the key of disk health, without which no disk is read, and asks page after page.
class DisksQuery {
public:
    explicit DisksQuery(Session& session) : session_(session)
    {
        if (session.arguments().attributes) {
            parameters_["attributes"] = true;
        }
    }

    void start()
    {
        session_.call(method::startSMARTStatus, Value::array(), [this](const Value&) { ask(); });
    }

private:
    void ask()
    {
        session_.call(method::disksList, Value::array({parameters_}), [this](const Value& page) { take(page); });
    }

    void take(const Value& page)
    {
        const Value* disks = find(page, "disks");
        if (!disks || !disks->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no disks: " + terminalJson(page));
        }
        disks_.insert(disks_.end(), disks->begin(), disks->end());
        const Value* more = find(page, "more");
        auto last = disks->empty() ? std::nullopt : text(disks->back(), "key");
        if (more && *more == true && last) {
            parameters_["after"] = std::move(*last);
            return ask();
        }
        report();
    }

    void report()
    {
        const Arguments& arguments = session_.arguments();
        const bool printed = arguments.json ? session_.print(terminalJson({{"disks", disks_}}) + '\n')
                                            : session_.print(diskLines(disks_, arguments.attributes));
        if (printed) {
            session_.finish(exitStatus::success);
        }
    }

    Session& session_;
    Value parameters_ = Value::object();
    Value disks_ = Value::array();
};

} // namespace

int runDisks(Session& session)
{
    DisksQuery query(session);
    return session.run([&query] { query.start(); });
}

} // namespace meridal
