// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/LiveScreen.h"

#include "base/Value.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace meridal {

/// What a view shows again and again.
struct RepeatedQuestion {
    std::function<void(std::function<void(Value)> use)> ask; ///< the daemon; hands on an object, fit for --json
    std::string list; ///< the entry of that object which tells whether there is anything: text of nothing is shown once
    std::function<Lines(const Value& answer, int room)> lines;
    double interval = 2;       ///< s between an answer and the next question
    bool json = false;         ///< an object a refresh, else text
    std::size_t refreshes = 0; ///< stop after so many, as text; 0: never
};

/// Asks and shows, on the whole terminal where there is one, else block after block.
class RepeatedView {
public:
    RepeatedView(Session& session, RepeatedQuestion question) : session_(session), question_(std::move(question)) { }

    /// Call once connected. Goes on until the session ends.
    void start();

private:
    void ask();
    void show(const Value& answer);
    void paint();

    Session& session_;
    const RepeatedQuestion question_;
    Value answer_; ///< the latest
    std::size_t shown_ = 0;
    std::unique_ptr<LiveScreen> screen_;
    std::unique_ptr<Timer> next_;
};

} // namespace meridal
