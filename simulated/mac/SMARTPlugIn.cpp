// SPDX-License-Identifier: Apache-2.0
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/storage/ata/ATASMARTLib.h>
#include <IOKit/storage/nvme/NVMeSMARTLibExternal.h>

#include "simulated/mac/Ledger.h"
#include "simulated/mac/Objects.h"
#include "simulated/mac/Registry.h"

#include <array>
#include <cstring>
#include <memory>
#include <type_traits>

using namespace meridal::test;

namespace {

/// An interface as clients hold it: the address of a pointer to its table. The disk stands behind it.
template <typename Table>
struct Instance {
    const Table* table;
    SimulatedSMART* disk;
    CFUUIDBytes offered{}; ///< a plug-in's: the one interface it has
    std::unique_ptr<Table> owned = std::make_unique<Table>();
};

template <typename Table>
SimulatedSMART& diskOf(void* self)
{
    return *static_cast<Instance<Table>*>(self)->disk;
}

template <typename Table>
constexpr const char* nameOf = std::is_same_v<Table, IOCFPlugInInterface> ? "plug-in" : "interface of a plug-in";

template <typename Table>
ULONG release(void* self)
{
    Ledger::current().closed(nameOf<Table>);
    delete static_cast<Instance<Table>*>(self);
    return 0;
}

template <typename Table>
Instance<Table>* make(SimulatedSMART& disk)
{
    auto instance = std::make_unique<Instance<Table>>();
    instance->disk = &disk;
    instance->owned->Release = release<Table>;
    instance->table = instance->owned.get();
    Ledger::current().opened(nameOf<Table>);
    return instance.release();
}

IOReturn note(SimulatedSMART& disk, const char* command, Boolean enable)
{
    disk.commands.push_back(command + std::string(enable != 0 ? " on" : " off"));
    return disk.commandResult;
}

IOReturn copy(const SimulatedSMART& disk, const std::array<std::uint8_t, 512>& page, void* to)
{
    std::memcpy(to, page.data(), disk.commandResult == kIOReturnSuccess ? page.size() : page.size() / 2);
    return disk.commandResult;
}

void* makeATA(SimulatedSMART& disk)
{
    using Table = IOATASMARTInterface;
    auto* made = make<Table>(disk);
    made->owned->SMARTEnableDisableOperations = [](void* self, Boolean enable) {
        return note(diskOf<Table>(self), "operations", enable);
    };
    made->owned->SMARTEnableDisableAutosave = [](void* self, Boolean enable) {
        return note(diskOf<Table>(self), "autosave", enable);
    };
    made->owned->SMARTReturnStatus = [](void* self, Boolean* exceeded) {
        *exceeded = diskOf<Table>(self).exceeded ? 1 : 0;
        return diskOf<Table>(self).commandResult;
    };
    made->owned->SMARTReadData = [](void* self, ATASMARTData* data) {
        return copy(diskOf<Table>(self), diskOf<Table>(self).data, data);
    };
    made->owned->SMARTReadDataThresholds = [](void* self, ATASMARTDataThresholds* data) {
        return copy(diskOf<Table>(self), diskOf<Table>(self).thresholds, data);
    };
    made->owned->GetATAIdentifyData = [](void* self, void* buffer, UInt32 size, UInt32* outSize) {
        *outSize = size;
        return copy(diskOf<Table>(self), diskOf<Table>(self).identify, buffer);
    };
    return made;
}

void* makeNVMe(SimulatedSMART& disk)
{
    using Table = IONVMeSMARTInterface;
    auto* made = make<Table>(disk);
    made->owned->SMARTReadData = [](void* self, NVMeSMARTData* data) {
        return copy(diskOf<Table>(self), diskOf<Table>(self).data, data);
    };
    made->owned->GetIdentifyData = [](void* self, void* data, std::uint32_t space) {
        constexpr std::size_t size = 4096; // whatever is asked for
        std::memset(data, space == 0 ? 0 : 0xFF, size);
        return copy(diskOf<Table>(self), diskOf<Table>(self).identify, data);
    };
    return made;
}

HRESULT query(void* self, REFIID identifier, LPVOID* found)
{
    const auto& plugIn = *static_cast<Instance<IOCFPlugInInterface>*>(self);
    if (!plugIn.disk->hasInterface || plugIn.offered != identifier) {
        return -1;
    }
    const bool isNVMe = identifier == CFUUIDGetUUIDBytes(kIONVMeSMARTInterfaceID);
    *found = isNVMe ? makeNVMe(*plugIn.disk) : makeATA(*plugIn.disk);
    return S_OK;
}

} // namespace

extern "C" {

kern_return_t IOCreatePlugInInterfaceForService(
    io_service_t service, CFUUIDRef plugInType, CFUUIDRef interfaceType, IOCFPlugInInterface*** interface, SInt32*)
{
    Registry& registry = Registry::current();
    const Registry::Handle* handle = registry.handleAt(service);
    const auto disk = handle && handle->node ? registry.disks.find(handle->node->name) : registry.disks.end();
    if (disk == registry.disks.end() || interfaceType != kIOCFPlugInInterfaceID) {
        return kIOReturnNotFound;
    }
    if (disk->second.refusal != KERN_SUCCESS) {
        return disk->second.refusal;
    }
    auto* made = make<IOCFPlugInInterface>(disk->second);
    const bool isNVMe = plugInType == kIONVMeSMARTUserClientTypeID;
    made->offered = CFUUIDGetUUIDBytes(isNVMe ? kIONVMeSMARTInterfaceID : kIOATASMARTInterfaceID);
    made->owned->QueryInterface = query;
    *interface = reinterpret_cast<IOCFPlugInInterface**>(made);
    return KERN_SUCCESS;
}

kern_return_t IODestroyPlugInInterface(IOCFPlugInInterface** interface)
{
    release<IOCFPlugInInterface>(interface);
    return KERN_SUCCESS;
}
}
