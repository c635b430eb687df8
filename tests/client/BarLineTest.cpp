// SPDX-License-Identifier: Apache-2.0
#include "client/views/BarLine.h"

#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <utility>

namespace meridal {
namespace {

using testing::HasSubstr;

BarFigures laptop()
{
    return {.machine = json(R"({"cpu":{"busy":42.4,"load1":1.5},"memory":{"used":600,"total":1000,"swapused":2048},
                "disks":[{"name":"sda","readbytes":1024,"writtenbytes":1024},{"name":"sdb","readbytes":0,"writtenbytes":5}],
                "gpus":[{"name":"card0","busy":7}]})"),
        .sensors = json(R"({"sensors":[
                {"chip":"coretemp-isa-0000","name":"Package id 0","kind":"temperature","unit":"°C","value":61.25},
                {"chip":"nct6775-isa-0290","name":"CPU","kind":"temperature","unit":"°C","value":99.5,"alarm":"critical"},
                {"chip":"nct6775-isa-0290","name":"CPU Fan","kind":"fan","unit":"rpm","value":1200},
                {"chip":"nct6775-isa-0290","name":"in0","kind":"voltage","unit":"V","value":null}]})"),
        .interfaces = json(R"({"interfaces":[{"interface":"eth<0>","downloadRate":0,"uploadRate":null},
                {"interface":"wlan0","primary":true,"downloadRate":2048,"uploadRate":12}]})"),
        .battery = json(R"({"batteries":[{"key":"B","name":"Battery","percentage":18.0,"state":2,"time":95}],
                "peripherals":[{"key":"m","name":"Mouse","percentage":40}],"primary":"B"})")};
}

std::string line(BarFormat format, const char* layout, const BarFigures& figures = laptop())
{
    return barLine(format, BarTemplate::parse(layout).value(), figures);
}

TEST(BarLine, EachFigureIsOfTheUsualOneOrOfTheNamedOne)
{
    const std::pair<const char*, const char*> lines[] = {{"{cpu} {memory} {swap} {load}", "42% 60% 2.00 KiB 1.50\n"},
        {"{disk} {disk:sdb} {disk:sdz} {gpu}", "2.00 KiB/s 5 B/s - 7%\n"},
        {"{net} {net:eth<0>}", "↓2.00 KiB/s ↑12 B/s ↓0 B/s ↑-\n"},
        {"{temp} {temp:package} {temp:coretemp} {temp:CPU}", "100°C 61°C 61°C 100°C\n"},
        {"{fan} {sensor:in0} {sensor:none} {fan:cpu fan}", "1200 rpm - - 1200 rpm\n"},
        {"{battery} {battery:Mouse}", "18% ↓1:35 40%\n"}, {"a {{b}} }", "a {b} }\n"}, {"", "\n"}};
    for (const auto& [layout, text] : lines) {
        EXPECT_EQ(line(BarFormat::Plain, layout), text);
    }
    EXPECT_EQ(line(BarFormat::Plain, "{cpu} {net} {temp} {battery} {gpu}", {}), "- - - - -\n");
    EXPECT_THAT(
        BarTemplate::parse("{cpi}").error().message, HasSubstr("there is no {cpi} for a bar; there is {cpu}, "));
    EXPECT_FALSE(BarTemplate::parse("{cpu"));
    EXPECT_TRUE(BarTemplate::parse("{net}").value().asks(BarQuestion::Interfaces));
    EXPECT_FALSE(BarTemplate::parse("{net}").value().asks(BarQuestion::Machine));
}

TEST(BarLine, EscapesAndMarksAsEachBarReads)
{
    const std::tuple<BarFormat, const char*> lines[] = {{BarFormat::Plain, "<#%{&\"? 100°C 18% ↓1:35\n"},
        {BarFormat::Waybar, "{\"class\":\"critical\",\"text\":\"&lt;#%{&amp;\\\"? 100°C 18% ↓1:35\"}\n"},
        {BarFormat::Polybar, "<#%\u200B{&\"? %{F#e53935}100°C%{F-} %{F#fb8c00}18% ↓1:35%{F-}\n"},
        {BarFormat::I3bar,
            "[{\"full_text\":\"<#%{&\\\"? 100°C 18% "
            "↓1:35\",\"markup\":\"none\",\"name\":\"meridal\",\"urgent\":true}],\n"},
        {BarFormat::Tmux, "<##%{&\"? #[fg=red]100°C#[fg=default] #[fg=yellow]18% ↓1:35#[fg=default]\n"}};
    for (const auto& [format, text] : lines) {
        EXPECT_EQ(line(format, "<#%{{&\"\x1B {temp:CPU} {battery}"), text);
    }
    BarFigures gone = laptop();
    gone.isOffline = true;
    EXPECT_EQ(line(BarFormat::Waybar, "{cpu}", gone), "{\"class\":\"offline\",\"text\":\"-\"}\n");
    EXPECT_EQ(barHeader(BarFormat::I3bar), "{\"version\":1}\n[\n");
}

} // namespace
} // namespace meridal
