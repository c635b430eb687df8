// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/ProcessStatCollector.h"
#include "daemon/MRDXPCServerConnection.h"
#include "daemon/MeridalDaemon.h"
#include "tests/daemon/AllServices.h"
#include "tests/support/FakeClient.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace meridal::test {

/// A daemon with all its services on a fake machine.
class DaemonTest : public ::testing::Test {
protected:
    struct Client {
        std::shared_ptr<FakeClient> link;
        std::shared_ptr<ExportedConnection> daemon;
    };

    explicit DaemonTest(bool isRecording = false) : house{machine, collector, power, isRecording}
    {
        machine.processes().set({.pid = 1, .name = "launchd"});
        machine.processes().set({.pid = 42, .parentPid = 1, .present = ProcessFields::All, .name = "worker"});
    }

    MeridalDaemon& start()
    {
        machine.trafficCounters().refusal.reset();
        daemon = std::make_unique<MeridalDaemon>(machine.context, collector, power, house.services);
        machine.runtime.runDue();
        return *daemon;
    }

    static Peer user(std::uint32_t id, std::vector<std::uint32_t> groups = {})
    {
        return {.uid = id, .gid = id, .known = true, .groups = std::move(groups)};
    }
    Client connect(const Peer& peer = user(1000))
    {
        auto link = std::make_shared<FakeClient>(peer);
        auto exported = daemon->server().shouldAcceptNewConnection(link);
        machine.runtime.runDue();
        return {link, exported};
    }

    /// A daemon, and a client that wants this list.
    Client startWithRequest(std::int64_t key)
    {
        start();
        Client client = connect();
        request(client, key);
        return client;
    }
    void request(Client& client, std::int64_t key) { call(client, &DaemonProtocol::startRequestWithKey, key, 2); }
    void request(Client& client, std::initializer_list<std::int64_t> keys)
    {
        for (const std::int64_t key : keys) {
            request(client, key);
        }
    }
    template <typename... Parameters, typename... Arguments>
    void call(const Client& client, void (DaemonProtocol::*method)(Parameters...), Arguments&&... arguments)
    {
        (client.daemon.get()->*method)(std::forward<Arguments>(arguments)...);
        machine.runtime.runDue();
    }
    /// What the daemon answers one question of a client with.
    template <typename... Parameters, typename... Arguments>
    Value answer(void (DaemonProtocol::*method)(Parameters...), const Arguments&... arguments)
    {
        Value answer;
        Client client = connect();
        call(client, method, arguments..., [&answer](Value value) { answer = std::move(value); });
        disconnect(client);
        return answer;
    }
    static Value json(const char* text) { return parseUntrusted(text).value(); }
    void stop(Client& client, std::int64_t key) { call(client, &DaemonProtocol::stopRequestWithKey, key); }
    void disconnect(Client& client)
    {
        client.daemon->ended();
        machine.runtime.runDue();
    }
    static std::int64_t maskOf(const Client& client)
    {
        return std::static_pointer_cast<MRDXPCServerConnection>(client.daemon)->updateMask();
    }

    FakeMachine machine;
    ProcessStatCollector collector{machine.context};
    ZAVPowerManager power{machine.context};
    AllServices house;
    std::unique_ptr<MeridalDaemon> daemon;
};

} // namespace meridal::test
