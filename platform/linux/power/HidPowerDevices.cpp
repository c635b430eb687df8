// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/HidPowerDevices.h"

#include "base/Text.h"
#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/kernel/HelperProgram.h"
#include "platform/linux/kernel/HidReports.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr const char* hidrawFolder = "sys/class/hidraw";
constexpr std::size_t mostNodes = 64; ///< HIDRAW_MAX_DEVICES
constexpr int hasNoHelper = -2;       ///< in place of an errno: the program that would ask is not there

/// The serial number of a device's "uevent"; empty for what makers put there who have none.
std::string serialIn(const std::string& uevent)
{
    std::string serial = validUtf8(valueOfKey(uevent, "HID_UNIQ", '=').value_or(""));
    return serial.find_first_not_of("0 ") == std::string::npos ? "" : serial;
}

} // namespace

HidAsk askHidDevice(const std::string& node)
{
    return [node, program = std::make_shared<HelperProgram>()](const HidReportRequest& request) {
        const HidQuestion question{.isFeature = request.kind == HidReportKind::Feature ? 1U : 0U,
            .report = request.report,
            .length = static_cast<std::uint32_t>(request.size + 1)};
        HidBytes answer;
        if (!program->isRunning()) {
            const auto helper = findHelperProgram("meridal-disks");
            if (helper.empty()) {
                return HidAnswer{.error = hasNoHelper, .bytes = {}};
            }
            program->start(helper, {"--reports", node});
        }
        if (question.length > answer.data.size() || !program->isRunning()) {
            return HidAnswer{.error = -1, .bytes = {}};
        }
        const auto size = exchange(program->channel(), &question, sizeof question, &answer, sizeof answer);
        if (size != sizeof answer || answer.length > question.length) {
            program->stop();
            return HidAnswer{.error = -1, .bytes = {}};
        }
        HidAnswer report{.error = answer.error, .bytes = {}};
        if (answer.error == 0 && answer.length > 0) {
            report.bytes.assign(reinterpret_cast<const char*>(answer.data.data()) + 1, answer.length - 1);
        }
        return report;
    };
}

