#pragma once

#include "platform/ATAIdentity.h"
#include "platform/host/Registry.h"
#include "platform/linux/kernel/RootFolder.h"

#include <optional>
#include <string>

namespace meridal {

/// One device folder of sysfs as an entry of the registry, with macOS's names for its properties.
class SysfsEntry final : public RegistryEntry {
public:
    /// `path` is relative to the root and names the folder itself, not a link to it.
    SysfsEntry(RootFolder root, std::string path) : root_(std::move(root)), path_(std::move(path)) { }

    std::string path() const override { return path_; }
    Value property(std::string_view key) const override;
    Value searchChildren(std::string_view key) const override;
    RegistryEntryPtr parent() const override;

    std::string name() const { return path_.substr(path_.rfind('/') + 1); }

private:
    std::optional<std::string> file(std::string_view name) const;
    std::string deviceFolder() const;
    std::optional<std::string> device(std::string_view name) const;
    std::optional<std::string> udev(std::string_view key) const;
    bool isBlockDevice() const;
    bool isNvmeController() const;
    bool isBehindUsb() const;
    bool isSmartCapable() const;
    bool isNvmeCapable() const;
    /// What the disk said to IDENTIFY DEVICE when the kernel found it; SAT bridges pass it on (VPD page 89h).
    std::optional<ATAIdentity> identity() const;
    std::optional<std::string> unitSerial() const;
    Value characteristics() const;
    Value statistics() const;
    std::optional<std::string> namespaceName() const;

    RootFolder root_;
    std::string path_;
};

} // namespace meridal
