// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/BpfTrafficSockets.h"

#include "base/Runtime.h"
#include "platform/linux/bpf/traffic_record.h"
#include "platform/linux/kernel/BpfCalls.h"
#include "platform/linux/kernel/ProcParsers.h"
#include "platform/linux/kernel/RootFolder.h"

#include <fcntl.h>
#include <linux/bpf.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

/// Of the time, that searches may take.
constexpr double searchShare = 0.01;
/// Entries of sums that are no process's: of those without room, of what waits; each here and in other networks.
constexpr std::array<std::uint64_t, 4> nobodies = {
    0, BPF_TRAFFIC_ELSEWHERE, BPF_TRAFFIC_WAITING, BPF_TRAFFIC_WAITING | BPF_TRAFFIC_ELSEWHERE};
constexpr ino_t rootGroup = 1; // inode number of the root of the unified hierarchy, whatever is mounted

std::uint64_t ownNetwork()
{
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)); // one of any kind knows it
    std::uint64_t cookie = 0;
    socklen_t size = sizeof cookie;
    return ::getsockopt(socket.get(), SOL_SOCKET, SO_NETNS_COOKIE, &cookie, &size) == 0 ? cookie : 0;
}

/// Clock ticks from boot to the start of this process; another figure in a time namespace than for the kernel.
std::uint64_t ownStart(const std::filesystem::path& root)
{
    const auto stat = proc::parseStat(RootFolder(root).read("proc/self/stat").value_or(""));
    return stat ? stat->startTicks : 0;
}

/// Whether the kernel knows this process by the number and the start time that it has for itself: whether it is in the first
/// namespaces of processes and of time, whose numbers are fixed (include/linux/proc_ns.h). Kernels before 5.6 have none of
/// time.
bool isKnownAsItself(const std::filesystem::path& root)
{
    constexpr std::array<std::pair<const char*, ino_t>, 2> first = {
        {{"proc/self/ns/pid", 0xEFFF'FFFC}, {"proc/self/ns/time", 0xEFFF'FFFA}}};
    return std::all_of(first.begin(), first.end(), [&root](const auto& each) {
        struct stat state { };
        return ::stat((root / each.first).c_str(), &state) == 0 ? state.st_ino == each.second : errno == ENOENT;
    });
}

/// The root of the unified hierarchy of control groups. In a container only a part of it is to be seen, which would be a part
/// of the traffic.
Result<Descriptor> openRootGroup(const std::filesystem::path& root)
{
    std::istringstream mounts(RootFolder(root).read("proc/self/mounts").value_or(""));
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream words(line);
        std::string device;
        std::string path;
        std::string type;
        if (!(words >> device >> path >> type) || type != "cgroup2") {
            continue;
        }
        Descriptor group(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat state { };
        if (group && ::fstat(group.get(), &state) == 0 && state.st_ino == rootGroup) {
            return group;
        }
    }
    return unexpected(ErrorCode::Unavailable, "the root of the control groups (cgroup2) is not mounted here");
}

} // namespace

Result<BpfTrafficSockets> BpfTrafficSockets::attach(
    const std::string& object, const std::filesystem::path& root, Runtime& runtime)
{
    auto loaded = BpfObject::load(object);
    if (!loaded) {
        return unexpected(loaded.error().code, loaded.error().message);
    }
    BpfTrafficSockets sockets(std::move(*loaded), runtime);
    sockets.seesPackets_ = sockets.object_.program("count_sent") >= 0;
    sockets.seesUsers_ = sockets.object_.program("note_sending") >= 0;
    auto done = sockets.prepare();
    if (done && sockets.seesPackets_) {
        done = sockets.attachToGroups(root);
    }
    if (done) {
        done = sockets.attachToCalls();
    }
    if (done && sockets.seesPackets_) {
        done = sockets.findOpenSockets();
    }
    if (done && sockets.seesPackets_) {
        done = sockets.check(root);
    }
    if (!done) {
        return unexpected(done.error().code, done.error().message);
    }
    return sockets;
}

/// What the programs find when they start.
Result<void> BpfTrafficSockets::prepare()
{
    const std::uint32_t first = 0;
    const BpfTrafficSettings settings{.network = ownNetwork()};
    bool isDone = writeBpfMap(object_.map("settings"), &first, &settings);
    const std::vector<BpfTraffic> nothing(possibleProcessors());
    for (const std::uint64_t nobody : nobodies) {
        isDone = isDone && writeBpfMap(sums(), &nobody, nothing.data());
    }
    if (!isDone) {
        return bpfError("filling a BPF map", errno);
    }
    return {};
}

