// SPDX-License-Identifier: Apache-2.0
#include "daemon/MeridalHistory.h"

#include "base/Runtime.h"
#include "base/Value.h"

#include <utility>

namespace meridal {

MeridalHistory::MeridalHistory(Queue& mainQueue) : mainQueue_(mainQueue) { }

void MeridalHistory::addMethod(std::string name, Method method)
{
    addAsyncMethod(
        std::move(name), [method = std::move(method)](const Value& parameters, const Peer&, const Reply& reply) {
            reply(method(parameters));
        });
}

void MeridalHistory::addAsyncMethod(std::string name, AsyncMethod method)
{
    addCallerMethod(
        std::move(name), [method = std::move(method)](const Value& parameters, const Caller& caller, Reply reply) {
            method(parameters, caller.peer, std::move(reply));
        });
}

void MeridalHistory::addCallerMethod(std::string name, CallerMethod method)
{
    methods_.insert_or_assign(std::move(name), std::move(method));
}

bool MeridalHistory::hasMethod(std::string_view name) const { return methods_.find(name) != methods_.end(); }

void MeridalHistory::call(std::string_view name, const Value& parameters, const Caller& caller, Reply reply)
{
    const auto method = methods_.find(name);
    if (method == methods_.end()) {
        return reply(unexpected(ErrorCode::NotFound, "no such method"));
    }
    mainQueue_.post([&function = method->second, parameters, caller, reply = std::move(reply)] {
        function(parameters, caller, reply);
    });
}

} // namespace meridal
