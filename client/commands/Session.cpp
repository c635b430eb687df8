// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Session.h"

#include "base/Installation.h"

#include <fmt/format.h>

#include <csignal>
#include <utility>

namespace meridal {

Session::Session(const std::string& socketPath, double timeout, Medium medium)
    : medium_(medium), client_(loop_, socketPath), output_(medium.isColoured)
{
    client_.setTimeout(timeout);
}

int Session::run(const Task& task)
{
    client_.connect([this, &task](const Result<void>& outcome) {
        if (outcome) {
            task();
            return;
        }
        fail(exitStatus::noDaemon,
            fmt::format("no daemon at {} ({}); start it with \"meridald --root DIR\" or \"{}\"", client_.socketPath(),
                outcome.error().message, installation().startCommand));
    });
    loop_.run();
    return status_;
}

int Session::runAnyhow(const std::function<void(const Result<void>& connected)>& task)
{
    client_.connect(task);
    loop_.run();
    return status_;
}

int Session::runUntilInterrupted(const Task& task)
{
    const auto interrupted = loop_.watchSignals({SIGINT, SIGTERM}, [this] { finish(exitStatus::success); });
    const int status = run(task);
    client_.setEvents({});
    return status;
}

void Session::fail(int status, std::string complaint)
{
    if (!finished_) {
        finished_ = true;
        status_ = status;
        complaint_ = std::move(complaint);
    }
    loop_.stop();
}

void Session::call(const std::string& method, const Value& parameters, std::function<void(const Value&)> use)
{
    client_.call(method, parameters,
        [this, use = std::move(use)](const Result<Value>& result) { result ? use(*result) : refused(result.error()); });
}

void Session::callIfThere(const std::string& method, const Value& parameters, std::function<void(const Value&)> use)
{
    client_.call(method, parameters, [this, use = std::move(use)](const Result<Value>& result) {
        if (!result && result.error().code == ErrorCode::Unavailable) {
            return refused(result.error());
        }
        use(result ? *result : Value());
    });
}

void Session::refused(const Error& error)
{
    if (error.code == ErrorCode::Unavailable) {
        fail(exitStatus::noDaemon, fmt::format("{} ({})", error.message, client_.socketPath()));
    } else {
        fail(exitStatus::refused, error.message);
    }
}

void Session::tell(const std::string& method, const Value& parameters)
{
    client_.call(method, parameters, [this](const Result<Value>& result) {
        if (!result && result.error().code != ErrorCode::Unavailable) {
            fail(exitStatus::refused, result.error().message);
        }
    });
}

bool Session::printed(bool written)
{
    if (!written && output_.readerLeft()) {
        finish(exitStatus::success);
    } else if (!written) {
        fail(exitStatus::refused, output_.failure());
    }
    return written;
}

} // namespace meridal
