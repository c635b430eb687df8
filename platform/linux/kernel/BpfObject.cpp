// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/BpfObject.h"

#include "platform/linux/bpf/skeleton.h"
#include "platform/linux/kernel/BpfCalls.h"

#include <cerrno>
#include <cstddef>
#include <fmt/format.h>

namespace meridal {

namespace {

const BpfSkeleton* findSkeleton(std::string_view name)
{
    for (const BpfSkeleton* const* each = bpfSkeletons; *each; ++each) {
        if (name == (*each)->name) {
            return *each;
        }
    }
    return nullptr;
}

/// One of the integers that belong to a slot; null when there is no such slot.
int* fieldOf(void* skeleton, const BpfSlot* slots, std::string_view name, std::size_t field)
{
    for (; slots->name; ++slots) {
        if (name == slots->name) {
            return reinterpret_cast<int*>(static_cast<std::byte*>(skeleton) + slots->offset + field);
        }
    }
    return nullptr;
}

int descriptorIn(const int* field) { return field && *field > 0 ? *field : -1; }

} // namespace

Result<BpfObject> BpfObject::load(std::string_view name, std::initializer_list<BpfMapSize> sizes)
{
    const BpfSkeleton* layout = findSkeleton(name);
    if (!layout) {
        return unexpected(ErrorCode::NotFound, fmt::format("this build has no BPF program {}", name));
    }
    // The verifier stops at a signal, which says nothing against the program.
    constexpr int attempts = 5;
    int failure = 0;
    for (int i = 0; i < attempts; ++i) {
        auto object = loadOnce(*layout, name, sizes, failure);
        if (object || (failure != -EAGAIN && failure != -EINTR)) {
            return object;
        }
    }
    return bpfError(fmt::format("loading the BPF program {}", name), -failure);
}

Result<BpfObject> BpfObject::loadOnce(
    const BpfSkeleton& layout, std::string_view name, std::initializer_list<BpfMapSize> sizes, int& failure)
{
    Skeleton skeleton(layout.open(), layout.destroy);
    if (!skeleton) {
        return unexpected(ErrorCode::Unavailable, "no memory to load a BPF program");
    }
    for (const BpfMapSize& size : sizes) {
        int* entries = fieldOf(skeleton.get(), layout.maps, size.map, layout.entriesOfMap);
        if (!entries) {
            return unexpected(ErrorCode::Internal, fmt::format("BPF program {} has no map {}", name, size.map));
        }
        *entries = static_cast<int>(size.entries);
    }
    failure = layout.load(skeleton.get());
    if (failure != 0) {
        return bpfError(fmt::format("loading the BPF program {}", name), -failure);
    }
    return BpfObject(layout, std::move(skeleton));
}

int BpfObject::map(std::string_view name) const
{
    return descriptorIn(fieldOf(skeleton_.get(), layout_->maps, name, layout_->descriptorOfMap));
}

int BpfObject::program(std::string_view name) const
{
    return descriptorIn(fieldOf(skeleton_.get(), layout_->programs, name, layout_->descriptorOfProgram));
}

} // namespace meridal
