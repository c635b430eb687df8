// SPDX-License-Identifier: Apache-2.0
// The first byte chooses the parser, the rest is the file.

#include "platform/linux/kernel/ProcParsers.h"
#include "platform/linux/machine/MachineParsers.h"
#include "platform/linux/machine/MountTable.h"
#include "platform/linux/processes/CgroupPath.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

bool lies(std::string_view part, std::string_view whole)
{
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace meridal;
    if (size == 0) {
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 8) {
    case 0:
        if (const auto stat = proc::parseStat(text)) {
            require(lies(stat->name, text) && stat->parentPid >= 0);
        }
        break;
    case 1:
        if (const auto status = proc::parseStatus(text)) {
            require(status->residentBytes % 1024 == 0);
        }
        break;
    case 2:
        proc::parseIo(text);
        break;
    case 3:
        proc::parseSchedstat(text);
        break;
    case 4: {
        const CgroupPlace place = placeInCgroups(text);
        require(
            lies(place.unifiedPath, text) && (place.unit.kind == ProcessUnitKind::Shared || !place.unit.key.empty()));
        require(place.unit.kind != ProcessUnitKind::Container || !place.unit.name.empty());
        break;
    }
    case 6:
        for (const Mount& mount : mountsWithData(parseMountInfo(text))) {
            require(!mount.type.empty());
        }
        break;
    case 7: {
        ProcessorReading processors;
        MemoryReading memory;
        proc::parseMachineStat(text, 1, processors);
        proc::parseMemoryInfo(text, memory);
        proc::parsePageCounts(text, 1, memory);
        proc::parseStall(text);
        require(memory.swapUsed <= memory.swapTotal);
        std::string_view rest = text;
        while (const auto disk = proc::nextDiskLine(rest)) {
            require(lies(disk->name, text) && !disk->name.empty());
        }
        break;
    }
    default: {
        const std::string_view name = text.substr(0, text.find('\n'));
        const std::string_view argument = proc::parseCmdline(text.substr(name.size()), name, 15);
        require(lies(argument, text) && (argument.empty() || proc::isNamed(argument, name, 15)));
        break;
    }
    }
    return 0;
}
