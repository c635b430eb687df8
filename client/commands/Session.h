#pragma once

#include "client/DaemonClient.h"
#include "client/EventLoop.h"
#include "client/commands/Arguments.h"
#include "client/screen/Output.h"

#include <functional>
#include <string>

namespace meridal {

/// One run of a command: the daemon, standard output, and how it ends.
class Session {
public:
    Session(const Arguments& arguments, bool coloured);

    const Arguments& arguments() const { return arguments_; }
    EventLoop& loop() { return loop_; }
    DaemonClient& client() { return client_; }

    /// Connects, runs the task, and serves the loop until finish(). Returns the exit status.
    int run(const Task& task);
    void finish(int status) { fail(status, {}); }
    /// Ends the run with a complaint, which complaint() keeps until the terminal is ours no more.
    void fail(int status, std::string complaint);
    const std::string& complaint() const { return complaint_; }

    /// Calls the daemon; a refusal ends the run with the daemon's words.
    void call(const std::string& method, const Value& parameters, std::function<void(const Value&)> use);
    /// Writes to standard output; when that fails, ends the run and answers false. Writes nothing after the end, which
    /// may come in the midst of many messages.
    bool print(std::string_view text) { return !finished_ && printed(output_.write(text)); }
    bool print(const Lines& lines) { return !finished_ && printed(output_.write(lines)); }

private:
    bool printed(bool written);

    const Arguments& arguments_;
    EventLoop loop_;
    DaemonClient client_;
    Output output_;
    bool finished_ = false;
    int status_ = exitStatus::success;
    std::string complaint_;
};

} // namespace meridal
