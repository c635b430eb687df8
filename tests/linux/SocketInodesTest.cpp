// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/SocketInodes.h"
#include "platform/linux/kernel/Descriptor.h"
#include "tests/support/TemporaryTree.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
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

TEST(SocketInodes, NobodyIsPassedOverWhenOthersEnd)
{
    test::TemporaryTree tree{{"proc/50/stat", ""}, {"proc/60/stat", ""}};
    constexpr std::uint64_t first = 1000;
    for (int fd = 0; fd < 8000; ++fd) { // several searches' worth
        tree.link(fmt::format("proc/40/fd/{}", fd), fmt::format("socket:[{}]", first + static_cast<std::uint64_t>(fd)));
    }
    SocketInodes inodes(tree.root());
    const auto states = [&inodes] {
        return std::array{inodes.find(first).state, inodes.find(first + 4000).state, inodes.find(first + 7999).state};
    };
    states();
    inodes.search();
    for (const char* ended : {"proc/60", "proc/50"}) {
        tree.remove(ended);
        inodes.search();
        inodes.search();
    }
    for (int i = 0; i < 10; ++i) {
        inodes.search();
    }
    using enum SocketInodes::State;
    EXPECT_EQ(states(), (std::array{Found, Found, Found}));
}

} // namespace
} // namespace meridal
