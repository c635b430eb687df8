#include "platform/linux/SocketInodes.h"
#include "platform/linux/Descriptor.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>

#include <vector>

namespace meridal {
namespace {

/// A proxy's day: connections come and go, and the descriptors are used again.
TEST(SocketInodes, ForgetsSocketsThatWereClosed)
{
    constexpr int sockets = 10'000;
    constexpr int atATime = 100;
    SocketInodes inodes("/");
    for (int round = 0; round < sockets / atATime; ++round) {
        std::vector<Descriptor> open;
        std::vector<std::uint64_t> wanted;
        for (int i = 0; i < atATime; ++i) {
            struct stat status { };
            open.emplace_back(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
            ASSERT_EQ(::fstat(open.back().get(), &status), 0);
            wanted.push_back(status.st_ino);
            inodes.find(status.st_ino);
        }
        for (int i = 0; i < 50; ++i) { // each goes as far as its budget
            inodes.search();
        }
        for (const std::uint64_t inode : wanted) {
            ASSERT_EQ(inodes.find(inode).state, SocketInodes::State::Found);
        }
    }
    EXPECT_LT(inodes.known(), SocketInodes::firstForgotten + atATime);
}

} // namespace
} // namespace meridal
