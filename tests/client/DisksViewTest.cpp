// SPDX-License-Identifier: Apache-2.0
#include "client/views/DisksView.h"

#include "base/Text.h"
#include "tests/client/ViewText.h"

#include <gmock/gmock.h>

#include <string>

namespace meridal {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string shown(const Value& disks, bool attributes) { return textOf(diskLines(disks, attributes)); }

TEST(DisksView, OneLineADiskAndWhatIsWrongBelow)
{
    const Value disks = parseUntrusted(R"([
        {"bsd":"sda","model":"WDC WD40EFRX-68N32N0","serial":"WD-WX1","kind":"ata","spins":true,"state":"awake","healthy":false,
         "temperature":34,"powerOn":26280000,"problems":["Reallocated sectors is below its threshold: spare sectors run out"],
         "attributes":[{"id":5,"name":"Reallocated sectors","current":3,"worst":3,"threshold":140,"value":1999,
                        "status":"failing","meaning":"spare sectors run out"}]},
        {"bsd":"nvme0n1","model":"FAST 1000","serial":"S5GX","kind":"nvme","state":"awake","healthy":true,"temperature":41,
         "wear":3,"powerOn":4442400,"problems":[],"attributes":[],"log":{"bytesWritten":512e9}},
        {"bsd":"sdb","model":"Slow\u001b[31m","serial":"Z","kind":"ata","state":"asleep","problems":[],"attributes":[]}
    ])")
                            .value();
    EXPECT_EQ(shown(disks, false),
        "DISK      MODEL                         SERIAL               KIND     TEMP   WEAR   POWERED ON  HEALTH\n"
        "sda       WDC WD40EFRX-68N32N0          WD-WX1               HDD     34 °C      -    304 d 4 h  FAILING\n"
        "  Reallocated sectors is below its threshold: spare sectors run out\n"
        "nvme0n1   FAST 1000                     S5GX                 NVMe    41 °C    3 %    51 d 10 h  fine\n"
        "sdb       Slow?[31m                     Z                    ATA         -      -            -  asleep\n");
    const Lines lines = diskLines(disks, true);
    EXPECT_EQ(lines[2][1].style, Style::High);
    EXPECT_EQ(lines[4][0].style, Style::High);
    EXPECT_THAT(plainText(lines[4]), HasSubstr("1999"));
    EXPECT_THAT(plainText(lines[4]), HasSubstr("failing: spare sectors run out"));
    EXPECT_THAT(shown(disks, true), HasSubstr("477 GiB"));

    for (const int room : {80, 60}) {
        for (const Line& line : diskLines(disks, true, room)) {
            EXPECT_LE(displayWidth(plainText(line)), room) << plainText(line);
        }
        const std::string narrow = textOf(diskLines(disks, true, room));
        EXPECT_THAT(narrow, Not(HasSubstr("SERIAL"))) << "the first to go";
        for (const char* kept : {"FAST 1000", "FAILING", "1999", "spare sectors run out", "asleep"}) {
            EXPECT_THAT(narrow, HasSubstr(kept));
        }
    }
    EXPECT_EQ(textOf(diskLines(json(R"([{"bsd":"sdz","state":"hidden"}])"), false, 60)),
        "DISK      MODEL      KIND     TEMP   WEAR HEALTH\n"
        "sdz       -          -           -      - not read\n"
        "  its adapter does not tell whether it sleeps (meridald\n"
        "  --read-hidden-disks)\n");

    Value hopeful = disks[0]; // the disk itself sees nothing wrong
    hopeful["healthy"] = true;
    hopeful["problems"].push_back("Pending sectors: 4");
    const Lines brief = diskLines(Value::array({hopeful}), false);
    EXPECT_EQ(brief[2][1].style, Style::High);
    EXPECT_EQ(brief[3][1].style, Style::Warning);
    EXPECT_EQ(shown(Value::array(), true), "no disk with health data (SMART or NVMe) on this machine\n");
}

} // namespace
} // namespace meridal