Result<void> BpfTrafficSockets::attachToGroups(const std::filesystem::path& root)
{
    const auto group = openRootGroup(root);
    if (!group) {
        return unexpected(group.error().code, group.error().message);
    }
    constexpr std::array<std::pair<const char*, std::uint32_t>, 4> programs = {{
        {"note_created", BPF_CGROUP_INET_SOCK_CREATE},
        {"note_released", BPF_CGROUP_INET_SOCK_RELEASE},
        {"count_sent", BPF_CGROUP_INET_EGRESS},
        {"count_received", BPF_CGROUP_INET_INGRESS},
    }};
    for (const auto& [program, type] : programs) {
        auto link = attachBpfProgram(object_.program(program), group->get(), type);
        if (!link) {
            return unexpected(link.error().code, link.error().message);
        }
        links_.push_back(std::move(*link));
    }
    return {};
}

Result<void> BpfTrafficSockets::attachToCalls()
{
    for (const char* name : {"note_sending", "note_sending6", "note_receiving", "note_receiving6", "note_state"}) {
        const int program = object_.program(name);
        if (program < 0) {
            continue;
        }
        auto link = attachBpfTracepoint(program);
        if (!link) {
            return unexpected(link.error().code, link.error().message);
        }
        links_.push_back(std::move(*link));
    }
    return {};
}

Result<void> BpfTrafficSockets::findOpenSockets()
{
    if (!search_) {
        auto link = attachBpfProgram(object_.program("note_held"), 0, BPF_TRACE_ITER);
        if (!link) {
            return unexpected(link.error().code, link.error().message);
        }
        search_ = std::move(*link);
    }
    const auto files = startBpfIterator(search_.get());
    if (!files) {
        return unexpected(files.error().code, files.error().message);
    }
    // The program writes nothing. The kernel breaks off a walk without any result after a million files: it goes on then.
    std::array<char, 64> nothing = {};
    ssize_t size = 0;
    do {
        size = ::read(files->get(), nothing.data(), nothing.size());
    } while (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR)));
    if (size < 0) {
        return bpfError("walking over open files", errno);
    }
    return {};
}

/// Whether the programs know our own sockets for ours.
Result<void> BpfTrafficSockets::check(const std::filesystem::path& root) const
{
    struct Owner { // the beginning of it
        std::uint64_t who = 0;
        std::array<std::uint64_t, 15> rest = {};
    };
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket && errno == EAFNOSUPPORT && isKnownAsItself(root)) {
        return {}; // our unit lets us have none
    }
    const int number = socket.get();
    Owner owner;
    if (!readBpfMap(object_.map("owners"), &number, &owner)) {
        return bpfError("finding the owner of a socket", errno);
    }
    if ((owner.who & BPF_TRAFFIC_PID_MASK) != static_cast<std::uint64_t>(::getpid())
        || (owner.who & BPF_TRAFFIC_ELSEWHERE) != 0 || owner.who >> BPF_TRAFFIC_START_SHIFT != ownStart(root)) {
        return unexpected(ErrorCode::Unavailable, "the programs take a socket of ours for somebody else's");
    }
    return {};
}

void BpfTrafficSockets::lookAgain()
{
    const double now = runtime_->monotonicTime();
    if (!seesPackets_ || seesUsers_ || now < searchAt_ || !isAwaited()) {
        return;
    }
    static_cast<void>(findOpenSockets()); // who is not found now may be the next time, or when the connection closes
    searchAt_ = now + (runtime_->monotonicTime() - now) / searchShare;
}

bool BpfTrafficSockets::isAwaited() const
{
    std::vector<BpfTraffic> parts(possibleProcessors());
    std::uint64_t packets = 0;
    for (const std::uint64_t key : {BPF_TRAFFIC_WAITING, BPF_TRAFFIC_WAITING | BPF_TRAFFIC_ELSEWHERE}) {
        if (readBpfMap(sums(), &key, parts.data())) {
            for (const BpfTraffic& part : parts) {
                packets += part.packets[BPF_TRAFFIC_RECEIVED] + part.packets[BPF_TRAFFIC_SENT];
            }
        }
    }
    return packets != 0;
}

void BpfTrafficSockets::setBareInterfaces(const std::vector<std::int32_t>& indexes)
{
    constexpr std::uint32_t bits = 64;
    if (!seesPackets_ || indexes == bareInterfaces_) {
        return;
    }
    std::vector<std::uint64_t> words(BPF_TRAFFIC_INTERFACE_WORDS);
    std::vector<std::uint32_t> changed;
    for (const std::vector<std::int32_t>* list : {&std::as_const(bareInterfaces_), &indexes}) {
        for (const std::int32_t index : *list) {
            const std::uint32_t word = static_cast<std::uint32_t>(index) / bits;
            if (word < words.size()) { // beyond them packets count with a header
                words[word] |= list == &indexes ? std::uint64_t{1} << (static_cast<std::uint32_t>(index) % bits) : 0;
                changed.push_back(word);
            }
        }
    }
    for (const std::uint32_t word : changed) {
        writeBpfMap(object_.map("bare_links"), &word, &words[word]);
    }
    bareInterfaces_ = indexes;
}

} // namespace meridal
