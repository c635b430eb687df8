// SPDX-License-Identifier: Apache-2.0
#include "client/ChildProgram.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ; // POSIX declares it in no header

namespace meridal {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& each : texts) {
        pointers.push_back(each.data());
    }
    return pointers;
}

/// Adds our own variables, but for those that are there already.
void addInherited(std::vector<std::string>& variables)
{
    const std::size_t given = variables.size();
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string_view inherited = *each;
        const std::string_view name = inherited.substr(0, inherited.find('='));
        const bool isGiven = std::any_of(variables.begin(), variables.begin() + static_cast<std::ptrdiff_t>(given),
            [name](const std::string& variable) { return variable.substr(0, variable.find('=')) == name; });
        if (!isGiven) {
            variables.emplace_back(inherited);
        }
    }
}

/// What posix_spawn is told beside the program, made and destroyed as a whole.
class SpawnSetup {
public:
    explicit SpawnSetup(int input)
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        // A group of its own, to be killed as one; signals as any program expects them.
        short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
        posix_spawn_file_actions_addinherit_np(&actions, STDOUT_FILENO);
        posix_spawn_file_actions_addinherit_np(&actions, STDERR_FILENO);
#else
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
#endif
        sigset_t defaults;
        sigset_t blocked;
        sigemptyset(&blocked);
        sigemptyset(&defaults);
        for (const int signal : {SIGPIPE, SIGCHLD, SIGINT, SIGTERM}) {
            sigaddset(&defaults, signal);
        }
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setsigmask(&attributes, &blocked);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, flags);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

/// How a program ended, where that was not as it should.
std::string endOf(int status)
{
    if (WIFSIGNALED(status)) {
        return fmt::format("was ended by signal {}", WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? std::string() : fmt::format("ended with status {}", WEXITSTATUS(status));
}

} // namespace

ProgramQueue::ProgramQueue(EventLoop& loop, std::function<void(const std::string&)> complain, double patience)
    : loop_(loop)
    , complain_(std::move(complain))
    , patience_(patience)
    , ends_(loop.watchSignals({SIGCHLD}, [this] { reap(); }))
{
}

ProgramQueue::~ProgramQueue() = default;

void ProgramQueue::run(ProgramCall call)
{
    if (waiting_.size() >= mostWaiting) {
        complain_(fmt::format("{} was not run: too many wait", printable(waiting_.front().words.front())));
        waiting_.pop_front();
    }
    waiting_.push_back(std::move(call));
    startNext();
}

void ProgramQueue::startNext()
{
    while (child_ == 0 && !waiting_.empty()) {
        const ProgramCall call = std::move(waiting_.front());
        waiting_.pop_front();
        name_ = printable(call.words.front());
        if (start(call)) {
            timeout_ = loop_.after(patience_, [this] {
                complain_(fmt::format("{} took longer than {:.3g} s and is killed", name_, patience_));
                kill(-child_, SIGKILL);
            });
        }
    }
}

bool ProgramQueue::start(const ProgramCall& call)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        complain_(fmt::format("{} cannot be run: {}", name_, std::strerror(errno)));
        return false;
    }
    const auto [readEnd, writeEnd] = ends;
    std::vector<std::string> words = call.words;
    std::vector<std::string> variables = call.variables;
    addInherited(variables);
    std::vector<char*> arguments = pointersTo(words);
    std::vector<char*> environment = pointersTo(variables);
    arguments.push_back(nullptr);
    environment.push_back(nullptr);

    // It fits into the pipe, so nobody waits here; and while our own end is open, one that does not read it is no fault.
    const std::size_t size = std::min(call.input.size(), mostProgramInput);
    const bool isWritten = write(writeEnd, call.input.data(), size) == static_cast<ssize_t>(size);
    const int notWritten = isWritten ? 0 : errno;
    const SpawnSetup setup(readEnd);
    pid_t child = 0;
    const int failure = posix_spawnp(
        &child, arguments.front(), &setup.actions, &setup.attributes, arguments.data(), environment.data());
    close(readEnd);
    close(writeEnd);
    if (failure != 0) {
        complain_(fmt::format("{} cannot be run: {}", name_, std::strerror(failure)));
        return false;
    }
    if (!isWritten) {
        complain_(fmt::format("{} did not get its text: {}", name_, std::strerror(notWritten)));
    }
    child_ = child;
    return true;
}

void ProgramQueue::reap()
{
    int status = 0;
    if (child_ == 0 || waitpid(child_, &status, WNOHANG) != child_) {
        return;
    }
    child_ = 0;
    timeout_.reset();
    if (const std::string end = endOf(status); !end.empty()) {
        complain_(name_ + ' ' + end);
    }
    startNext();
}

} // namespace meridal
