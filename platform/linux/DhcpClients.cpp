#include "platform/linux/DhcpClients.h"

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

bool belongsToRoot(const std::filesystem::path& path)
{
    struct stat status { };
    return ::stat(path.c_str(), &status) == 0 && status.st_uid == 0;
}

} // namespace

std::optional<LeaseRenewal> DhcpClients::find(const std::string& interfaceName) const
{
    for (const std::string& process : folder_.list("proc")) {
        const auto pid = leadingNumber(process);
        if (pid && belongsToRoot(folder_.path("proc/" + process))) {
            if (auto renewal = renewalBy(process, interfaceName)) {
                return renewal;
            }
        }
    }
    return std::nullopt;
}

std::optional<LeaseRenewal> DhcpClients::renewalBy(const std::string& process, const std::string& interfaceName) const
{
    const std::string folder = "proc/" + process;
    const std::string name = folder_.readLine(folder + "/comm").value_or("");
    if (name != "dhclient" && name != "udhcpc" && name != "dhcpcd") {
        return std::nullopt;
    }
    const auto words = wordsOf(folder_.read(folder + "/cmdline").value_or(""));
    std::error_code failure;
    const std::string program = std::filesystem::read_symlink(folder_.path(folder + "/exe"), failure).string();
    // dhcpcd serves all interfaces, and writes a title of its own over its command line.
    const bool serves = name == "dhcpcd" || std::find(words.begin(), words.end(), interfaceName) != words.end();
    if (!serves || failure || program.empty()) {
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
