// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace meridal::test {

/// What the simulated system keeps account of: who has what of it, which calls were made, which are to fail, and what waits for
/// the main queue. One for the program, as the system's calls have no object. Thread-safe.
class Ledger {
public:
    static Ledger& current();

    /// A reference, a connection, a registration was given out; it was given back.
    void opened(const std::string& what);
    void closed(const std::string& what);
    /// What is out, with how many of it there are.
    std::vector<std::string> open() const;

    /// Counts a call; what it is to fail with, if it is.
    std::optional<int> call(const std::string& function);
    int calls(const std::string& function) const;
    /// The next calls of a function fail. Those that have no code of their own give nothing.
    void fail(const std::string& function, int code = static_cast<int>(0xE00002BCU), int times = 1);

    /// Something the system does that must never be: a reference let go of twice, an object used that is gone.
    static void misuse(const std::string& what);

    /// Leaves a call for the main queue, for as long as its owner is there.
    void post(const void* owner, std::function<void()> call);
    void forget(const void* owner);
    /// Calls what waits, and what comes of it.
    void deliver();

    /// Forgets everything: faults, counts, calls that wait. Answers what was out without these.
    std::vector<std::string> reset();

private:
    mutable std::mutex mutex_;
    std::map<std::string, int> open_;
    std::map<std::string, int> calls_;
    std::map<std::string, std::pair<int, int>> faults_;
    std::deque<std::pair<const void*, std::function<void()>>> waiting_;
};

} // namespace meridal::test
