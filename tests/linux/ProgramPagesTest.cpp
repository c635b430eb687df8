// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/ProgramPages.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <string>

namespace meridal {
namespace {

/// KiB of programs' files that are mapped here and cannot be written to.
long residentProgramKiB()
{
    std::ifstream maps("/proc/self/smaps");
    long sum = 0;
    bool counts = false;
    for (std::string line; std::getline(maps, line);) {
        if (line.starts_with("Rss:")) {
            sum += counts ? std::stol(line.substr(4)) : 0;
        } else if (line.find('-') < line.find(' ')) { // the head of a mapping
            counts = line.find(" r-xp ") != std::string::npos && line.find('/') != std::string::npos;
        }
    }
    return sum;
}

int changed = 1;
const std::array<const char*, 2> relocated{"one", "two"};

TEST(ProgramPages, AreLetGoAndComeBackWhileVariablesStay)
{
    changed = 2;
    const long before = residentProgramKiB();
    releaseProgramPages();
    EXPECT_LT(residentProgramKiB(), before);
    EXPECT_EQ(changed, 2);
    EXPECT_EQ(std::string(relocated.at(1)), "two");
    EXPECT_THROW(std::stol("none"), std::invalid_argument); // through tables of several libraries
}

} // namespace
} // namespace meridal
