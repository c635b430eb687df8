// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/DaemonClient.h"
#include "client/EventLoop.h"
#include "client/screen/Output.h"

#include <functional>
#include <string>

namespace meridal {

/// How a command ended, as the shell sees it.
namespace exitStatus {
constexpr int success = 0;
constexpr int refused = 1;  ///< the daemon answered with an error, or the output could not be written
constexpr int noDaemon = 2; ///< the daemon could not be reached, or did not answer
constexpr int usage = 64;   ///< the command line makes no sense; as in sysexits
} // namespace exitStatus

/// One run of a command: the daemon, standard output, and how it ends.
class Session {
public:
    /// What standard output is, and what may be written to it.
    struct Medium {
        bool isTerminal = false; ///< of a kind that can place text
        bool isColoured = false;
    };

    Session(const std::string& socketPath, double timeout, Medium medium);

    Medium medium() const { return medium_; }
    EventLoop& loop() { return loop_; }
    DaemonClient& client() { return client_; }

    /// Connects, runs the task, and serves the loop until finish(). Returns the exit status.
    int run(const Task& task);
    /// The same with or without a daemon: the task is told why there is none.
    int runAnyhow(const std::function<void(const Result<void>& connected)>& task);
    /// As run, and an interruption is the end that was wished.
    int runUntilInterrupted(const Task& task);
    void finish(int status) { fail(status, {}); }
    /// Ends the run with a complaint, which complaint() keeps until the terminal is ours no more.
    void fail(int status, std::string complaint);
    const std::string& complaint() const { return complaint_; }

    /// Calls the daemon; a refusal ends the run with the daemon's words.
    void call(const std::string& method, const Value& parameters, std::function<void(const Value&)> use);
    /// The same for what the daemon may not have: null where it refuses.
    void callIfThere(const std::string& method, const Value& parameters, std::function<void(const Value&)> use);
    /// The same for the effect: without a daemon, a view that runs on waits for it; one that refuses will not think better
    /// of it.
    void tell(const std::string& method, const Value& parameters);
    /// Writes to standard output; when that fails, ends the run and answers false. Writes nothing after the end, which
    /// may come in the midst of many messages.
    bool print(std::string_view text) { return !finished_ && printed(output_.write(text)); }
    bool print(const Lines& lines) { return !finished_ && printed(output_.write(lines)); }
    /// Prints all that there is to say, and ends the run.
    template <typename Answer>
    void conclude(const Answer& answer)
    {
        if (print(answer)) {
            finish(exitStatus::success);
        }
    }

private:
    bool printed(bool written);
    void refused(const Error& error);

    const Medium medium_;
    EventLoop loop_;
    DaemonClient client_;
    Output output_;
    bool finished_ = false;
    int status_ = exitStatus::success;
    std::string complaint_;
};

} // namespace meridal
