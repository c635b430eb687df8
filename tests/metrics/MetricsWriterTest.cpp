// SPDX-License-Identifier: Apache-2.0
#include "metrics/MetricsWriter.h"

#include <gtest/gtest.h>

#include <limits>

namespace meridal {
namespace {

std::string writtenAs(MetricsFormat format)
{
    MetricsWriter writer(format, 4);
    writer.family({.name = "empty", .help = "Nothing."});
    writer.family({.name = "group_cpu_seconds", .type = MetricType::Counter, .unit = "seconds", .help = "A \"b\" \\"});
    writer.sample({{"group", "a\"b\\c\nd"}}, 0.1);
    writer.sample({{"group", "a\"b\\c\nd"}}, 2); // twice
    writer.sample({{"group", "nan"}}, std::numeric_limits<double>::quiet_NaN());
    writer.sample({{"group", "unknown"}}, std::nullopt);
    writer.family({.name = "build", .type = MetricType::Info, .help = "I"});
    writer.sample({{"version", "\xff"}}, 1);
    writer.family({.name = "up", .help = "U"});
    writer.sample({}, 1e15);
    writer.sample({{"", "none"}, {"a", "b"}}, 4096);
    writer.sample({{"one", "too many"}}, 1);
    EXPECT_EQ(writer.dropped(), 2U);
    return writer.finish();
}

TEST(MetricsWriter, WritesBothFormatsWithoutWhatCannotBeScraped)
{
    EXPECT_EQ(writtenAs(MetricsFormat::Prometheus), R"(# HELP meridal_group_cpu_seconds_total A "b" \\
# TYPE meridal_group_cpu_seconds_total counter
meridal_group_cpu_seconds_total{group="a\"b\\c\nd"} 0.1
# HELP meridal_build_info I
# TYPE meridal_build_info gauge
meridal_build_info{version="�"} 1
# HELP meridal_up U
# TYPE meridal_up gauge
meridal_up 1000000000000000
meridal_up{a="b"} 4096
)");
    EXPECT_EQ(writtenAs(MetricsFormat::OpenMetrics), R"(# HELP meridal_group_cpu_seconds A \"b\" \\
# TYPE meridal_group_cpu_seconds counter
# UNIT meridal_group_cpu_seconds seconds
meridal_group_cpu_seconds_total{group="a\"b\\c\nd"} 0.1
# HELP meridal_build I
# TYPE meridal_build info
meridal_build_info{version="�"} 1
# HELP meridal_up U
# TYPE meridal_up gauge
meridal_up 1000000000000000
meridal_up{a="b"} 4096
# EOF
)");
}

TEST(MetricsWriter, FiguresOfThePastBearTheirTime)
{
    MetricsWriter writer(MetricsFormat::OpenMetrics);
    writer.family({.name = "sensor_celsius", .unit = "celsius", .help = "T"});
    writer.sampleAt(1700000000.5, {{"sensor", "a"}}, 41.5);
    EXPECT_NE(writer.take().find("meridal_sensor_celsius{sensor=\"a\"} 41.5 1700000000.500\n"), std::string::npos);
    writer.sampleAt(1700000006.5, {{"sensor", "a"}}, 42);
    EXPECT_EQ(writer.finish(), "meridal_sensor_celsius{sensor=\"a\"} 42 1700000006.500\n# EOF\n");
}

} // namespace
} // namespace meridal
