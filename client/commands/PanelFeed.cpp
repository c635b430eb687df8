// SPDX-License-Identifier: Apache-2.0
#include "client/commands/PanelFeed.h"

#include "client/screen/WallClock.h"
#include "wire/Methods.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace meridal {

namespace {

using Kind = PanelQuestion::Kind;

constexpr int listInterval = 2; // s; the daemon notes it and keeps its own rhythm

} // namespace

PanelFeed::PanelFeed(Session& session, Task told) : session_(session), told_(std::move(told)) { }

PanelFeed::~PanelFeed() = default;

void PanelFeed::serve(Panel* panel)
{
    for (const auto& [name, asked] : asked_) {
        drop(asked);
    }
    asked_.clear();
    panel_ = panel;
}

void PanelFeed::update(const PanelView& view)
{
    const bool mayAsk = panel_ && session_.client().isConnected() && (!view.moment || panel_->showsPast());
    const auto wanted = mayAsk ? panel_->questions(view) : std::vector<PanelQuestion>();
    for (auto asked = asked_.begin(); asked != asked_.end();) {
        const bool isWanted = std::find(wanted.begin(), wanted.end(), asked->second.question) != wanted.end();
        if (!isWanted) {
            drop(asked->second);
        }
        asked = isWanted ? std::next(asked) : asked_.erase(asked);
    }
    for (const PanelQuestion& question : wanted) {
        if (!asked_.contains(question.name)) {
            asked_[question.name] = {.question = question};
            ask(question.name);
        }
    }
}

void PanelFeed::restart(const PanelView& view)
{
    asked_.clear();
    update(view);
}

void PanelFeed::ask(const std::string& name)
{
    Asked& asked = asked_[name];
    asked.number = ++latest_;
    if (asked.question.kind == Kind::List) {
        askForList(asked.question);
        return;
    }
    // A copy: within the call the answer may come, and with it other questions.
    const PanelQuestion question = asked.question;
    session_.client().call(question.method, question.parameters,
        lifetime_.guard(
            [this, name, number = asked.number](const Result<Value>& result) { answered(name, number, result); }));
}

void PanelFeed::askForList(const PanelQuestion& question)
{
    session_.tell(method::startRequestWithKey, Value::array({question.parameters, listInterval}));
}

void PanelFeed::answered(const std::string& name, std::uint64_t number, const Result<Value>& result)
{
    const auto found = asked_.find(name);
    if (found == asked_.end() || found->second.number != number) {
        return; // it is wanted no more, or has been asked anew
    }
    Asked& asked = found->second;
    asked.isAnswered = true;
    if (asked.question.kind == Kind::Answer && asked.question.interval > 0) {
        asked.next = session_.loop().after(asked.question.interval, [this, name] {
            if (!isPaused_ && session_.client().isConnected()) {
                ask(name);
            }
        });
    }
    if (!result && result.error().code == ErrorCode::Unavailable && !session_.client().isConnected()) {
        return; // that the daemon has gone is said once, and not in its place
    }
    tell(name, result, false);
}

void PanelFeed::envelopeArrived(const Dictionary& envelope)
{
    const std::string key = text(envelope, "type").value_or("");
    const auto isIt = [&](const auto& each) {
        return each.second.question.kind == Kind::List && serialise(each.second.question.parameters) == key;
    };
    const auto found = std::find_if(asked_.begin(), asked_.end(), isIt);
    if (found != asked_.end() && !isPaused_) {
        tell(std::string(found->first), Value(envelope), false);
    }
}

void PanelFeed::changed(const Notification& notification)
{
    const auto isIt = [&](const auto& each) {
        return each.second.question.kind == Kind::Watch && each.second.question.method == notification.method
            && each.second.isAnswered;
    };
    const auto found = std::find_if(asked_.begin(), asked_.end(), isIt);
    if (found != asked_.end() && !isPaused_) {
        tell(std::string(found->first), Value(notification.changes), true);
    }
}

void PanelFeed::tell(const std::string& name, const Result<Value>& result, bool isChange)
{
    panel_->take(
        {.name = name, .result = result, .time = wallTime(), .clock = session_.loop().now(), .isChange = isChange});
    told_();
}

/// Lets the daemon do no more than is looked at.
void PanelFeed::drop(const Asked& asked)
{
    if (!session_.client().isConnected()) {
        return;
    }
    const auto ignore = [](const Result<Value>&) {};
    if (asked.question.kind == Kind::Watch) {
        session_.client().call(asked.question.method, {{"interval", 0}}, ignore);
    } else if (asked.question.kind == Kind::List) {
        session_.client().call(method::stopRequestWithKey, Value::array({asked.question.parameters}), ignore);
    }
}

} // namespace meridal
