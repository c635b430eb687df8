#pragma once

#include "collectors/process/ProcessStatCollector.h"
#include "daemon/MRDXPCServerConnection.h"
#include "daemon/MeridalDaemon.h"
#include "tests/support/FakeClient.h"
#include "tests/support/FakeHost.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace meridal::test {

/// A daemon on a fake machine, with ports that write down that they were called.
class DaemonTest : public ::testing::Test {
protected:
    struct Client {
        std::shared_ptr<FakeClient> link;
        std::shared_ptr<ExportedConnection> daemon;
    };

    DaemonTest()
    {
        machine.processes().set({.pid = 1, .name = "launchd"});
        machine.processes().set({.pid = 42, .parentPid = 1, .present = ProcessFields::All, .name = "worker"});
    }

    MeridalDaemon& start(CollectorPorts ports = {})
    {
        ports.startCapture = [this] { calls.emplace_back("startCapture"); };
        ports.stopCapture = [this] { calls.emplace_back("stopCapture"); };
        daemon = std::make_unique<MeridalDaemon>(machine.context, collector, power, std::move(ports));
        machine.runtime.runDue();
        return *daemon;
    }

    Client connect(Peer peer = {.uid = 1000, .gid = 1000, .known = true})
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
    void request(Client& client, std::int64_t key)
    {
        client.daemon->startRequestWithKey(key, 2);
        machine.runtime.runDue();
    }
    void request(Client& client, std::initializer_list<std::int64_t> keys)
    {
        for (const std::int64_t key : keys) {
            request(client, key);
        }
    }
    /// What the daemon answers one question of a client with.
    template <typename... Parameters, typename... Arguments>
    Value answer(void (DaemonProtocol::*method)(Parameters...), const Arguments&... arguments)
    {
        Value answer;
        const Client client = connect();
        (client.daemon.get()->*method)(arguments..., [&answer](Value value) { answer = std::move(value); });
        machine.runtime.runDue();
        client.daemon->ended();
        machine.runtime.runDue();
        return answer;
    }
    static Value json(const char* text) { return parseUntrusted(text).value(); }
    void stop(Client& client, std::int64_t key)
    {
        client.daemon->stopRequestWithKey(key);
        machine.runtime.runDue();
    }
    void disconnect(Client& client)
    {
        client.daemon->ended();
        machine.runtime.runDue();
    }
    static std::int64_t maskOf(const Client& client)
    {
        return std::static_pointer_cast<MRDXPCServerConnection>(client.daemon)->updateMask();
    }
    std::ptrdiff_t called(const std::string& name) const { return std::count(calls.begin(), calls.end(), name); }

    FakeMachine machine;
    ProcessStatCollector collector{machine.context};
    ZAVPowerManager power{machine.context};
    std::vector<std::string> calls;
    std::unique_ptr<MeridalDaemon> daemon;
};

} // namespace meridal::test
