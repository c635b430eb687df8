// SPDX-License-Identifier: Apache-2.0
#include "daemon/ProcessViews.h"

#include "base/Runtime.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Link.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

namespace meridal {

namespace {

/// No user has this number: it is the kernel's "none".
constexpr std::uint32_t nobody = std::numeric_limits<std::uint32_t>::max();

std::size_t bitNumber(RequestKey key)
{
    return static_cast<std::size_t>(std::countr_zero(static_cast<std::uint64_t>(mask(key))));
}

} // namespace

void ProcessViews::beginPass()
{
    lists_.clear();
    visible_.clear();
    isCheckDue_ = context_.runtime.monotonicTime() >= checkAt_;
}

ProcessViews::Viewer ProcessViews::viewerOf(const Peer& peer)
{
    if (std::exchange(isCheckDue_, false)) {
        checkAt_ = context_.runtime.monotonicTime() + checkInterval;
        restriction_ = context_.host.processVisibility->restriction();
    }
    if (!restriction_) {
        return std::nullopt;
    }
    if (!peer.known) {
        return nobody;
    }
    const auto& exempt = restriction_->exemptGroup;
    const bool isExempt = exempt
        && (peer.gid == *exempt || std::find(peer.groups.begin(), peer.groups.end(), *exempt) != peer.groups.end());
    return peer.uid == 0 || isExempt ? Viewer() : Viewer(peer.uid);
}

/// Null: all.
const ProcessViews::Pids* ProcessViews::shownTo(const Viewer& viewer)
{
    if (!viewer) {
        return nullptr;
    }
    if (visible_.empty()) {
        for (const auto* item : processes_.processes()) {
            if (const auto owner = context_.host.processVisibility->ownerOf(item->pid)) {
                visible_[*owner].insert(item->pid);
            }
        }
    }
    return &visible_[*viewer];
}

bool ProcessViews::shows(const Viewer& viewer, std::int32_t pid)
{
    if (!viewer || shownTo(viewer)->contains(pid)) {
        return true;
    }
    const bool isUnseen = std::as_const(processes_).processForPid(pid) == nullptr;
    return isUnseen && context_.host.processVisibility->ownerOf(pid) == *viewer;
}

EnvelopePtr& ProcessViews::list(const Viewer& viewer, RequestKey list, bool grouped)
{
    return lists_[viewer].at(bitNumber(list))[grouped ? 1 : 0];
}

void ProcessViews::forgetList(RequestKey list)
{
    for (auto& entry : lists_) {
        entry.second.at(bitNumber(list)) = {};
    }
}

} // namespace meridal