struct HidPowerDevices::Device {
    Device(std::string number, std::string where, std::string_view descriptor)
        : name(std::move(number)), place(std::move(where)), reports(descriptor)
    {
    }
    /// The kernel lets nobody close a node while another process waits for a report.
    ~Device()
    {
        watch.reset();
        if (node) {
            queue->post([node = std::move(node)] {});
        }
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    std::string name;  ///< "hidraw0"
    std::string place; ///< of its folder in /sys/devices, which no other ever has again
    std::string product;
    std::string serial;
    HidPowerDevice reports;
    std::shared_ptr<Queue> queue;
    std::optional<PowerSourceRecord> source; ///< absent before the first reading
    bool isReading = false;
    std::optional<double> lastAsked;  ///< s of the clock that cannot step
    std::optional<double> lastAnswer; ///< likewise
    std::unique_ptr<Timer> timer;     ///< to the next reading, when one is due
    std::shared_ptr<Descriptor> node; ///< for what it sends by itself
    std::unique_ptr<Watch> watch;
    std::map<char, std::string> last; ///< that it sent, by number
};

/// What one reading brings back from the slow queue.
struct HidPowerDevices::Reading {
    std::shared_ptr<Descriptor> node; ///< where it was not open before
    int error = 0;                    ///< of the node's opening
    bool asks = true;                 ///< false: the program that would ask it is not there
    HidReports reports;
};

HidPowerDevices::HidPowerDevices(Runtime& runtime, const std::filesystem::path& root,
    std::shared_ptr<Limitations> limitations, std::function<void()> changed, HidOpen open)
    : runtime_(runtime)
    , root_(root)
    , limitations_(std::move(limitations))
    , changed_(std::move(changed))
    , open_(std::move(open))
    , uevents_(
          std::make_unique<Uevents>(runtime, root, std::initializer_list<const char*>{"hidraw"}, [this] { look(); }))
{
    look();
}

HidPowerDevices::~HidPowerDevices() = default;

HidPowerDevices::DevicePointer HidPowerDevices::deviceAt(const std::string& name) const
{
    const std::string path = fmt::format("{}/{}", hidrawFolder, name);
    std::error_code error;
    const auto place = std::filesystem::canonical(root_.path(path), error);
    const auto descriptor = root_.read(path + "/device/report_descriptor");
    if (error || !descriptor || !hasApplication(*descriptor, hidUPS)) {
        return nullptr;
    }
    const auto known = std::find_if(devices_.begin(), devices_.end(),
        [&place](const DevicePointer& each) { return each->place == place.string(); });
    if (known != devices_.end()) {
        return *known;
    }
    auto device = std::make_shared<Device>(name, place.string(), *descriptor);
    const std::string uevent = root_.read(path + "/device/uevent").value_or("");
    device->product = validUtf8(valueOfKey(uevent, "HID_NAME", '=').value_or("UPS"));
    device->serial = serialIn(uevent);
    device->queue = runtime_.makeSlowQueue("UPS " + name);
    return device;
}

void HidPowerDevices::look()
{
    std::vector<DevicePointer> found;
    std::vector<std::string> names = root_.list(hidrawFolder);
    names.resize(std::min(names.size(), mostNodes));
    for (const std::string& name : names) {
        auto device = found.size() < mostDevices ? deviceAt(name) : nullptr;
        if (device) {
            found.push_back(std::move(device));
        }
    }
    const bool isLess = std::any_of(devices_.begin(), devices_.end(),
        [&found](const DevicePointer& each) { return std::find(found.begin(), found.end(), each) == found.end(); });
    devices_ = std::move(found);
    for (const DevicePointer& device : devices_) {
        if (!device->lastAsked) {
            read(device);
        }
    }
    if (isLess) {
        finishWhenComplete();
        changed_();
    }
}

/// Whether a driver gives a supply for it: at the HID device itself, or at the USB interface or device that it is on.
bool HidPowerDevices::isPublished(const Device& device) const
{
    constexpr std::array places = {"device", "device/..", "device/../.."};
    return std::any_of(places.begin(), places.end(), [&](const char* place) {
        return !root_.list(fmt::format("{}/{}/{}/power_supply", hidrawFolder, device.name, place)).empty();
    });
}

std::vector<PowerSourceRecord> HidPowerDevices::sources() const
{
    std::vector<PowerSourceRecord> all;
    for (const DevicePointer& device : devices_) {
        if (device->source && !isPublished(*device)) {
            all.push_back(*device->source);
        }
    }
    return all;
}

// Asking

void HidPowerDevices::read(const DevicePointer& device)
{
    device->timer.reset();
    if (device->isReading || isPublished(*device)) {
        return;
    }
    device->isReading = true;
    device->lastAsked = runtime_.monotonicTime();
    auto reading = std::make_shared<Reading>();
    Task done = lifetime_.guard([this, reading, weak = std::weak_ptr<Device>(device)] {
        if (const auto still = weak.lock()) {
            finished(still, *reading);
        }
    });
    // Holds what it needs, so that it may still hang when this object has gone.
    device->queue->post([node = root_.path("dev/" + device->name).string(), requests = device->reports.requests(),
                            opens = !device->node, open = open_, reading, done = std::move(done),
                            &main = runtime_.mainQueue()]() mutable {
        if (opens) { // here, as the kernel may wake the device for it
            Descriptor opened(::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
            reading->error = opened ? 0 : errno;
            reading->node = opened ? std::make_shared<Descriptor>(std::move(opened)) : nullptr;
        }
        const HidAsk ask = open(node);
        for (const HidReportRequest& request : requests) {
            HidAnswer answer = ask(request);
            if (answer.error == 0) {
                reading->reports[{request.kind, request.report}] = std::move(answer.bytes);
            } else if (answer.error == hasNoHelper) {
                reading->asks = false;
                break;
            } else if (answer.error == ETIMEDOUT || answer.error == -1) {
                break; // the others would take as long
            }
        }
        reading.reset();
        main.post(std::move(done));
    });
}

void HidPowerDevices::finished(const DevicePointer& device, Reading& reading)
{
    device->isReading = false;
    device->lastAnswer = runtime_.monotonicTime();
    if (reading.error == EACCES || reading.error == EPERM) {
        limitations_->set("ups", "asking a UPS over USB HID needs the right to open /dev/hidraw*");
    } else if (!reading.asks) {
        limitations_->set("ups", "asking a UPS over USB HID takes the program meridal-disks, which is not there");
    }
    if (reading.node) {
        device->node = std::move(reading.node);
        listen(device);
    }
    PowerSourceRecord source = device->reports.record(reading.reports);
    source.name = device->product;
    source.serial = device->serial;
    const bool isNew = device->source != source;
    device->source = std::move(source);
    if (isNew) {
        changed_();
    }
    finishWhenComplete();
}

bool HidPowerDevices::isAwaited(const Device& device) const
{
    return device.isReading && runtime_.monotonicTime() - device.lastAsked.value_or(0) < patience;
}

void HidPowerDevices::refresh(Task done)
{
    const double now = runtime_.monotonicTime();
    for (const DevicePointer& device : devices_) {
        if (!device->lastAnswer || now - *device->lastAnswer >= freshness) {
            read(device);
        }
    }
    waiting_.push_back(std::move(done));
    if (!timer_) {
        timer_ = runtime_.startTimer(runtime_.mainQueue(), {.first = patience}, [this] { finish(); });
    }
    finishWhenComplete();
}

void HidPowerDevices::finishWhenComplete()
{
    const bool isComplete =
        std::none_of(devices_.begin(), devices_.end(), [this](const DevicePointer& each) { return isAwaited(*each); });
    if (isComplete && !waiting_.empty()) {
        finish();
    }
}

/// With what is known by now: of those that do not answer, what they said the last time.
void HidPowerDevices::finish()
{
    timer_.reset();
    for (const Task& task : std::exchange(waiting_, {})) {
        task();
    }
}

// Listening

void HidPowerDevices::listen(const DevicePointer& device)
{
    device->watch = runtime_.watchReadable(
        device->node->get(), [this, weak = std::weak_ptr<Device>(device)] { heard(weak.lock()); });
}

/// Takes what the device sent by itself. It need not hold all figures: a change is the sign to ask for them.
void HidPowerDevices::heard(const DevicePointer& device)
{
    constexpr int mostAtOnce = 64;                              // HIDRAW_BUFFER_SIZE
    std::array<char, HidPowerDevice::largestReport + 1> report; // NOLINT(cppcoreguidelines-pro-type-member-init)
    bool isNew = false;
    for (int i = 0; device && i < mostAtOnce; ++i) {
        const ssize_t size = ::read(device->node->get(), report.data(), report.size());
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            break;
        }
        if (size <= 0) { // unplugged, which is announced, or nothing that sends
            device->watch.reset();
            break;
        }
        std::string bytes(report.data(), static_cast<std::size_t>(size));
        std::string& before = device->last[device->reports.hasNumberedReports() ? bytes.front() : '\0'];
        isNew = isNew || before != bytes;
        before = std::move(bytes);
    }
    if (!isNew) {
        return;
    }
    const double since = runtime_.monotonicTime() - device->lastAsked.value_or(0);
    if (since >= shortestInterval) {
        readLater(device, 0);
    } else if (!device->timer) {
        readLater(device, shortestInterval - since);
    }
}

/// Once the reading in progress has ended, which may have missed what is to be read.
void HidPowerDevices::readLater(const DevicePointer& device, double seconds)
{
    if (seconds <= 0 && !device->isReading) {
        return read(device);
    }
    device->timer = runtime_.startTimer(
        runtime_.mainQueue(), {.first = std::max(seconds, freshness)}, [this, weak = std::weak_ptr<Device>(device)] {
            if (const auto still = weak.lock()) {
                readLater(still, 0);
            }
        });
}

} // namespace meridal
