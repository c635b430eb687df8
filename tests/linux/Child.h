// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meridal::test {

/// A process of the test's own, ended with the object. It runs a function with a pair of pipes to talk to the test.
class Child {
public:
    /// The child's ends.
    struct Pipes {
        int commands = -1;
        int answers = -1;
        char command() const ///< waits for the next; 0 when the test is through
        {
            char byte = 0;
            return ::read(commands, &byte, 1) == 1 ? byte : '\0';
        }
        bool hasCommand() const
        {
            pollfd state{commands, POLLIN, 0};
            return ::poll(&state, 1, 0) == 1;
        }
        template <typename T>
        void answer(const T& value) const
        {
            if (::write(answers, &value, sizeof value) != sizeof value) {
                ::_exit(1);
            }
        }
    };

    explicit Child(const std::function<void(const Pipes&)>& run)
    {
        int commands[2];
        int answers[2];
        if (::pipe2(commands, O_CLOEXEC) != 0 || ::pipe2(answers, O_CLOEXEC) != 0) {
            std::abort();
        }
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::close(commands[1]);
            ::close(answers[0]);
            run({.commands = commands[0], .answers = answers[1]});
            ::_exit(0);
        }
        ::close(commands[0]);
        ::close(answers[1]);
        commands_ = Descriptor(commands[1]);
        answers_ = Descriptor(answers[0]);
    }
    ~Child()
    {
        if (!reaped_) {
            ::kill(pid_, SIGKILL);
            reap();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    void command(char byte) const { EXPECT_EQ(::write(commands_.get(), &byte, 1), 1); }
    /// Waits for an answer; none at the end of the pipe, which a child that started another program gives.
    template <typename T = char>
    std::optional<T> answer() const
    {
        T value{};
        const bool came = ::read(answers_.get(), &value, sizeof value) == static_cast<ssize_t>(sizeof value);
        return came ? std::optional(value) : std::nullopt;
    }
    /// The answer to a command. Throws without one, which fails the test.
    template <typename T = char>
    T ask(char byte) const
    {
        command(byte);
        return answer<T>().value();
    }
    bool hasAnswer(int milliseconds) const
    {
        pollfd state{answers_.get(), POLLIN, 0};
        return ::poll(&state, 1, milliseconds) == 1;
    }
    /// Waits until it has ended, and leaves the zombie.
    void awaitEnd() const
    {
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
    }
    void reap()
    {
        ::waitpid(pid_, nullptr, 0);
        reaped_ = true;
    }

private:
    pid_t pid_ = -1;
    bool reaped_ = false;
    Descriptor commands_;
    Descriptor answers_;
};

} // namespace meridal::test
