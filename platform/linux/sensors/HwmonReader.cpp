// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/HwmonReader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

/// How long a file goes on being read that nobody asks for any more, in seconds: collectors ask every 6 s at least.
constexpr double wantedFor = 8.0;
/// How much older than good a figure may be while a slow chip is at the next one, in seconds. A chip that is always late
/// then shows what it said one round ago.
constexpr double grace = 7.0;

/// What drivers answer that have nothing to tell: asleep, switched off, not measured yet.
bool isRest(int error) { return error == ENODATA || error == EAGAIN || error == ENETDOWN; }

bool isGone(int error) { return error == ENODEV || error == ENXIO || error == ENOENT; }

/// Reads a file that is kept open; opens it when it is not, and once more when its chip has gone and come back. Of its
/// failures `error` gets those that are trouble.
std::optional<std::string> readKept(Descriptor& file, const std::filesystem::path& path, int& error)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        const bool wasOpen = static_cast<bool>(file);
        if (!wasOpen) {
            file = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        }
        if (!file) {
            error = isGone(errno) ? 0 : errno;
            return std::nullopt;
        }
        char text[64];
        const ssize_t size = ::pread(file.get(), text, sizeof text, 0);
        if (size >= 0) {
            return std::string(text, static_cast<std::size_t>(size));
        }
        if (!isGone(errno)) {
            error = isRest(errno) ? 0 : errno;
            return std::nullopt; // the driver's own trouble; the file is good
        }
        file = Descriptor();
        if (!wasOpen) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<double> readFigure(Descriptor& file, const std::filesystem::path& path, int& error)
{
    const auto text = readKept(file, path, error);
    return text ? parseHwmonFigure(*text) : std::nullopt;
}

} // namespace

std::optional<double> parseHwmonFigure(std::string_view text)
{
    const std::size_t end = text.find_last_not_of(" \t\n\r");
    text = end == std::string_view::npos ? std::string_view() : text.substr(0, end + 1);
    std::int64_t number = 0;
    const auto [last, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || last != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return static_cast<double>(number);
}

HwmonReader::HwmonReader(std::filesystem::path folder, std::vector<File> files, const std::filesystem::path& device)
    : folder_(std::move(folder))
    , files_(std::move(files))
    , status_(device / "power/runtime_status")
    , open_(files_.size())
    , figures_(files_.size())
{
}

void HwmonReader::want(std::size_t file, double now, double goodFor)
{
    const std::lock_guard lock(mutex_);
    figures_[file].wantedUntil = now + wantedFor;
    figures_[file].goodFor = goodFor;
}

bool HwmonReader::isFresh(std::size_t file, double now) const
{
    const std::lock_guard lock(mutex_);
    return now - figures_[file].readAt < figures_[file].goodFor;
}

std::optional<double> HwmonReader::latest(std::size_t file, double now) const
{
    const std::lock_guard lock(mutex_);
    const Figure& figure = figures_[file];
    return now - figure.readAt < figure.goodFor + grace ? figure.value : std::nullopt;
}

bool HwmonReader::isFaulty(std::size_t file, double now) const
{
    const std::lock_guard lock(mutex_);
    const Figure& figure = figures_[file];
    return figure.isFaulty && now - figure.readAt < figure.goodFor + grace;
}

int HwmonReader::trouble(std::size_t file, double now) const
{
    const std::lock_guard lock(mutex_);
    const Figure& figure = figures_[file];
    return now - figure.readAt < figure.goodFor + grace ? figure.error : 0;
}

bool HwmonReader::beginReading(double now)
{
    const std::lock_guard lock(mutex_);
    const bool due =
        std::any_of(figures_.begin(), figures_.end(), [now](const Figure& figure) { return figure.isDue(now); });
    if (underway_ || !due) {
        return false;
    }
    underway_ = true;
    return true;
}

void HwmonReader::read(double now)
{
    for (std::vector<std::size_t> due = takeDue(now); !due.empty(); due = takeDue(now)) {
        const bool rests = isSuspended();
        for (const std::size_t file : due) {
            const Reading reading = rests ? Reading() : readFile(file);
            const std::lock_guard lock(mutex_);
            figures_[file].value = reading.value;
            figures_[file].isFaulty = reading.isFaulty;
            figures_[file].error = reading.error;
            figures_[file].readAt = now;
        }
    }
}

/// What is to be read now. When there is nothing, the reading has ended: whoever wants something after that begins
/// another.
std::vector<std::size_t> HwmonReader::takeDue(double now)
{
    std::vector<std::size_t> due;
    const std::lock_guard lock(mutex_);
    for (std::size_t file = 0; file < figures_.size(); ++file) {
        if (figures_[file].isDue(now)) {
            due.push_back(file);
        }
    }
    underway_ = !due.empty();
    return due;
}

/// Asking that wakes nobody.
bool HwmonReader::isSuspended()
{
    int ignored = 0;
    const auto status = readKept(openStatus_, status_, ignored);
    return status && status->starts_with("suspend"); // "suspended", or "suspending"
}

HwmonReader::Reading HwmonReader::readFile(std::size_t file)
{
    const File& what = files_[file];
    int error = 0;
    if (!what.fault.empty() && readFigure(open_[file].fault, folder_ / what.fault, error).value_or(0) != 0) {
        return {.value = {}, .isFaulty = true, .error = 0};
    }
    error = 0;
    const auto figure = readFigure(open_[file].input, folder_ / what.name, error);
    return {.value = figure ? std::optional(*figure / what.units) : std::nullopt, .isFaulty = false, .error = error};
}

} // namespace meridal
