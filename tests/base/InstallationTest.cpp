// SPDX-License-Identifier: Apache-2.0
#include "base/Installation.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

namespace meridal {
namespace {

using testing::HasSubstr;

std::string packaged(const std::string& file)
{
    std::ifstream text(MERIDAL_SOURCE_DIR "/packaging/" + file);
    EXPECT_TRUE(text) << file;
    return {std::istreambuf_iterator<char>(text), {}};
}

// What is installed, who looks for it and what people are told to type are written in different places.
TEST(InstallationTest, AgreesWithWhatServiceManagersAreGiven)
{
    const Installation onLinux = installationOn(HostSystem::Linux);
    EXPECT_THAT(
        packaged("linux/meridald.socket"), HasSubstr("\nListenStream=" + onLinux.paths.socket().string() + "\n"));
    EXPECT_THAT(packaged("linux/meridald.service"), HasSubstr(onLinux.paths.support.string()));

    const Installation onMac = installationOn(HostSystem::MacOS);
    EXPECT_EQ(onMac.paths.socket(), "/var/run/meridal/daemon.sock") << "/run is no folder of macOS";
    const std::string folder = "/Library/LaunchDaemons/";
    const std::size_t file = onMac.startCommand.find(folder);
    ASSERT_NE(file, std::string::npos);
    const std::string plist = packaged("macos/" + onMac.startCommand.substr(file + folder.size()));
    EXPECT_THAT(plist, HasSubstr("<string>org.meridal.daemon</string>"));
    EXPECT_THAT(plist, HasSubstr("<string>" + onMac.paths.errorLog().string() + "</string>"));
}

TEST(InstallationTest, IsThatOfTheSystemBuiltFor)
{
    const bool isMac = std::ifstream("/System/Library/CoreServices/SystemVersion.plist").good();
    const Installation expected = installationOn(isMac ? HostSystem::MacOS : HostSystem::Linux);
    EXPECT_EQ(installation().paths.run, expected.paths.run);
    EXPECT_EQ(installation().startCommand, expected.startCommand);
}

} // namespace
} // namespace meridal
