// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string_view>

struct BpfSkeleton;

namespace meridal {

/// How many entries a map gets in place of what its source says.
struct BpfMapSize {
    std::string_view map;
    std::uint32_t entries = 0;
};

/// The programs and maps of one NAME.bpf.c in the kernel. They leave it with this object, or when the last link or mapping
/// made of them ends: nothing is pinned.
class BpfObject {
public:
    /// Loads the object of that name. Takes CAP_BPF and CAP_PERFMON and a kernel with type data (BTF). The kernel checks
    /// the programs and fits them to its own types: some milliseconds, about as much memory as the object is long.
    static Result<BpfObject> load(std::string_view name, std::initializer_list<BpfMapSize> sizes = {});

    /// Descriptors, valid as long as this object; -1 when there is none of that name.
    int map(std::string_view name) const;
    int program(std::string_view name) const;

private:
    static Result<BpfObject> loadOnce(
        const BpfSkeleton& layout, std::string_view name, std::initializer_list<BpfMapSize> sizes, int& failure);
    using Skeleton = std::unique_ptr<void, void (*)(void*)>;
    BpfObject(const BpfSkeleton& layout, Skeleton skeleton) : layout_(&layout), skeleton_(std::move(skeleton)) { }

    const BpfSkeleton* layout_;
    Skeleton skeleton_;
};

} // namespace meridal
