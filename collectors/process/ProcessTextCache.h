// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/ProcessTableQuery.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace meridal {

class ProcessStatCollector;
struct Context;

/// The texts of a table, kept from one look to the next: command lines by process, the others by what they are of. Holds those
/// that somebody looked at in the last minutes.
class ProcessTextCache final : public ProcessTexts {
public:
    using UserName = std::function<std::string(std::uint32_t uid)>;

    ProcessTextCache(Context& context, ProcessStatCollector& processes, UserName userName);

    std::string name(ProcessStatCollectorItem& item, bool grouped) override;
    std::string_view command(const ProcessStatCollectorItem& item) override;
    std::string unit(const ProcessStatCollectorItem& item) override;
    std::string user(const ProcessStatCollectorItem& item) override;

    /// After passes: forgets what nobody looks at any more.
    void forgetOld();

    static constexpr std::size_t longestCommand = 1024; ///< bytes
    /// s for which a command line is believed: programs write their state into it.
    static constexpr double believedFor = 30;
    static constexpr double keptFor = 120; ///< s since it was looked at last

private:
    struct Command {
        std::uint64_t startIdentity = 0;
        std::string program; ///< by its name in the table, which another program changes
        std::string text;
        double readAt = 0; ///< monotonic s, as the next
        double usedAt = 0;
    };

    std::string readCommand(const ProcessStatCollectorItem& item) const;

    Context& context_;
    ProcessStatCollector& processes_;
    UserName userName_;
    std::unordered_map<std::int32_t, Command> commands_;
    double forgetAt_ = 0;
};

/// Arguments that each end in a zero as one line of valid UTF-8, of so many bytes at most.
std::string commandLineOf(std::string_view arguments, std::size_t longest);

} // namespace meridal
