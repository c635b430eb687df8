// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Moments.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <utility>
#include <vector>

namespace meridal {

namespace {

using std::chrono::days;
using std::chrono::months;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr double dayLength = 86'400;  // s
constexpr double latestMoment = 1e11; // s since 1970, as far as clocks go
constexpr std::size_t mostDigits = 12;

struct TimeOfDay {
    double seconds = 0; ///< since midnight, as the clock on the wall counts them
};

/// s east of Greenwich at that moment, here.
double offsetAt(double time)
{
    const auto seconds = static_cast<std::time_t>(std::floor(time));
    std::tm parts{};
    return ::localtime_r(&seconds, &parts) ? static_cast<double>(parts.tm_gmtoff) : 0;
}

/// When a calendar and a clock on the wall show this. `zone` is s east of Greenwich; nothing for here.
double momentOf(sys_days date, TimeOfDay clock, std::optional<double> zone)
{
    const double shown = static_cast<double>(date.time_since_epoch().count()) * dayLength + clock.seconds;
    if (zone) {
        return shown - *zone;
    }
    // What holds a day before and after are the only two offsets that can hold: the clocks do not change twice in two days.
    const double before = offsetAt(shown - dayLength);
    const double after = offsetAt(shown + dayLength);
    std::optional<double> first;
    for (const double offset : {before, after}) {
        if (offsetAt(shown - offset) == offset) {
            first = std::min(shown - offset, first.value_or(latestMoment));
        }
    }
    return first.value_or(shown - before);
}

/// What a calendar and a clock on the wall show.
std::pair<sys_days, TimeOfDay> shownAt(double time, std::optional<double> zone)
{
    const double shown = time + zone.value_or(offsetAt(time));
    const double day = std::floor(shown / dayLength);
    return {sys_days(days(static_cast<int>(day))), TimeOfDay{shown - day * dayLength}};
}

sys_days addMonths(sys_days date, int count)
{
    const year_month_day from(date);
    const auto month = std::chrono::year_month(from.year(), from.month()) + months(count);
    const auto last = (month / std::chrono::last).day();
    return sys_days(month / std::min(from.day(), last));
}

struct MomentToken {
    enum class Kind : std::uint8_t { Number, Word, Sign } kind = Kind::Sign;
    std::string text; ///< in small letters
    double value = 0; ///< of a number
};

std::vector<MomentToken> momentTokens(std::string_view text)
{
    using Kind = MomentToken::Kind;
    const auto kindOf = [](char c) {
        return c >= '0' && c <= '9' ? Kind::Number : c >= 'a' && c <= 'z' ? Kind::Word : Kind::Sign;
    };
    std::vector<MomentToken> tokens;
    bool isApart = true;
    for (const char c : lowercase(text)) {
        if (c == ' ' || c == '\t' || c == ',') {
            isApart = true;
            continue;
        }
        const Kind kind = kindOf(c);
        if (isApart || kind == Kind::Sign || tokens.back().kind != kind) {
            tokens.push_back({kind, {}, 0});
        }
        tokens.back().text += c;
        tokens.back().value = kind == Kind::Number ? tokens.back().value * 10 + (c - '0') : 0;
        isApart = false;
    }
    return tokens;
}

struct NamedUnit {
    std::string_view names; ///< with a blank around each
    double seconds = 0;     ///< of those of a fixed length
    int days = 0;
    int months = 0;
};
constexpr std::array<NamedUnit, 7> namedUnits = {{
    {" s sec secs second seconds ", 1},
    {" m min mins minute minutes ", 60},
    {" h hr hrs hour hours ", 3600},
    {" d day days ", 0, 1},
    {" w week weeks ", 0, 7},
    {" mo month months ", 0, 0, 1},
    {" y yr year years ", 0, 0, 12},
}};

constexpr std::array<std::string_view, 7> weekdays = {
    "sunday", "monday", "tuesday", "wednesday", "thursday", "friday", "saturday"};
constexpr std::array<std::string_view, 12> monthNames = {"january", "february", "march", "april", "may", "june", "july",
    "august", "september", "october", "november", "december"};

/// Where a word stands in a list by its first three letters or more.
template <std::size_t Count>
std::optional<int> placeOf(const std::array<std::string_view, Count>& names, std::string_view word)
{
    const auto found = std::find_if(
        names.begin(), names.end(), [&](std::string_view name) { return word.size() >= 3 && name.starts_with(word); });
    return found != names.end() ? std::optional(static_cast<int>(found - names.begin())) : std::nullopt;
}

/// Reads tokens from left to right. Each part that is tried moves on when it is there, and not when it is not.
class MomentReader {
public:
    MomentReader(std::string_view text, double now) : tokens_(momentTokens(text)), now_(now) { }

