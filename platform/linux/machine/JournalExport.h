// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace meridal {

/// Takes entries out of systemd's Journal Export Format, in which journalctl writes them without loss: a line "NAME=value" a
/// field, "NAME", a size of 8 bytes and so many bytes where a value is no text of one line; an empty line ends an entry.
class JournalExport {
public:
    using Entry = std::map<std::string, std::string, std::less<>>;
    using Take = std::function<void(const Entry& entry)>;

    static constexpr std::size_t largestField =
        256 * 1024; ///< bytes, what the system's journal takes of the kernel and more

    explicit JournalExport(Take take) : take_(std::move(take)) { }
    /// Goes on with what has come. False: it is no such format, and the rest cannot be read either.
    bool add(std::string_view bytes);

private:
    enum class Found { Whole, Part, Nonsense };
    Found takeField(std::string_view& rest);

    Take take_;
    std::string held_; ///< the beginning of a field
    Entry entry_;
};

} // namespace meridal
