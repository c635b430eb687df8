// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ProgramPages.h"

#include <cstddef>
#include <cstdint>
#include <link.h>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace meridal {

namespace {

/// Of segments that nobody can write to: they are as they are in their file, relocated pages lie in writable ones.
int releaseSegments(dl_phdr_info* object, std::size_t, void* pageSize)
{
    const auto page = *static_cast<const std::uintptr_t*>(pageSize);
    if (std::string_view(object->dlpi_name).starts_with("linux-vdso")) {
        return 0; // the kernel's own, of no file
    }
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
            continue;
        }
        const std::uintptr_t begin = (object->dlpi_addr + segment.p_vaddr) & ~(page - 1);
        const std::uintptr_t end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
    return 0;
}

} // namespace

void releaseProgramPages()
{
    auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    ::dl_iterate_phdr(releaseSegments, &page);
}

} // namespace meridal
