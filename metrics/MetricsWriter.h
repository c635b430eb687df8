// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

/// How figures are written for those who scrape them.
enum class MetricsFormat {
    Prometheus,  ///< the text format 0.0.4, which everybody reads
    OpenMetrics, ///< 1.0: units, info types, an end that shows when something is missing
};

/// What goes into a Content-Type header.
std::string_view contentType(MetricsFormat format);

enum class MetricType {
    Gauge,
    Counter, ///< only grows, until the daemon starts anew
    Info,    ///< always 1; its labels tell
};

/// Figures of one kind. Names are without the prefix of the house and without the suffixes of counters and infos, which the
/// writer adds.
struct MetricFamily {
    std::string_view name; ///< ends with the unit where there is one: "group_cpu_seconds"
    MetricType type = MetricType::Gauge;
    std::string_view unit =
        {}; ///< base unit: seconds, bytes, celsius, volts, amperes, watts, joules, ratio, rpm; or empty
    std::string_view help = {};
};

/// Names and values; one without a name is none.
using MetricLabels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

/// Writes families of figures as text, one family after another. What could not be scraped is left out: figures that are
/// not finite, a second figure with the labels of a first one, and what lies beyond the most series.
class MetricsWriter {
public:
    static constexpr std::size_t mostSeries = 2000;

    explicit MetricsWriter(MetricsFormat format, std::size_t most = mostSeries) : format_(format), most_(most) { }

    /// What follows belongs to this family. One that gets no figure is not written at all.
    void family(const MetricFamily& family);
    void sample(MetricLabels labels, double value) { sampleOf(labelText(labels), value); }
    /// The same with labels as they are written, for who has several figures of one thing.
    void sampleOf(const std::string& labels, double value);
    /// The same where it is known.
    void sample(MetricLabels labels, const std::optional<double>& value)
    {
        if (value) {
            sample(labels, *value);
        }
    }
    /// A figure of a moment that has been, in s since 1970: of each series in order of time. Not bounded.
    void sampleAt(double time, MetricLabels labels, double value) { sampleAt(time, labelText(labels), value); }
    void sampleAt(double time, const std::string& labels, double value);
    /// Labels as they are written, for series of many samples.
    static std::string labelText(MetricLabels labels);

    std::size_t series() const { return written_; }
    /// How many figures were left out, because there were too many or as they came twice.
    std::size_t dropped() const { return dropped_; }

    /// What was written since the last time, for output that is larger than memory should be.
    std::string take() { return std::exchange(text_, {}); }
    /// The last of it.
    std::string finish();

private:
    void head();
    void append(std::string_view labels, double value, const std::optional<double>& time);

    MetricsFormat format_;
    std::size_t most_;
    std::string text_;
    MetricFamily family_;
    bool hasHead_ = false;
    std::set<std::string> labelled_; ///< of the family
    std::size_t written_ = 0;
    std::size_t dropped_ = 0;
};

} // namespace meridal
