// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/DhcpClients.h"

#include <algorithm>
#include <sys/stat.h>
#include <system_error>

namespace meridal {

namespace {

/// A command line as the kernel keeps it: words that end in NUL.
std::vector<std::string> wordsOf(const std::string& commandLine)
{
    std::vector<std::string> words;
    for (std::size_t from = 0; from < commandLine.size();) {
        const std::size_t end = std::min(commandLine.find('\0', from), commandLine.size());
        words.push_back(commandLine.substr(from, end - from));
        from = end + 1;
    }
    return words;
}

/// An option with its value, as the client was started with it.
void copyOption(const std::vector<std::string>& from, const char* option, std::vector<std::string>& to)
{
    const auto found = std::find(from.begin(), from.end(), option);
    if (found != from.end() && found + 1 != from.end()) {
        to.insert(to.end(), found, found + 2);
    }
}

/// Whether nobody but root could have put it there or changed it.
bool isRootsAlone(const std::filesystem::path& path, mode_t kind, mode_t forbidden)
{
    struct stat status { };
    if (::lstat(path.c_str(), &status) != 0 || (status.st_mode & S_IFMT) != kind || status.st_uid != 0) {
        return false;
    }
    // In a folder with the sticky bit (/tmp) nobody moves or removes what is root's.
    const bool isSticky = kind == S_IFDIR && (status.st_mode & S_ISVTX) != 0;
    return (status.st_mode & (isSticky ? forbidden : S_IWGRP | S_IWOTH | forbidden)) == 0;
}

/// The file that such a client runs from; udhcpc is most often one name of busybox.
bool isProgramOf(const std::string& client, const std::string& fileName)
{
    return fileName == client || (client == "udhcpc" && fileName == "busybox");
}

} // namespace

std::optional<LeaseRenewal> DhcpClients::find(const std::string& interfaceName) const
{
    for (const std::string& process : folder_.list("proc")) {
        const auto pid = leadingNumber(process);
        if (pid && isRoots(process)) {
            if (auto renewal = renewalBy(process, interfaceName)) {
                return renewal;
            }
        }
    }
    return std::nullopt;
}

/// A set-uid program keeps the user behind it as its real one. In namespaces of their own, users lay any file under any path,
/// and name an interface as this machine's is named.
bool DhcpClients::isRoots(const std::string& process) const
{
    const std::string folder = "proc/" + process;
    if (valueOfKey(folder_.read(folder + "/status").value_or(""), "Uid", ':') != "0\t0\t0\t0") {
        return false;
    }
    const auto shares = [&](const std::string& space, const std::string& with) {
        const std::string own = linkTarget(folder + space);
        return !own.empty() && own == linkTarget(with + space);
    };
    // The service manager gives the daemon mounts of its own, and runs the client's program under process 1's.
    return shares("/ns/net", "proc/self") && shares("/ns/pid", "proc/self")
        && (shares("/ns/mnt", "proc/self") || shares("/ns/mnt", "proc/1"));
}

/// Whether root alone has a say in what runs under this path.
bool DhcpClients::isTrusted(const std::filesystem::path& program) const
{
    if (!program.is_absolute()
        || !isRootsAlone(folder_.path(program.relative_path().native()), S_IFREG, S_ISUID | S_ISGID)) {
        return false;
    }
    for (auto parent = program.relative_path().parent_path(); !parent.empty(); parent = parent.parent_path()) {
        if (!isRootsAlone(folder_.path(parent.native()), S_IFDIR, 0)) {
            return false;
        }
    }
    return true;
}

std::string DhcpClients::linkTarget(const std::string& link) const
{
    std::error_code failure;
    return std::filesystem::read_symlink(folder_.path(link), failure).string();
}

std::optional<LeaseRenewal> DhcpClients::renewalBy(const std::string& process, const std::string& interfaceName) const
{
    const std::string folder = "proc/" + process;
    const std::string name = folder_.readLine(folder + "/comm").value_or("");
    if (name != "dhclient" && name != "udhcpc" && name != "dhcpcd") {
        return std::nullopt;
    }
    const auto words = wordsOf(folder_.read(folder + "/cmdline").value_or(""));
    const std::filesystem::path program = linkTarget(folder + "/exe");
    // dhcpcd serves all interfaces, and writes a title of its own over its command line.
    const bool serves = name == "dhcpcd" || std::find(words.begin(), words.end(), interfaceName) != words.end();
    if (!serves || !isProgramOf(name, program.filename()) || !isTrusted(program)) {
        return std::nullopt;
    }
    LeaseRenewal renewal;
    if (name == "udhcpc") {
        renewal.signalPid = static_cast<std::int32_t>(*leadingNumber(process));
    } else if (name == "dhcpcd") {
        renewal.commands.push_back({program, "-n", interfaceName});
    } else { // it knows no renewing: the lease is given back, and the same client asks for it anew
        std::vector<std::string> release = {program, "-r"};
        copyOption(words, "-pf", release);
        copyOption(words, "-lf", release);
        release.push_back(interfaceName);
        std::vector<std::string> restart = words;
        restart.front() = program;
        renewal.commands = {std::move(release), std::move(restart)};
    }
    return renewal;
}

} // namespace meridal
