// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/SocketInodes.h"
#include "platform/linux/kernel/Descriptor.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <vector>

namespace meridal {
namespace {

struct OpenSockets {
    explicit OpenSockets(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            struct stat status { };
            descriptors.emplace_back(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
            EXPECT_EQ(::fstat(descriptors.back().get(), &status), 0);
            inodes.push_back(status.st_ino);
        }
    }
    std::vector<Descriptor> descriptors;
    std::vector<std::uint64_t> inodes;
};

/// A proxy's day: connections come and go, and the descriptors are used again.
TEST(SocketInodes, ForgetsSocketsThatWereClosed)
{
    constexpr int sockets = 10'000;
    constexpr int atATime = 100;
    SocketInodes inodes("/");
    for (int round = 0; round < sockets / atATime; ++round) {
        const OpenSockets open(atATime);
        for (const std::uint64_t inode : open.inodes) {
            inodes.find(inode);
        }
        for (int i = 0; i < 50; ++i) { // each goes as far as its budget
            inodes.search();
        }
        for (const std::uint64_t inode : open.inodes) {
            ASSERT_EQ(inodes.find(inode).state, SocketInodes::State::Found);
        }
    }
    EXPECT_LT(inodes.known(), SocketInodes::firstForgotten + atATime);
}

/// A server's day: more descriptors than one search may read, and the one asked for is any of them.
TEST(SocketInodes, FindsAnyOfManySocketsOfOneProcess)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    constexpr rlim_t sockets = 12'000;
    if (limit.rlim_max < sockets + 100) {
        GTEST_SKIP() << "no more than " << limit.rlim_max << " descriptors";
    }
    const rlimit enough{.rlim_cur = limit.rlim_max, .rlim_max = limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &enough);
    OpenSockets open(sockets);
    SocketInodes owners("/");
    constexpr std::uint64_t nobodys = ~std::uint64_t{0};
    const auto some = {open.inodes.back(), open.inodes.front(), open.inodes[sockets / 2]};
    owners.find(nobodys);
    for (const std::uint64_t inode : some) {
        owners.find(inode);
    }
    for (int i = 0; i < 40; ++i) { // 1.6 s of batches, less than what bytes wait
        owners.search();
    }
    for (const std::uint64_t inode : some) {
        EXPECT_EQ(owners.find(inode).state, SocketInodes::State::Found) << inode - open.inodes.front();
    }
    EXPECT_NE(owners.find(nobodys).state, SocketInodes::State::Found);
    open.descriptors.clear();
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace
} // namespace meridal
