// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/JournalExport.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace meridal {

namespace {

/// Little-endian, whatever the machine is.
std::uint64_t sizeFrom(std::string_view bytes)
{
    std::uint64_t size = 0;
    for (std::size_t at = sizeof size; at-- > 0;) {
        size = size << 8 | static_cast<unsigned char>(bytes[at]);
    }
    return size;
}

} // namespace

bool JournalExport::add(std::string_view bytes)
{
    held_.append(bytes);
    std::string_view rest = held_;
    Found found = Found::Whole;
    while (found == Found::Whole) {
        found = takeField(rest);
    }
    held_.erase(0, held_.size() - rest.size());
    return found == Found::Part && held_.size() <= 2 * largestField;
}

JournalExport::Found JournalExport::takeField(std::string_view& rest)
{
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) {
        return Found::Part;
    }
    const std::string_view line = rest.substr(0, end);
    const std::size_t equals = line.find('=');
    if (line.empty()) {
        if (!entry_.empty()) {
            take_(std::exchange(entry_, {}));
        }
    } else if (equals != std::string_view::npos) {
        entry_.insert_or_assign(std::string(line.substr(0, equals)), std::string(line.substr(equals + 1)));
    } else {
        const std::size_t begin = end + 1 + sizeof(std::uint64_t);
        if (rest.size() < begin) {
            return Found::Part;
        }
        const std::uint64_t size = sizeFrom(rest.substr(end + 1));
        if (size > largestField) {
            return Found::Nonsense;
        }
        if (rest.size() <= begin + size) {
            return Found::Part;
        }
        if (rest[begin + size] != '\n') {
            return Found::Nonsense;
        }
        entry_.insert_or_assign(std::string(line), std::string(rest.substr(begin, size)));
        rest.remove_prefix(begin + size + 1);
        return Found::Whole;
    }
    rest.remove_prefix(end + 1);
    return Found::Whole;
}

} // namespace meridal
