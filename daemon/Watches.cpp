// SPDX-License-Identifier: Apache-2.0
#include "daemon/Watches.h"

#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr double watchLeeway = 0.05;  // of an interval
constexpr double dueTolerance = 1e-3; // s, by which a timer may come early

/// Whoever watches at the same cadence is told at the same moments, so that one wake-up and one reading do for all.
double nextMoment(double now, double interval) { return std::ceil(now / interval + 0.5) * interval; }

bool isSame(const Caller& one, const Caller& other)
{
    return !one.link.owner_before(other.link) && !other.link.owner_before(one.link);
}

} // namespace

void Watches::addWatch(const std::string& method, double shortestInterval, State state, Changes changes)
{
    const auto same = [state = std::move(state)](const Value&) -> Result<State> { return state; };
    add({method, shortestInterval, same, std::move(changes), false});
}

void Watches::addChosenWatch(const std::string& method, double shortestInterval, Choose choose, Changes changes)
{
    add({method, shortestInterval, std::move(choose), std::move(changes), true});
}

void Watches::add(Subject made)
{
    const std::string method = made.method;
    const Subject& subject = subjects_[method] = std::move(made);
    methods_.addCallerMethod(
        method, [this, &subject](const Value& parameters, const Caller& caller, const NamedMethods::Reply& reply) {
            reply(answer(subject, parameters, caller));
        });
}

std::size_t Watches::count()
{
    forgetEnded();
    return watches_.size();
}

/// Takes nobody off the list, which may be gone through at the moment.
std::size_t Watches::count(const std::string& method) const
{
    return static_cast<std::size_t>(std::count_if(watches_.begin(), watches_.end(),
        [&method](const Watch& watch) { return watch.subject->method == method && !watch.caller.link.expired(); }));
}

/// Later, as this may be in the midst of telling others, whose states it is that brought the news.
void Watches::happened(const std::string& method)
{
    if (isNewsPosted_ || count(method) == 0) {
        return;
    }
    isNewsPosted_ = true;
    runtime_.mainQueue().post(lifetime_.guard([this] {
        isNewsPosted_ = false;
        tellAllThatAreDue(true);
    }));
}

Value Watches::changedMembers(const Value& before, const Value& now)
{
    constexpr const char* time = "time";
    Value changed = Value::object();
    for (const auto& [name, member] : now.items()) {
        const Value* known = meridal::find(before, name);
        if (name != time && (!known || *known != member)) {
            changed[name] = member;
        }
    }
    if (before.is_object()) {
        for (const auto& [name, member] : before.items()) {
            if (!now.contains(name)) {
                changed[name] = nullptr;
            }
        }
    }
    if (changed.empty()) {
        return nullptr;
    }
    if (const Value* moment = meridal::find(now, time)) {
        changed[time] = *moment;
    }
    return changed;
}

Result<Value> Watches::answer(const Subject& subject, const Value& given, const Caller& caller)
{
    Parameters parameters(given);
    const double interval = parameters.seconds("interval").value_or(subject.shortestInterval);
    if (interval != 0 && (interval < subject.shortestInterval || interval > longestInterval)) {
        parameters.refuse(fmt::format(
            "\"interval\" must be from {} to {} seconds, or 0 to end it", subject.shortestInterval, longestInterval));
    }
    if (!parameters.valid()) {
        return parameters.failure();
    }
    forgetEnded();
    if (interval == 0) {
        end(subject, caller);
        return Value();
    }
    if (caller.link.expired()) {
        return unexpected(ErrorCode::Unavailable, "there is no connection to tell changes over");
    }
    auto choice = subject.choose(given);
    if (!choice) {
        return Unexpected{choice.error()};
    }
    return *begin(subject, caller, interval, *std::move(choice));
}

std::shared_ptr<const Value> Watches::begin(const Subject& subject, const Caller& caller, double interval, State choice)
{
    auto state = choice(caller.peer); // which may be news, and tell others, before there is this watch
    Watch* watch = find(subject, caller);
    if (!watch) {
        watch = &watches_.emplace_back();
        watch->subject = &subject;
        watch->caller = caller;
    }
    watch->interval = interval;
    watch->due = nextMoment(runtime_.monotonicTime(), interval);
    watch->state = std::move(choice);
    // A notification that still waits is older than this answer and may come after it: then the next tells everything.
    watch->told = watch->sent.expired() ? state : nullptr;
    schedule();
    return state;
}

void Watches::end(const Subject& subject, const Caller& caller)
{
    std::erase_if(
        watches_, [&](const Watch& watch) { return watch.subject == &subject && isSame(watch.caller, caller); });
    schedule();
}

Watches::Watch* Watches::find(const Subject& subject, const Caller& caller)
{
    const auto found = std::find_if(watches_.begin(), watches_.end(),
        [&](const Watch& watch) { return watch.subject == &subject && isSame(watch.caller, caller); });
    return found == watches_.end() ? nullptr : &*found;
}

/// News is late where passes are, so half an interval before the time is near enough: the grid is what others keep to.
bool Watches::isDue(const Watch& watch, double now, bool isNews) const
{
    return watch.subject->waitsForNews ? isNews && watch.due <= now + watch.subject->shortestInterval / 2
                                       : watch.due <= now + dueTolerance;
}

void Watches::tellAllThatAreDue(bool isNews)
{
    forgetEnded();
    const double now = runtime_.monotonicTime();
    for (Watch& watch : watches_) {
        if (isDue(watch, now, isNews)) {
            watch.due = nextMoment(now, watch.interval);
            tell(watch);
        }
    }
    schedule();
}

void Watches::tell(Watch& watch)
{
    const auto link = watch.caller.link.lock();
    if (!link || !watch.sent.expired()) {
        return;
    }
    auto state = watch.state(watch.caller.peer);
    if (state == watch.told) {
        return;
    }
    const Value changes = watch.subject->changes(watch.told ? *watch.told : Value(), *state);
    watch.told = std::move(state);
    if (!changes.is_null()) {
        const auto envelope = std::make_shared<const Envelope>(watch.subject->method, serialise(changes));
        watch.sent = envelope;
        link->daemonResponse(envelope);
    }
}

void Watches::forgetEnded()
{
    std::erase_if(watches_, [](const Watch& watch) { return watch.caller.link.expired(); });
}

void Watches::schedule()
{
    const auto waits = [](const Watch& watch) { return watch.subject->waitsForNews; };
    const auto first =
        std::min_element(watches_.begin(), watches_.end(), [&waits](const Watch& one, const Watch& other) {
            return waits(one) != waits(other) ? waits(other) : one.due < other.due;
        });
    if (first == watches_.end() || waits(*first)) {
        timer_.reset();
        return;
    }
    const double wait = std::max(first->due - runtime_.monotonicTime(), 0.0);
    timer_ = runtime_.startTimer(runtime_.mainQueue(),
        {.first = wait, .interval = 0, .leeway = watchLeeway * first->interval}, [this] { tellAllThatAreDue(false); });
}

} // namespace meridal