    std::optional<double> read()
    {
        const bool isTooLong = std::any_of(tokens_.begin(), tokens_.end(), [](const MomentToken& token) {
            return token.kind == MomentToken::Kind::Number && token.text.size() > mostDigits;
        });
        if (tokens_.empty() || isTooLong) {
            return std::nullopt;
        }
        for (const auto form :
            {&MomentReader::readNow, &MomentReader::readSeconds, &MomentReader::readAgo, &MomentReader::readCalendar}) {
            at_ = 0;
            const auto moment = (this->*form)();
            if (moment && at_ == tokens_.size()) {
                return *moment >= 0 && *moment < latestMoment ? moment : std::nullopt;
            }
        }
        return std::nullopt;
    }

private:
    /// A date as it was written, which may leave its year open, or be told by its distance.
    struct Date {
        std::optional<int> year = {};
        unsigned month = 1;
        unsigned day = 1;
        std::optional<int> weekday = {};  ///< 0 is Sunday
        bool isPast = false;              ///< not today
        std::optional<int> distance = {}; ///< days from today
    };

    const MomentToken* peek(std::size_t ahead = 0) const
    {
        return at_ + ahead < tokens_.size() ? &tokens_[at_ + ahead] : nullptr;
    }
    bool take(std::string_view text)
    {
        const bool isThere = peek() && peek()->text == text;
        at_ += isThere ? 1 : 0;
        return isThere;
    }
    /// A number of so many digits.
    std::optional<double> takeNumber(std::size_t least, std::size_t most)
    {
        const MomentToken* token = peek();
        if (!token || token->kind != MomentToken::Kind::Number || token->text.size() < least
            || token->text.size() > most) {
            return std::nullopt;
        }
        ++at_;
        return token->value;
    }
    /// ".25" as 0.25.
    double takeFraction()
    {
        const MomentToken* digits = peek(1);
        if (!peek() || peek()->text != "." || !digits || digits->kind != MomentToken::Kind::Number) {
            return 0;
        }
        at_ += 2;
        return digits->value / std::pow(10.0, static_cast<double>(digits->text.size()));
    }

    std::optional<double> readNow() { return take("now") ? std::optional(now_) : std::nullopt; }

    std::optional<double> readSeconds()
    {
        const bool isMarked = take("@");
        const auto whole = takeNumber(isMarked ? 1 : 9, mostDigits);
        return whole ? std::optional(*whole + takeFraction()) : std::nullopt;
    }

    std::optional<double> readAgo()
    {
        const bool hasSign = take("-");
        double seconds = 0;
        int dayCount = 0;
        int monthCount = 0;
        while (const auto whole = takeNumber(1, 9)) {
            const double amount = *whole + takeFraction();
            const MomentToken* name = peek();
            const auto unit = std::find_if(namedUnits.begin(), namedUnits.end(), [&](const NamedUnit& each) {
                return name && each.names.find(' ' + name->text + ' ') != std::string_view::npos;
            });
            if (unit == namedUnits.end() || (unit->seconds == 0 && (amount != std::floor(amount) || amount > 1e5))) {
                return std::nullopt;
            }
            ++at_;
            seconds += amount * unit->seconds;
            dayCount += unit->days > 0 ? static_cast<int>(amount) * unit->days : 0;
            monthCount += unit->months > 0 ? static_cast<int>(std::min(amount, 1e4)) * unit->months : 0;
        }
        if (at_ < 2 || (!take("ago") && !hasSign)) {
            return std::nullopt;
        }
        if (dayCount == 0 && monthCount == 0) {
            return now_ - seconds;
        }
        const auto [date, clock] = shownAt(now_, std::nullopt);
        return momentOf(addMonths(date, -monthCount) - days(dayCount), clock, std::nullopt) - seconds;
    }

    std::optional<double> readCalendar()
    {
        const auto date = readDate();
        const bool hasBetween = date && (take("t") || take("at"));
        const auto clock = readTime();
        if ((!date && !clock) || (hasBetween && !clock)) {
            return std::nullopt;
        }
        const auto zone = clock ? readZone() : std::nullopt;
        return at_ == tokens_.size() ? resolve(date, clock.value_or(TimeOfDay{}), zone) : std::nullopt;
    }

    std::optional<Date> readDate()
    {
        const std::size_t start = at_;
        if (take("today")) {
            return Date{.distance = 0};
        }
        if (take("yesterday")) {
            return Date{.distance = -1};
        }
        if (const auto year = takeNumber(4, 4); year && take("-")) {
            if (const auto month = takeNumber(2, 2)) {
                const std::size_t behindMonth = at_;
                const auto day = take("-") ? takeNumber(2, 2) : std::nullopt;
                at_ = day ? at_ : behindMonth;
                return Date{
                    static_cast<int>(*year), static_cast<unsigned>(*month), static_cast<unsigned>(day.value_or(1))};
            }
        }
        at_ = start;
        const bool isPast = take("last");
        if (const auto weekday = peek() ? placeOf(weekdays, peek()->text) : std::nullopt) {
            ++at_;
            return Date{.weekday = weekday, .isPast = isPast};
        }
        at_ = start;
        return readNamedMonth();
    }

