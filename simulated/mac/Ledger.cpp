// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Ledger.h"

#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <mach/mach.h>

#include <utility>

namespace meridal::test {

Ledger& Ledger::current()
{
    static Ledger ledger;
    return ledger;
}

void Ledger::opened(const std::string& what)
{
    const std::lock_guard lock(mutex_);
    ++open_[what];
}

void Ledger::closed(const std::string& what)
{
    const std::lock_guard lock(mutex_);
    if (--open_[what] < 0) {
        misuse(what + " was given back more often than it was given out");
    }
}

std::vector<std::string> Ledger::open() const
{
    const std::lock_guard lock(mutex_);
    std::vector<std::string> left;
    for (const auto& [what, count] : open_) {
        if (count != 0) {
            left.push_back(std::to_string(count) + " x " + what);
        }
    }
    return left;
}

std::optional<int> Ledger::call(const std::string& function)
{
    const std::lock_guard lock(mutex_);
    ++calls_[function];
    const auto fault = faults_.find(function);
    if (fault == faults_.end() || fault->second.second-- <= 0) {
        return std::nullopt;
    }
    return fault->second.first;
}

int Ledger::calls(const std::string& function) const
{
    const std::lock_guard lock(mutex_);
    const auto found = calls_.find(function);
    return found == calls_.end() ? 0 : found->second;
}

void Ledger::fail(const std::string& function, int code, int times)
{
    const std::lock_guard lock(mutex_);
    faults_[function] = {code, times};
}

void Ledger::misuse(const std::string& what) { ADD_FAILURE() << what; }

void Ledger::post(const void* owner, std::function<void()> call)
{
    const std::lock_guard lock(mutex_);
    waiting_.emplace_back(owner, std::move(call));
}

void Ledger::forget(const void* owner)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(waiting_, [owner](const auto& each) { return each.first == owner; });
}

void Ledger::deliver()
{
    while (true) {
        std::function<void()> next;
        {
            const std::lock_guard lock(mutex_);
            if (waiting_.empty()) {
                return;
            }
            next = std::move(waiting_.front().second);
            waiting_.pop_front();
        }
        next();
    }
}

std::vector<std::string> Ledger::reset()
{
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [function, fault] : faults_) {
            if (!calls_.contains(function)) {
                misuse(function + " was to fail, and nobody called it");
            }
        }
        calls_.clear();
        faults_.clear();
        waiting_.clear();
    }
    auto left = open();
    const std::lock_guard lock(mutex_);
    open_.clear();
    return left;
}

} // namespace meridal::test

dispatch_queue_t dispatch_get_main_queue()
{
    static char queue = 0;
    return reinterpret_cast<dispatch_queue_t>(&queue);
}

mach_port_t mach_task_self() { return 0x103; }
