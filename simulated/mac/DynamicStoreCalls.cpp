// SPDX-License-Identifier: Apache-2.0
#include <SystemConfiguration/SystemConfiguration.h>

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"
#include "simulated/mac/SystemConfiguration.h"

#include <algorithm>
#include <utility>

namespace meridal::test {

namespace {

/// Changes that lie close together are told in one call. Who has no queue any more is not called.
void tellSession(SCDynamicStoreRef store)
{
    auto& session = SystemConfiguration::current().sessions.at(store);
    Value keys = Value::array();
    for (const std::string& key : std::exchange(session.untold, {})) {
        keys.push_back(key);
    }
    CFTypeRef list = objectOf(keys);
    session.callback(store, static_cast<CFArrayRef>(list), session.context.info);
    CFRelease(list);
}

} // namespace

SystemConfiguration& SystemConfiguration::current()
{
    static SystemConfiguration configuration;
    return configuration;
}

void SystemConfiguration::changed(const std::vector<std::string>& keys)
{
    for (auto& [owner, session] : sessions) {
        const bool isToldAlready = !session.untold.empty();
        std::copy_if(keys.begin(), keys.end(), std::inserter(session.untold, session.untold.end()),
            [&session = session](const std::string& key) { return session.keys.contains(key); });
        if (session.hasQueue && !isToldAlready && (keys.empty() || !session.untold.empty())) {
            Ledger::current().post(owner, [owner = owner] { tellSession(owner); });
        }
    }
}

void SystemConfiguration::reset()
{
    interfaces.clear();
    refreshed.clear();
    store.clear();
    sets.clear();
    saved.clear();
    inEffect.clear();
    error = kSCStatusOK;
}

} // namespace meridal::test

using namespace meridal::test;

const CFStringRef kSCDynamicStorePropNetPrimaryInterface = constantString("PrimaryInterface");
const CFStringRef kSCPropNetIPv4Router = constantString("Router");
const CFStringRef kSCPropNetIPv6Router = constantString("Router");

extern "C" {

int SCError() { return SystemConfiguration::current().error; }

const char* SCErrorString(int status)
{
    switch (status) {
    case kSCStatusOK:
        return "Success!";
    case kSCStatusAccessError:
        return "Permission denied";
    case kSCStatusNoKey:
        return "No such key";
    default:
        return "Failed!";
    }
}

SCDynamicStoreRef SCDynamicStoreCreate(
    CFAllocatorRef, CFStringRef name, SCDynamicStoreCallBack callback, SCDynamicStoreContext* context)
{
    if (const auto fault = Ledger::current().call("SCDynamicStoreCreate")) {
        SystemConfiguration::current().error = *fault;
        return nullptr;
    }
    Object session{.text = "session with the dynamic store: " + textIn(name)};
    const auto store = makeAs<SCDynamicStoreRef>(std::move(session));
    SystemConfiguration::current().sessions[store] = {callback, context ? *context : SCDynamicStoreContext()};
    objectAt(store).ended = [store] {
        Ledger::current().forget(store);
        SystemConfiguration::current().sessions.erase(store);
    };
    return store;
}

/// Who is called back holds the session until the queue is taken away.
Boolean SCDynamicStoreSetDispatchQueue(SCDynamicStoreRef store, dispatch_queue_t queue)
{
    auto& session = SystemConfiguration::current().sessions.at(store);
    if ((queue != nullptr) == session.hasQueue || Ledger::current().call("SCDynamicStoreSetDispatchQueue")) {
        return 0;
    }
    session.hasQueue = queue != nullptr;
    if (queue == dispatch_get_main_queue()) {
        CFRetain(store);
    } else {
        Ledger::current().forget(store);
        CFRelease(store);
    }
    return 1;
}

Boolean SCDynamicStoreSetNotificationKeys(SCDynamicStoreRef store, CFArrayRef keys, CFArrayRef)
{
    auto& session = SystemConfiguration::current().sessions.at(store);
    if (!session.hasQueue) {
        Ledger::misuse("a change before the session has its queue would be told with the next one only");
    }
    session.keys.clear();
    for (CFTypeRef key : objectAt(keys).items) {
        session.keys.insert(textIn(key));
    }
    return 1;
}

CFPropertyListRef SCDynamicStoreCopyValue(SCDynamicStoreRef store, CFStringRef key)
{
    objectAt(store);
    const auto& values = SystemConfiguration::current().store;
    const auto found = values.find(textIn(key));
    SystemConfiguration::current().error = found == values.end() ? kSCStatusNoKey : kSCStatusOK;
    return found == values.end() ? nullptr : objectOf(found->second);
}
}
