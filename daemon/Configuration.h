// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/CheckLimits.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

/// What the administrator decides: what is recorded, for how long, and how it is measured. As it stands here without a
/// file. Times are in seconds.
struct Configuration {
    static constexpr double day = 86'400;
    static constexpr double longestKept = 36'525 * day; ///< a hundred years

    /// What is recorded whether anybody asks or not. What is off has no table and no file made and nothing read for it;
    /// questions about now are answered all the same.
    struct Record {
        bool sensors = true;
        bool disks = true; ///< temperature and wear
        bool machine = true;
        bool applications = true;
        bool battery = true;
        bool operator==(const Record&) const = default;
    };
    /// How long rows stay. The tables of 603 periods are no matter of choice: coarser ones are averaged of them.
    struct Keep {
        double applicationMinutes = 2 * day; ///< and the largest processes of each minute
        double applicationQuarterHours = 14 * day;
        double applicationHours = 100 * day;
        double applicationDays = 1826 * day; ///< five years; months stay for ever
        double longTerm = 3653 * day;        ///< rows of the long-term stores: ten years
        bool operator==(const Keep&) const = default;
    };

    /// Limits of one sensor, in its own unit, in place of those that its chip has.
    struct SensorLimits {
        std::string sensor; ///< its key or its name
        std::optional<double> warningAbove = {};
        std::optional<double> criticalAbove = {};
        std::optional<double> warningBelow = {};
        std::optional<double> criticalBelow = {};
        bool operator==(const SensorLimits&) const = default;
    };
    /// From what on `meridalctl check` complains. The daemon itself does nothing by it but tell it.
    struct Check {
        double diskWearWarning = checkLimits::diskWearWarning;
        double diskWearCritical = checkLimits::diskWearCritical;
        double diskErrorsWarning = checkLimits::diskErrorsWarning;
        std::optional<double> diskTemperatureWarning = {};  ///< °C; absent: as disks of its kind stand
        std::optional<double> diskTemperatureCritical = {}; ///< likewise
        double batteryHealthWarning = checkLimits::batteryHealthWarning;
        double upsChargeCritical = checkLimits::upsChargeCritical;
        std::vector<SensorLimits> sensors = {}; ///< one entry a sensor
        std::vector<std::string> ignore = {};   ///< keys and names of disks, sensors and batteries
        bool operator==(const Check&) const = default;
    };
    /// Whom to tell when a check changes. The daemon tells nobody: `meridalctl check --watch --alert` asks for this.
    struct Alerts {
        std::string command = {}; ///< path of a program; empty: none
        std::string mail = {};    ///< an address; empty: none
        bool desktop = false;     ///< whether users' sessions may show them
        double after = checkLimits::alertLooks;
        double every = checkLimits::alertInterval;
        bool operator==(const Alerts&) const = default;
    };

    Record record = {};
    Keep keep = {};
    Check check = {};
    Alerts alerts = {};
    std::string processSource = "auto"; ///< "auto", "bpf" or "proc"
    std::optional<double> passInterval =
        {};                             ///< between passes while no client asks; absent: as the source is best read
    std::string trafficSource = "auto"; ///< "auto", "bpf", "pcap" or "sockets"
    bool capture = true;                ///< whether traffic may be counted by capturing packets
    bool readHiddenDisks = false;       ///< also disks whose adapter cannot tell whether that spins them up
    bool operator==(const Configuration&) const = default;
};

/// A line that says nothing which could be done, or a file that cannot be read.
struct ConfigurationWarning {
    std::string file;
    std::size_t line = 0; ///< from 1; 0: the file as a whole
    std::string text;     ///< for people: what is wrong, and what holds instead
    bool operator==(const ConfigurationWarning&) const = default;
};

/// "FILE:LINE: TEXT".
std::string lineOf(const ConfigurationWarning& warning);

/// A file, and what stood in it.
struct ConfigurationText {
    std::string file;
    std::string text;
};

/// What holds while it is not certain how long anything is to stay.
constexpr Configuration::Keep keepEverything = {.applicationMinutes = Configuration::longestKept,
    .applicationQuarterHours = Configuration::longestKept,
    .applicationHours = Configuration::longestKept,
    .applicationDays = Configuration::longestKept,
    .longTerm = Configuration::longestKept};

struct ParsedConfiguration {
    Configuration configuration;
    std::vector<ConfigurationWarning> warnings; ///< at most mostConfigurationWarnings, and one that says so
};

constexpr std::size_t mostConfigurationWarnings = 50;

/// The sum of some files, of whose lines the later ones win. A bad line is as if it were not there, with one exception: while
/// a line may have been meant to say how long something stays, everything stays.
ParsedConfiguration parseConfiguration(const std::vector<ConfigurationText>& files);

/// Which files there are to read: one that somebody named, or "meridald.conf" in a folder and "meridald.conf.d/*.conf"
/// beside it, by name.
struct ConfigurationPlace {
    std::filesystem::path folder; ///< of no meaning beside a file
    std::filesystem::path file = {};
};

/// The configuration in force, and where it comes from. Main queue only.
class ConfigurationFiles {
public:
    explicit ConfigurationFiles(ConfigurationPlace place) : place_(std::move(place)) { read(); }

    /// Reads the files. What they say now holds, whatever they said before.
    void read();
    const Configuration& current() const { return parsed_.configuration; }
    const std::vector<ConfigurationWarning>& warnings() const { return parsed_.warnings; }
    /// Those that were read, in their order.
    const std::vector<std::string>& files() const { return files_; }

private:
    ConfigurationPlace place_;
    std::vector<std::string> files_;
    ParsedConfiguration parsed_;
};

/// What is another than it was and waits for the next start, as the files call it: "source in [processes]".
std::vector<std::string> settingsForNextStart(const Configuration& before, const Configuration& now);

} // namespace meridal
