// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/StandardError.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <execinfo.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <typeinfo>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr int mostFrames = 64;
constexpr unsigned patience = 5; // s for the report: what crashed may hold the loader's lock
constexpr int lastLines = 200;   // ms in which the log's writer, a thread that goes on, may write what waits

struct NamedSignal {
    int number;
    std::string_view name;
};
constexpr std::array crashSignals{NamedSignal{SIGSEGV, "SIGSEGV"}, NamedSignal{SIGBUS, "SIGBUS"},
    NamedSignal{SIGILL, "SIGILL"}, NamedSignal{SIGFPE, "SIGFPE"}, NamedSignal{SIGABRT, "SIGABRT"}};

/// What the handlers say, made before there are any.
struct CrashWords {
    std::string program;
    std::string prefix;
};
CrashWords& crashWords()
{
    static CrashWords words;
    return words;
}

/// A line in the making, of what a signal handler may use: no memory is asked for.
class CrashLine {
public:
    CrashLine() { add(crashWords().prefix); }

    CrashLine& add(std::string_view words)
    {
        const std::size_t count = std::min(words.size(), text_.size() - 1 - size_); // leaves one for the end
        std::copy_n(words.begin(), count, text_.begin() + static_cast<std::ptrdiff_t>(size_));
        size_ += count;
        return *this;
    }
    CrashLine& addHex(std::uintptr_t number)
    {
        std::array<char, 2 * sizeof(number)> digits{};
        std::size_t first = digits.size();
        do {
            digits[--first] = "0123456789abcdef"[number % 16];
            number /= 16;
        } while (number != 0);
        return add("0x").add({digits.data() + first, digits.size() - first});
    }
    void write()
    {
        text_[size_] = '\n';
        static_cast<void>(::write(STDERR_FILENO, text_.data(), size_ + 1) < 0); // there is nobody to tell
    }

private:
    std::array<char, 512> text_{};
    std::size_t size_ = 0;
};

void writeFrames()
{
    std::array<void*, mostFrames> frames{};
    const int count = ::backtrace(frames.data(), mostFrames);
    for (int i = 0; i < count; ++i) {
        void* const frame = frames.at(static_cast<std::size_t>(i));
        const auto address = reinterpret_cast<std::uintptr_t>(frame);
        CrashLine line;
        line.add("  at ");
        Dl_info found{};
        if (::dladdr(frame, &found) != 0 && found.dli_fname != nullptr) {
            line.add(found.dli_fname).add("+").addHex(address - reinterpret_cast<std::uintptr_t>(found.dli_fbase));
            if (found.dli_sname != nullptr) {
                line.add(" ").add(found.dli_sname);
            }
        } else {
            line.addHex(address);
        }
        line.write();
    }
}

/// Comes at most once a signal, which is the default's again by then.
void crashed(int number, siginfo_t* information, void*)
{
    ::alarm(patience);
    const auto* known = std::find_if(
        crashSignals.begin(), crashSignals.end(), [number](const NamedSignal& each) { return each.number == number; });
    CrashLine line;
    line.add(crashWords().program).add(": ").add(known != crashSignals.end() ? known->name : "crash");
    if (information->si_code > 0 && (number == SIGSEGV || number == SIGBUS)) {
        line.add(" at address ").addHex(reinterpret_cast<std::uintptr_t>(information->si_addr));
    }
    line.write();
    writeFrames();
    ::poll(nullptr, 0, lastLines);
    static_cast<void>(std::raise(number)); // waits until we have returned, and ends the process there
}

[[noreturn]] void nobodyCatches()
{
    CrashLine line;
    line.add(crashWords().program).add(": nobody catches ");
    try {
        if (const auto current = std::current_exception()) {
            std::rethrow_exception(current);
        }
        line.add("what is no exception");
    } catch (const std::exception& error) {
        line.add(typeid(error).name()).add(": ").add(error.what());
    } catch (...) {
        line.add("an exception of another kind");
    }
    line.write();
    std::abort();
}

} // namespace

bool leadsToJournal(int descriptor, std::string_view journalStream)
{
    struct stat status = {};
    return !journalStream.empty() && ::fstat(descriptor, &status) == 0
        && journalStream == fmt::format("{}:{}", status.st_dev, status.st_ino);
}

void reportCrashes(std::string program, std::string_view prefix)
{
    crashWords() = {.program = std::move(program), .prefix = std::string(prefix)};
    void* frame = nullptr;
    ::backtrace(&frame, 1); // loads what it needs, for which a handler is no place

    static std::array<char, 64 * 1024> stack; // a stack that overflowed has no room
    const stack_t alternative = {.ss_sp = stack.data(), .ss_flags = 0, .ss_size = stack.size()};
    ::sigaltstack(&alternative, nullptr);
    for (const NamedSignal& each : crashSignals) {
        struct sigaction before = {};
        if (::sigaction(each.number, nullptr, &before) != 0 || before.sa_handler != SIG_DFL) {
            continue;
        }
        struct sigaction action = {};
        action.sa_sigaction = crashed;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | static_cast<int>(SA_RESETHAND);
        ::sigaction(each.number, &action, nullptr);
    }
    std::set_terminate(nobodyCatches);
}

} // namespace meridal
