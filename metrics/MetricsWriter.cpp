// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricsWriter.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace meridal {

namespace {

constexpr std::string_view metricPrefix = "meridal_";

/// In help texts quotes stand as they are.
void appendEscaped(std::string& into, std::string_view text, bool isLabel)
{
    for (const char character : text) {
        if (character == '\n') {
            into += "\\n";
        } else if (character == '\\' || (isLabel && character == '"')) {
            into += '\\';
            into += character;
        } else {
            into += character;
        }
    }
}

std::string_view suffixOf(MetricType type)
{
    switch (type) {
    case MetricType::Counter:
        return "_total";
    case MetricType::Info:
        return "_info";
    case MetricType::Gauge:
        break;
    }
    return "";
}

std::string_view wordOf(MetricType type, MetricsFormat format)
{
    switch (type) {
    case MetricType::Counter:
        return "counter";
    case MetricType::Info:
        return format == MetricsFormat::OpenMetrics ? "info" : "gauge";
    case MetricType::Gauge:
        break;
    }
    return "gauge";
}

} // namespace

std::string_view contentType(MetricsFormat format)
{
    return format == MetricsFormat::OpenMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                                : "text/plain; version=0.0.4; charset=utf-8";
}

std::string MetricsWriter::labelText(MetricLabels labels)
{
    std::string written;
    for (const auto& [name, value] : labels) {
        if (name.empty()) {
            continue;
        }
        written += written.empty() ? '{' : ',';
        written += name;
        written += "=\"";
        appendEscaped(written, validUtf8(value), true);
        written += '"';
    }
    return written.empty() ? written : written + '}';
}

void MetricsWriter::family(const MetricFamily& family)
{
    family_ = family;
    hasHead_ = false;
    labelled_.clear();
}

/// The older format names what stands in the lines below, the newer one the family.
void MetricsWriter::head()
{
    hasHead_ = true;
    const bool isOpen = format_ == MetricsFormat::OpenMetrics;
    const std::string name = fmt::format("{}{}{}", metricPrefix, family_.name, isOpen ? "" : suffixOf(family_.type));
    fmt::format_to(std::back_inserter(text_), "# HELP {} ", name);
    appendEscaped(text_, family_.help, isOpen);
    fmt::format_to(std::back_inserter(text_), "\n# TYPE {} {}\n", name, wordOf(family_.type, format_));
    if (isOpen && !family_.unit.empty()) {
        fmt::format_to(std::back_inserter(text_), "# UNIT {} {}\n", name, family_.unit);
    }
}

void MetricsWriter::append(std::string_view labels, double value, const std::optional<double>& time)
{
    if (!hasHead_) {
        head();
    }
    fmt::format_to(
        std::back_inserter(text_), "{}{}{}{} {}", metricPrefix, family_.name, suffixOf(family_.type), labels, value);
    if (time && format_ == MetricsFormat::OpenMetrics) {
        fmt::format_to(std::back_inserter(text_), " {:.3f}", *time);
    } else if (time) {
        fmt::format_to(std::back_inserter(text_), " {:.0f}", *time * 1000);
    }
    text_ += '\n';
}

void MetricsWriter::sampleOf(const std::string& labels, double value)
{
    if (!std::isfinite(value)) {
        return;
    }
    const auto [position, isNew] = labelled_.insert(labels);
    if (!isNew || written_ == most_) {
        ++dropped_;
        return;
    }
    ++written_;
    append(*position, value, std::nullopt);
}

void MetricsWriter::sampleAt(double time, const std::string& labels, double value)
{
    if (std::isfinite(value)) {
        append(labels, value, time);
    }
}

std::string MetricsWriter::finish()
{
    if (format_ == MetricsFormat::OpenMetrics) {
        text_ += "# EOF\n";
    }
    return take();
}

} // namespace meridal
