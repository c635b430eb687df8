#include "platform/linux/disks/LinuxRegistry.h"

#include "platform/linux/disks/SysfsEntry.h"
#include "platform/linux/kernel/Uevents.h"

#include <filesystem>
#include <utility>

namespace meridal {

namespace {

/// The device folder behind a link such as sys/class/block/sda, relative to the root.
std::string targetOf(const RootFolder& root, const std::string& link)
{
    std::error_code failure;
    const std::filesystem::path target = std::filesystem::read_symlink(root.path(link), failure);
    if (failure) {
        return link;
    }
    return (std::filesystem::path(link).parent_path() / target).lexically_normal().string();
}

class UeventObservation final : public Registry::Observation {
public:
    UeventObservation(Runtime& runtime, const std::filesystem::path& root, std::function<void()> changed)
        : uevents_(runtime, root, "block", std::move(changed))
    {
    }
    bool isOpen() const { return uevents_.isOpen(); }

private:
    Uevents uevents_;
};

} // namespace

LinuxRegistry::LinuxRegistry(
    Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations)
    : runtime_(runtime), root_(root), rootPath_(root), limitations_(std::move(limitations))
{
}

std::vector<RegistryEntryPtr> LinuxRegistry::entriesWithTrue(std::string_view property)
{
    std::vector<RegistryEntryPtr> found;
    for (const std::string folder : {"sys/class/block/", "sys/class/nvme/"}) {
        for (const std::string& name : root_.list(folder)) {
            auto entry = std::make_shared<SysfsEntry>(root_, targetOf(root_, folder + name));
            if (entry->property(property) == true) {
                found.push_back(std::move(entry));
            }
        }
    }
    return found;
}

std::unique_ptr<Registry::Observation> LinuxRegistry::observeDisks(std::function<void()> changed)
{
    auto observation = std::make_unique<UeventObservation>(runtime_, rootPath_, std::move(changed));
    if (!observation->isOpen()) {
        limitations_->set("disk-changes", "disks that come and go are not announced: no uevents here");
    }
    return observation;
}

} // namespace meridal
