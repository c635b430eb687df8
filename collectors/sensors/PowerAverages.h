// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>

namespace meridal {

/// How finely a client may see power. Fine readings of what a processor draws leak the secrets that it computes with,
/// which is why the kernel keeps them from everybody but root.
enum class PowerDetail { Fine, Averaged };

constexpr PowerDetail powerDetailFor(bool isRoot) { return isRoot ? PowerDetail::Fine : PowerDetail::Averaged; }

/// Power as everybody may see it once it is rounded: the mean of readings that span at least 2 s. Fed at the collector's
/// own rhythm only, never by a question: whoever asks often learns nothing more. Times are monotonic seconds.
class PowerAverages {
public:
    static constexpr double span = 2;        ///< s
    static constexpr double longestGap = 10; ///< s between readings; a longer one starts the average over

    void note(const std::string& identity, double watts, double now);
    /// Not yet rounded. Absent until the readings span enough time, and once they are too old.
    std::optional<double> average(const std::string& identity, double now) const;
    /// When the latest reading was noted; absent when there is none.
    std::optional<double> notedAt(const std::string& identity) const;
    /// Those whose latest reading is too old to be averaged.
    void forgetOld(double now);

private:
    struct Reading {
        double time = 0;
        double watts = 0;
    };
    std::map<std::string, std::deque<Reading>> readings_; ///< oldest first
};

/// The finest step in which everybody may see power, W.
constexpr double powerStep = 0.1;

/// To the nearest step.
double roundedPower(double watts);

} // namespace meridal
