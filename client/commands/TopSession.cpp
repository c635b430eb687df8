// SPDX-License-Identifier: Apache-2.0
#include "client/commands/TopSession.h"

#include "client/screen/WallClock.h"
#include "wire/Methods.h"

#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr double topReconnectInterval = 1; // s
constexpr int requestInterval = 2;         // s; the daemon notes it and keeps its own rhythm
constexpr std::size_t listsPerStatus = 5;  // the daemon's own cost changes slowly

} // namespace

TopSession::TopSession(Session& session, TopDisplay& display, TopFeed feed)
    : session_(session), display_(display), feed_(feed)
{
    frame_.list = feed.list;
    frame_.hierarchy = feed.hierarchy;
}

void TopSession::start()
{
    session_.client().setReconnectInterval(topReconnectInterval);
    session_.client().setEvents({[this] { connected(); }, [this](const Error&) { disconnected(); },
        [this](const Dictionary& envelope) { received(envelope); }});
}

void TopSession::choose(RequestKey list)
{
    if (list == frame_.list) {
        return;
    }
    session_.tell(method::stopRequestWithKey, Value::array({mask(frame_.list)}));
    frame_.list = list;
    frame_.table.reset();
    askForList();
    display_.frameChanged(frame_);
}

void TopSession::toggleHierarchy()
{
    frame_.hierarchy = !frame_.hierarchy;
    session_.tell(frame_.hierarchy ? method::enableHierachy : method::disableHierachy, Value::array());
    askForList(); // asked again, it answers at once
    display_.frameChanged(frame_);
}

void TopSession::connected()
{
    frame_.connected = true;
    if (frame_.hierarchy) {
        session_.tell(method::enableHierachy, Value::array());
    }
    askForList();
    if (feed_.hasStatus) {
        askForStatus();
    }
    display_.frameChanged(frame_);
}

void TopSession::disconnected()
{
    frame_.connected = false;
    display_.frameChanged(frame_);
}

void TopSession::received(const Dictionary& envelope)
{
    if (text(envelope, "type") != std::to_string(mask(frame_.list))) {
        return; // of a list just left, or one that the daemon sends to everybody
    }
    const double now = session_.loop().now();
    const auto before = std::exchange(latestList_, now);
    firstList_ = firstList_.value_or(now);
    if (now - *firstList_ < feed_.settle) {
        return;
    }
    frame_.table =
        readTopTable(frame_.list, envelope, before ? std::optional(now - *before) : std::nullopt, wallTime());
    if (feed_.hasStatus && ++lists_ % listsPerStatus == 0) {
        askForStatus();
    }
    display_.tableArrived(frame_);
}

void TopSession::askForList()
{
    firstList_.reset();
    latestList_.reset();
    session_.tell(method::startRequestWithKey, Value::array({mask(frame_.list), requestInterval}));
}

void TopSession::askForStatus()
{
    session_.client().call(method::status, Value::array(), [this](const Result<Value>& result) {
        if (result) {
            frame_.status = *result;
            display_.frameChanged(frame_);
        }
    });
}

} // namespace meridal
