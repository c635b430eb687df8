#include "platform/linux/disks/SysfsEntry.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <sstream>

namespace meridal {

namespace {

template <typename Figure>
Value orNull(const std::optional<Figure>& figure)
{
    return figure ? Value(*figure) : Value();
}

/// Links of folders, up to the next one that is a device, are few.
constexpr int deepestFolder = 32;

std::string parentFolder(const std::string& path)
{
    const std::size_t end = path.rfind('/');
    return end == std::string::npos ? std::string() : path.substr(0, end);
}

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

} // namespace

std::optional<std::string> SysfsEntry::file(std::string_view name) const
{
    return root_.readLine(path_ + '/' + std::string(name));
}

/// Where the device's own files are; those of a disk are with the device that has it.
std::string SysfsEntry::deviceFolder() const
{
    if (root_.exists(path_ + "/device")) {
        return path_ + "/device";
    }
    const RegistryEntryPtr owner = parent();
    return owner ? owner->path() : path_;
}

std::optional<std::string> SysfsEntry::device(std::string_view name) const
{
    return root_.readLine(deviceFolder() + '/' + std::string(name));
}

/// A property that udev noted: in its database, or with the device itself.
std::optional<std::string> SysfsEntry::udev(std::string_view key) const
{
    if (const auto number = file("dev")) {
        const std::string kind = isBlockDevice() ? "b" : "c";
        if (const auto noted = root_.read("run/udev/data/" + kind + *number)) {
            if (auto value = valueOfKey(*noted, "E:" + std::string(key), '=')) {
                return value;
            }
        }
    }
    const auto announced = root_.read(path_ + "/uevent");
    return announced ? valueOfKey(*announced, key, '=') : std::nullopt;
}

bool SysfsEntry::isBlockDevice() const { return path_.find("/block/") != std::string::npos; }

bool SysfsEntry::isNvmeController() const
{
    return name().starts_with("nvme") && isDigits(std::string_view(path_).substr(path_.rfind('/') + 5));
}

bool SysfsEntry::isBehindUsb() const { return path_.find("/usb") != std::string::npos; }

std::optional<ATAIdentity> SysfsEntry::identity() const
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

std::optional<std::string> SysfsEntry::unitSerial() const
{
    constexpr std::size_t header = 4;
    const auto announced = root_.read(path_ + "/vpd_pg80");
    return announced && announced->size() > header ? fieldText(std::string_view(*announced).substr(header))
                                                   : std::nullopt;
}

/// Disks of which it is not known for certain are taken for capable: asked once, they tell. Sticks and card readers are
/// not asked, as some of them take such a question badly.
bool SysfsEntry::isSmartCapable() const
{
    if (!isBlockDevice() || file("partition") || device("type").value_or("0") != "0") {
        return false;
    }
    if (const auto announced = identity()) {
        return announced->smartSupported;
    }
    if (udev("ID_ATA") == "1") {
        return udev("ID_ATA_FEATURE_SET_SMART") == "1";
    }
    if (device("vendor") == "ATA") {
        return true;
    }
    const bool udevLooked = udev("ID_BUS").has_value();
    return isBehindUsb() && !udevLooked && file("removable") == "0";
}

bool SysfsEntry::isNvmeCapable() const
{
    constexpr std::array remote = {"tcp", "rdma", "fc", "loop"};
    const std::string transport = file("transport").value_or("pcie");
    return isNvmeController() && std::find(remote.begin(), remote.end(), transport) == remote.end();
}

Value SysfsEntry::characteristics() const
{
    Value result = Value::object();
    const auto put = [&result](const char* key, const std::optional<std::string>& value) {
        if (value) {
            result[key] = *value;
        }
    };
    if (isNvmeController()) {
        put("Product Name", file("model"));
        put("Serial Number", file("serial"));
        result["Medium Type"] = "Solid State";
        return result;
    }
    const auto announced = identity();
    const bool isATA = announced || udev("ID_ATA") == "1" || device("vendor") == "ATA";
    if (announced) {
        put("Product Name", announced->model);
        put("Serial Number", announced->serial);
    } else {
        // The kernel's own text is cut to 16 characters, and udev's other one has underscores for blanks.
        auto model = isATA ? udev("ID_MODEL_ENC") : std::nullopt;
        if (model) {
            model = unescaped(*model);
        } else if (isATA && (model = udev("ID_MODEL"))) {
            std::replace(model->begin(), model->end(), '_', ' ');
        }
        put("Vendor Name", isATA ? std::nullopt : device("vendor"));
        put("Product Name", model ? model : device("model"));
        put("Serial Number", isATA ? udev("ID_SERIAL_SHORT") : std::nullopt);
    }
    if (const auto rotational = file("queue/rotational")) {
        result["Medium Type"] = *rotational == "0" ? "Solid State" : "Rotational";
    }
    return result;
}

/// Documentation/block/stat.rst. What is passed through to the disk is not counted there.
Value SysfsEntry::statistics() const
{
    const auto text = isBlockDevice() && file("queue/iostats") != "0" ? file("stat") : std::nullopt;
    std::istringstream line(text.value_or(""));
    std::int64_t reads = 0;
    std::int64_t writes = 0;
    std::int64_t other = 0;
    if (!(line >> reads >> other >> other >> other >> writes)) {
        return {};
    }
    return {{"Operations (Read)", reads}, {"Operations (Write)", writes}};
}

/// The controller's first namespace. With several paths to it, its block device is elsewhere and the folder here has the
/// path's number in its name.
std::optional<std::string> SysfsEntry::namespaceName() const
{
    for (const std::string& child : root_.list(path_)) {
        if (!child.starts_with(name())) {
            continue;
        }
        const std::string_view rest = std::string_view(child).substr(name().size());
        const std::size_t number = rest.find('n');
        const bool isPath =
            rest.starts_with("c") && number != std::string_view::npos && isDigits(rest.substr(1, number - 1));
        if ((number == 0 || isPath) && isDigits(rest.substr(number + 1))) {
            return name() + std::string(rest.substr(number));
        }
    }
    return std::nullopt;
}

Value SysfsEntry::property(std::string_view key) const
{
    if (key == "SMART Capable") {
        return isSmartCapable();
    }
    if (key == "NVMe SMART Capable") {
        return isNvmeCapable();
    }
    if (key == "Device Characteristics") {
        return characteristics();
    }
    if (key == "Statistics") {
        return statistics();
    }
    if (key == "BSD Name") {
        return isBlockDevice() ? Value(name()) : Value();
    }
    if (key == "USB Serial Number") {
        return file("idVendor") ? orNull(file("serial")) : Value();
    }
    return key == "INQUIRY Unit Serial Number" ? orNull(unitSerial()) : Value();
}

Value SysfsEntry::searchChildren(std::string_view key) const
{
    Value own = property(key);
    if (own.is_null() && key == "BSD Name" && isNvmeController()) {
        return orNull(namespaceName());
    }
    return own;
}

RegistryEntryPtr SysfsEntry::parent() const
{
    std::string folder = parentFolder(path_);
    for (int depth = 0; depth < deepestFolder && folder.starts_with("sys/devices/"); ++depth) {
        if (root_.exists(folder + "/uevent")) {
            return std::make_shared<SysfsEntry>(root_, folder);
        }
        folder = parentFolder(folder); // a folder that only groups, such as "block"
    }
    return nullptr;
}

} // namespace meridal
