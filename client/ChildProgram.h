// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/EventLoop.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

/// A program to run: no shell, so nothing in its words or its text means anything but itself.
struct ProgramCall {
    std::vector<std::string> words;     ///< the program, by its path or found in PATH, and its arguments
    std::vector<std::string> variables; ///< "NAME=value", before those that we have ourselves
    std::string input;                  ///< on its standard input; at most mostProgramInput bytes of it
};

constexpr std::size_t mostProgramInput = 4000; ///< what every pipe takes at once

/// Runs programs one after another, each for a while at most, on the loop's thread. They get our standard output and error,
/// and no other descriptor of ours.
class ProgramQueue {
public:
    /// `complain` is told what went wrong, in a line. Who takes longer than `patience` (s) is killed with all that it has
    /// started.
    ProgramQueue(EventLoop& loop, std::function<void(const std::string&)> complain, double patience = 30);
    ~ProgramQueue();
    ProgramQueue(const ProgramQueue&) = delete;
    ProgramQueue& operator=(const ProgramQueue&) = delete;

    /// Runs it when those before it have ended. Where too many wait the oldest of them is given up.
    void run(ProgramCall call);

private:
    static constexpr std::size_t mostWaiting = 32;

    void startNext();
    bool start(const ProgramCall& call);
    void reap();

    EventLoop& loop_;
    const std::function<void(const std::string&)> complain_;
    const double patience_;
    std::unique_ptr<Watch> ends_;
    std::unique_ptr<Timer> timeout_;
    std::deque<ProgramCall> waiting_;
    std::string name_; ///< of the one that runs
    int child_ = 0;    ///< its process; 0: none
};

} // namespace meridal
