// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Link.h"

#include <functional>
#include <map>
#include <string>

namespace meridal {

class Queue;

/// The second interface: named methods that give what clients would otherwise read out of the daemon's files, and the
/// daemon's own state. Methods are added before the first listener starts; calls may come on any thread and are
/// answered on the main queue.
class MeridalHistory final : public NamedMethods {
public:
    using Method = std::function<Result<Value>(const Value& parameters)>;
    /// A method that answers later, once, and may answer according to who asks.
    using AsyncMethod = std::function<void(const Value& parameters, const Peer& peer, Reply reply)>;

    /// One that may tell its caller more than the answer.
    using CallerMethod = std::function<void(const Value& parameters, const Caller& caller, Reply reply)>;

    explicit MeridalHistory(Queue& mainQueue);

    void addMethod(std::string name, Method method);
    void addAsyncMethod(std::string name, AsyncMethod method);
    void addCallerMethod(std::string name, CallerMethod method);

    bool hasMethod(std::string_view name) const override;
    void call(std::string_view name, const Value& parameters, const Caller& caller, Reply reply) override;

private:
    Queue& mainQueue_;
    std::map<std::string, CallerMethod, std::less<>> methods_;
};

} // namespace meridal