    /// "20 Nov", "Nov 20", with or without a year behind.
    std::optional<Date> readNamedMonth()
    {
        const std::size_t start = at_;
        auto day = takeNumber(1, 2);
        if (const auto month = peek() ? placeOf(monthNames, peek()->text) : std::nullopt) {
            ++at_;
            day = day ? day : takeNumber(1, 2);
            if (day) {
                Date date{.month = static_cast<unsigned>(*month) + 1, .day = static_cast<unsigned>(*day)};
                if (const auto year = takeNumber(4, 4)) {
                    date.year = static_cast<int>(*year);
                }
                return date;
            }
        }
        at_ = start;
        return std::nullopt;
    }

    /// "18:30", "18:30:05.5", "6:30 pm", "6pm", "noon".
    std::optional<TimeOfDay> readTime()
    {
        if (take("noon")) {
            return TimeOfDay{12 * 3600};
        }
        if (take("midnight")) {
            return TimeOfDay{0};
        }
        const std::size_t start = at_;
        const auto hour = takeNumber(1, 2);
        std::optional<double> minute;
        double second = 0;
        if (hour && take(":")) {
            minute = takeNumber(2, 2);
            if (const auto seconds = minute && take(":") ? takeNumber(2, 2) : std::nullopt) {
                second = *seconds + takeFraction();
            }
        }
        const bool isMorning = hour && (minute || at_ == start + 1) && take("am");
        const bool isAfternoon = hour && !isMorning && (minute || at_ == start + 1) && take("pm");
        const bool isHalfDay = isMorning || isAfternoon;
        if (!hour || (!minute && !isHalfDay) || minute.value_or(0) > 59 || second >= 60
            || (isHalfDay ? *hour < 1 || *hour > 12 : *hour > 23)) {
            at_ = start;
            return std::nullopt;
        }
        const double ofDay = isHalfDay ? std::fmod(*hour, 12) + (isAfternoon ? 12 : 0) : *hour;
        return TimeOfDay{ofDay * 3600 + minute.value_or(0) * 60 + second};
    }

    /// "Z", "+01:00", "+0100", "-05": s east of Greenwich.
    std::optional<double> readZone()
    {
        if (take("z") || take("utc") || take("gmt")) {
            return 0;
        }
        const std::size_t start = at_;
        const bool isWest = take("-");
        if (isWest || take("+")) {
            if (const auto both = takeNumber(4, 4)) {
                const double hours = std::floor(*both / 100);
                return (hours * 3600 + (*both - hours * 100) * 60) * (isWest ? -1 : 1);
            }
            if (const auto hours = takeNumber(2, 2)) {
                const auto minutes = take(":") ? takeNumber(2, 2) : std::nullopt;
                return (*hours * 3600 + minutes.value_or(0) * 60) * (isWest ? -1 : 1);
            }
        }
        at_ = start;
        return std::nullopt;
    }

    std::optional<double> resolve(const std::optional<Date>& date, TimeOfDay clock, std::optional<double> zone) const
    {
        const sys_days today = shownAt(now_, zone).first;
        const auto at = [&](sys_days when) { return momentOf(when, clock, zone); };
        if (!date) {
            return at(today) <= now_ ? at(today) : at(today - days(1));
        }
        if (date->distance) {
            return at(today + days(*date->distance));
        }
        if (date->weekday) {
            const auto weekday = static_cast<int>(std::chrono::weekday(today).c_encoding());
            const sys_days latest = today - days((weekday - *date->weekday + 7) % 7);
            const bool isToCome = at(latest) > now_ || (date->isPast && latest == today);
            return at(isToCome ? latest - days(7) : latest);
        }
        const int thisYear = static_cast<int>(year_month_day(today).year());
        constexpr int leapYearIsWithin = 8; // 29 February of the century's turn
        for (int back = 0; back <= leapYearIsWithin; ++back) {
            const year_month_day day(std::chrono::year(date->year.value_or(thisYear - back)),
                std::chrono::month(date->month), std::chrono::day(date->day));
            if (day.ok() && (date->year || at(sys_days(day)) <= now_)) {
                return at(sys_days(day));
            }
        }
        return std::nullopt;
    }

    std::vector<MomentToken> tokens_;
    std::size_t at_ = 0;
    const double now_;
};

} // namespace

std::optional<double> momentFrom(std::string_view text, double now) { return MomentReader(text, now).read(); }

std::string momentComplaint(std::string_view text)
{
    return fmt::format(
        "\"{}\" is no moment; write \"03:00\", \"yesterday 18:30\", \"Tue 03:00\", \"-2h\", \"2026-11-20\", "
        "\"2026-11-20 18:30\" or \"2026-11-20T18:30+01:00\"",
        text);
}

} // namespace meridal
