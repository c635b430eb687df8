// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/DiagSocketOwners.h"

#include <netinet/in.h>

#include <utility>

namespace meridal {

namespace {

constexpr double stackLifetime = 10; ///< s; interfaces are seldom put on top of each other

} // namespace

void DiagSocketOwners::beginBatch()
{
    questions_ = 0;
    stack_.expire(stackLifetime);
}

SocketOwner DiagSocketOwners::ownerOf(const SocketFlow& flow)
{
    using enum SocketOwner::Kind;
    if (questions_ >= mostQuestions) {
        return {.kind = Pending};
    }
    if (stack_.isCarried(flow)) {
        return {.kind = Elsewhere};
    }
    if (flow.localPort == 0 && flow.foreignPort == 0) {
        return {.kind = Kernel}; // no socket to ask for
    }
    ++questions_;
    const auto socket = diag_.find(flow);
    if (!socket) {
        return {.kind = stack_.isForwarded(flow) ? Kernel : ownerOfTunnel(flow)};
    }
    if (socket->inode == 0) {
        // An open one may still be accepted by somebody; a closed one was somebody's, who is not known any more.
        return {.kind = socket->isClosing ? None : Kernel};
    }
    const SocketInodes::Answer answer = inodes_.find(socket->inode);
    switch (answer.state) {
    case SocketInodes::State::Found:
        return {.kind = Process, .pid = answer.pid, .isCertain = !socket->isListening};
    case SocketInodes::State::Wanted:
        return {.kind = Pending};
    case SocketInodes::State::Absent:
        break; // no process has it open, so it is one of the kernel's own: a tunnel's, a file system's
    }
    return {.kind = Kernel};
}

/// Tunnels over UDP send from ports that no socket has, so that routers spread the load, to the one that they listen on
/// themselves.
SocketOwner::Kind DiagSocketOwners::ownerOfTunnel(const SocketFlow& flow)
{
    using enum SocketOwner::Kind;
    if (flow.protocol != IPPROTO_UDP) {
        return None;
    }
    SocketFlow answer = flow;
    std::swap(answer.localPort, answer.foreignPort);
    const auto listening = diag_.find(answer);
    if (!listening || listening->flow.localPort != flow.foreignPort) {
        return None;
    }
    switch (inodes_.find(listening->inode).state) {
    case SocketInodes::State::Found:
        break; // somebody's, who happens to listen on the port that this is sent to
    case SocketInodes::State::Wanted:
        return Pending;
    case SocketInodes::State::Absent:
        return Kernel;
    }
    return None;
}

bool DiagSocketOwners::search() { return inodes_.search(); }

} // namespace meridal
