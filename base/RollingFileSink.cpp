// SPDX-License-Identifier: Apache-2.0
#include "base/RollingFileSink.h"

#include "base/LocalTime.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

namespace fs = std::filesystem;
using std::chrono::sys_seconds;

constexpr std::string_view suffix = ".log";
constexpr std::string_view stampForm = "00000000T000000";

/// Civil seconds as "20261121T074500".
std::string stampText(std::int64_t stamp)
{
    const sys_seconds moment{std::chrono::seconds(stamp)};
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(moment - day);
    return fmt::format("{:04}{:02}{:02}T{:02}{:02}{:02}", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), time.hours().count(),
        time.minutes().count(), time.seconds().count());
}

std::optional<int> digits(std::string_view text)
{
    int value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && value >= 0 ? std::optional(value)
                                                                                             : std::nullopt;
}

std::optional<std::int64_t> parseStamp(std::string_view text)
{
    if (text.size() != stampForm.size() || text[8] != 'T') {
        return std::nullopt;
    }
    const auto day = digits(text.substr(0, 8));
    const auto time = digits(text.substr(9));
    if (!day || !time) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date(std::chrono::year(*day / 10'000),
        std::chrono::month(static_cast<unsigned>(*day / 100 % 100)),
        std::chrono::day(static_cast<unsigned>(*day % 100)));
    if (!date.ok() || *time / 10'000 > 23 || *time / 100 % 100 > 59 || *time % 100 > 59) {
        return std::nullopt;
    }
    const auto moment = std::chrono::sys_days(date) + std::chrono::hours(*time / 10'000)
        + std::chrono::minutes(*time / 100 % 100) + std::chrono::seconds(*time % 100);
    return moment.time_since_epoch().count();
}

} // namespace

RollingFileSink::RollingFileSink(fs::path folder, std::string baseName, LogPolicy policy)
    : folder_(std::move(folder)), baseName_(std::move(baseName)), policy_(policy)
{
}

void RollingFileSink::write(std::string_view line, double wallTime)
{
    makeReady(line.size(), wallTime);
    const bool wasTorn = std::exchange(torn_, false);
    if (!file_ || (wasTorn && std::fputc('\n', file_.get()) == EOF)) {
        torn_ = wasTorn;
        ++droppedLines_;
        return;
    }
    const std::size_t written = std::fwrite(line.data(), 1, line.size(), file_.get());
    if (written < line.size()) {
        torn_ = written > 0;
        file_.reset(); // the next line tries afresh
        ++droppedLines_;
    }
}

/// Opens, continues or rolls, so that the line can be written; without an open file where that fails.
void RollingFileSink::makeReady(std::size_t bytes, double now)
{
    measure();
    if (!file_) {
        continueNewest();
    }
    start_ = std::min(start_, now); // the clock stepped back: the age counts on from here
    if (!file_ || isDue(bytes, now)) {
        file_.reset();
        startNew(now);
    }
}

bool RollingFileSink::isDue(std::size_t bytes, double now) const
{
    return now - start_ >= policy_.maximumAge || (size_ > 0 && size_ + bytes > policy_.maximumFileSize);
}

/// Asks the disk rather than counting: lines may have been cut, and the file may have been taken away.
void RollingFileSink::measure()
{
    if (file_) {
        std::error_code error;
        size_ = fs::file_size(path_, error);
        if (error) {
            file_.reset();
        }
    }
}

void RollingFileSink::continueNewest()
{
    const auto files = filesByAge();
    if (files.empty()) {
        return;
    }
    path_ = files.back().path;
    start_ = wallTimeOfCivil(files.back().stamp);
    file_.reset(std::fopen(path_.c_str(), "ae"));
    if (file_) {
        std::setbuf(file_.get(), nullptr);
    }
    measure();
}

void RollingFileSink::startNew(double now)
{
    std::error_code ignored;
    fs::create_directories(folder_, ignored);
    const auto files = filesByAge();
    const std::int64_t stamp = files.empty() ? civilSeconds(now) : std::max(civilSeconds(now), files.back().stamp + 1);
    path_ = pathFor(stamp);
    file_.reset(std::fopen(path_.c_str(), "wxe")); // never on top of something else
    if (!file_) {
        return;
    }
    std::setbuf(file_.get(), nullptr);
    fs::permissions(path_, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read, ignored);
    start_ = now;
    size_ = 0;
    torn_ = false;
    removeOldest();
}

void RollingFileSink::removeOldest() const
{
    auto files = filesByAge();
    const auto kept = static_cast<std::size_t>(std::max(policy_.maximumFiles, 1));
    files.resize(files.size() - std::min(files.size(), kept));
    for (const auto& file : files) {
        std::error_code ignored;
        fs::remove(file.path, ignored);
    }
}

/// The files of this log in the folder, oldest first; whatever else lies there is left alone.
std::vector<RollingFileSink::LogFile> RollingFileSink::filesByAge() const
{
    std::vector<LogFile> files;
    const std::string prefix = baseName_ + '-';
    std::error_code error;
    for (fs::directory_iterator entry(folder_, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.size() != prefix.size() + stampForm.size() + suffix.size() || !name.starts_with(prefix)
            || !name.ends_with(suffix)) {
            continue;
        }
        if (const auto stamp = parseStamp(std::string_view(name).substr(prefix.size(), stampForm.size()))) {
            files.push_back({.path = entry->path(), .stamp = *stamp});
        }
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.stamp < b.stamp; });
    return files;
}

fs::path RollingFileSink::pathFor(std::int64_t stamp) const
{
    return folder_ / (baseName_ + '-' + stampText(stamp) + std::string(suffix));
}

} // namespace meridal
