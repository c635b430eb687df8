// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/SysfsDisk.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <utility>

namespace meridal {

namespace {

bool isDigits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Text in which udev has written bytes as \xNN, without blanks around it. Absent where nothing is left.
std::optional<std::string> unescaped(std::string_view text)
{
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned byte = 0;
        const std::string_view code = text.substr(at, 4);
        const auto* digits = code.data() + 2;
        if (code.size() == 4 && code.starts_with("\\x")
            && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            plain += static_cast<char>(byte);
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return fieldText(plain);
}

/// The nearest folder above that is a device, and not one that only groups, such as "block". Empty at the top.
std::string deviceAbove(const RootFolder& root, std::string folder)
{
    do {
        folder.resize(std::min(folder.size(), folder.rfind('/')));
    } while (folder.starts_with("sys/devices/") && !root.exists(folder + "/uevent"));
    return folder.starts_with("sys/devices/") ? folder : std::string();
}

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

using Question = std::optional<std::string> (*)(const RootFolder& root, const std::string& device);

/// What the nearest device answers that it hangs on and that has an answer.
std::optional<std::string> askAbove(const RootFolder& root, std::string device, Question question)
{
    constexpr int farthest = 10;
    for (int level = 0; level < farthest; ++level) {
        device = deviceAbove(root, device);
        auto found = device.empty() ? std::nullopt : question(root, device);
        if (found) {
            return found;
        }
    }
    return std::nullopt;
}

std::optional<std::string> unitSerial(const RootFolder& root, const std::string& device)
{
    constexpr std::size_t header = 4;
    const auto announced = root.read(device + "/vpd_pg80");
    return announced && announced->size() > header ? fieldText(std::string_view(*announced).substr(header))
                                                   : std::nullopt;
}

std::optional<std::string> usbSerial(const RootFolder& root, const std::string& device)
{
    return root.exists(device + "/idVendor") ? root.readLine(device + "/serial") : std::nullopt;
}

} // namespace

SysfsDisk::SysfsDisk(RootFolder root, std::string path)
    : root_(std::move(root)), path_(std::move(path)), name_(path_.substr(path_.rfind('/') + 1))
{
}

std::optional<std::string> SysfsDisk::file(std::string_view name) const
{
    return root_.readLine(path_ + '/' + std::string(name));
}

std::string SysfsDisk::deviceFolder() const
{
    if (root_.exists(path_ + "/device")) {
        return path_ + "/device";
    }
    const std::string owner = deviceAbove(root_, path_);
    return owner.empty() ? path_ : owner;
}

std::optional<std::string> SysfsDisk::device(std::string_view name) const
{
    return root_.readLine(deviceFolder() + '/' + std::string(name));
}

/// A property that udev noted: in its database, or with the device itself.
std::optional<std::string> SysfsDisk::udev(std::string_view key) const
{
    if (const auto number = file("dev")) {
        if (const auto noted = root_.read("run/udev/data/b" + *number)) {
            if (auto value = valueOfKey(*noted, "E:" + std::string(key), '=')) {
                return value;
            }
        }
    }
    const auto announced = root_.read(path_ + "/uevent");
    return announced ? valueOfKey(*announced, key, '=') : std::nullopt;
}

bool SysfsDisk::isBlockDevice() const { return path_.find("/block/") != std::string::npos; }

bool SysfsDisk::isNvmeController() const
{
    return name_.starts_with("nvme") && isDigits(std::string_view(name_).substr(4));
}

std::optional<std::int64_t> SysfsDisk::requests() const
{
    const auto text = isBlockDevice() && file("queue/iostats") != "0" ? file("stat") : std::nullopt;
    std::istringstream line(text.value_or(""));
    std::int64_t reads = 0;
    std::int64_t writes = 0;
    std::int64_t other = 0;
    const bool isWhole = static_cast<bool>(line >> reads >> other >> other >> other >> writes);
    return isWhole ? std::optional(reads + writes) : std::nullopt;
}

// ATA

/// What the disk said to IDENTIFY DEVICE when the kernel found it; SAT bridges pass it on (VPD page 89h).
std::optional<ATAIdentity> SysfsDisk::identity() const
{
    constexpr std::size_t identifyOffset = 60;
    SMARTPage page;
    const auto announced = root_.read(deviceFolder() + "/vpd_pg89");
    if (!announced || announced->size() < identifyOffset + page.size()) {
        return std::nullopt;
    }
    std::copy_n(announced->begin() + identifyOffset, page.size(), page.begin());
    return parseATAIdentity(page);
}

/// Disks of which it is not known for certain are taken for capable: asked once, they tell. Sticks and card readers are
/// not asked, as some of them take such a question badly.
bool SysfsDisk::isSmartCapable(const std::optional<ATAIdentity>& announced) const
{
    if (announced) {
        return announced->smartSupported;
    }
    if (udev("ID_ATA") == "1") {
        return udev("ID_ATA_FEATURE_SET_SMART") == "1";
    }
    if (device("vendor") == "ATA") {
        return true;
    }
    const bool isBehindUsb = path_.find("/usb") != std::string::npos;
    return isBehindUsb && !udev("ID_BUS") && file("removable") == "0"; // udev has not looked
}

/// The kernel's own text is cut to 16 characters, and one of udev's has underscores for blanks.
std::optional<std::string> SysfsDisk::udevModel() const
{
    if (const auto encoded = udev("ID_MODEL_ENC")) {
        return unescaped(*encoded);
    }
    auto model = udev("ID_MODEL");
    if (model) {
        std::replace(model->begin(), model->end(), '_', ' ');
    }
    return model;
}

std::optional<DiskRecord> SysfsDisk::ataRecord() const
{
    if (!isBlockDevice() || file("partition") || device("type").value_or("0") != "0") {
        return std::nullopt;
    }
    const auto announced = identity();
    if (!isSmartCapable(announced)) {
        return std::nullopt;
    }
    DiskRecord disk{.path = path_,
        .kind = SMARTKind::ATA,
        .unitSerial = askAbove(root_, path_, unitSerial),
        .usbSerial = askAbove(root_, path_, usbSerial),
        .blockDevice = name_};
    if (announced) {
        disk.model = announced->model;
        disk.serial = announced->serial;
    } else if (udev("ID_ATA") == "1" || device("vendor") == "ATA") { // which is no vendor
        const auto model = udevModel();
        disk.model = model ? model : device("model");
        disk.serial = udev("ID_SERIAL_SHORT");
    } else {
        disk.vendor = device("vendor");
        disk.model = device("model");
    }
    if (const auto rotational = file("queue/rotational")) {
        disk.rotational = *rotational != "0";
    }
    return disk;
}

// NVMe

/// The controller's first namespace. With several paths to it, its block device is elsewhere and the folder here has the
/// path's number in its name.
std::optional<std::string> SysfsDisk::namespaceName() const
{
    for (const std::string& child : root_.list(path_)) {
        if (!child.starts_with(name_)) {
            continue;
        }
        const std::string_view rest = std::string_view(child).substr(name_.size());
        const std::size_t number = rest.find('n');
        const bool isPath =
            rest.starts_with("c") && number != std::string_view::npos && isDigits(rest.substr(1, number - 1));
        if ((number == 0 || isPath) && isDigits(rest.substr(number + 1))) {
            return name_ + std::string(rest.substr(number));
        }
    }
    return std::nullopt;
}

std::optional<DiskRecord> SysfsDisk::nvmeRecord() const
{
    constexpr std::array remote = {"tcp", "rdma", "fc", "loop"};
    if (std::find(remote.begin(), remote.end(), file("transport").value_or("pcie")) != remote.end()) {
        return std::nullopt;
    }
    return DiskRecord{.path = path_,
        .kind = SMARTKind::NVMe,
        .model = file("model"),
        .serial = file("serial"),
        .blockDevice = namespaceName(),
        .rotational = false};
}

std::vector<DiskRecord> findDisks(const RootFolder& root)
{
    std::vector<DiskRecord> found;
    for (const std::string folder : {"sys/class/block/", "sys/class/nvme/"}) {
        for (const std::string& name : root.list(folder)) {
            if (auto disk = SysfsDisk(root, targetOf(root, folder + name)).record()) {
                found.push_back(*std::move(disk));
            }
        }
    }
    return found;
}

} // namespace meridal
