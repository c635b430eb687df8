// SPDX-License-Identifier: Apache-2.0
// The kernel control "com.apple.network.statistics": its messages byte by byte, and our end of the conversation.

#include "platform/formats/NetworkStatisticsSources.h"
#include "tests/support/FrameBytes.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace meridal::test {
namespace {

using Format = StatisticsFormat;
using Type = StatisticsType;
using MessageFields = std::vector<std::pair<std::size_t, Frame>>; ///< by place

constexpr std::uint32_t sourceAdded = 10'001;
constexpr std::uint32_t sourceRemoved = 10'002;
constexpr std::uint32_t sourceDescribed = 10'003;
constexpr std::uint32_t sourceCounted = 10'004;

Frame statisticsMessage(std::uint32_t type, std::size_t size, const MessageFields& fields)
{
    Frame bytes(size);
    const auto put = [&bytes](std::size_t at, const Frame& what) {
        std::copy(what.begin(), what.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(8, little32(type));
    put(12, little32(static_cast<std::uint32_t>(size)));
    for (const auto& [at, what] : fields) {
        put(at, what);
    }
    return bytes;
}

TEST(NetworkStatisticsMessages, RequestsAreLaidOutAsEachKernelReadsThem)
{
    EXPECT_EQ(encodeAddAllSources(Format::Release10_10, 3), hex("0300000000000000 ea030000 00000000 03000000"));
    Frame onOlder = hex("0200000000000000 ea030000 00000000 02000000");
    onOlder.resize(28);
    EXPECT_EQ(encodeAddAllSources(Format::Release10_11, 2), onOlder);
    Frame later = hex("0500000000000000 ea030000 38000000 05000000 0000200000000000");
    later.resize(56);
    EXPECT_EQ(encodeAddAllSources(Format::Release10_12, 5), later);
    later = joined({hex("0500000000000000 ea030000 38000000 0000200000000000"), Frame(8), hex("05000000"), Frame(20)});
    for (const Format format : {Format::Release10_13, Format::Release10_15, Format::Release11, Format::Release14}) {
        EXPECT_EQ(encodeAddAllSources(format, 5), later);
    }
    Frame query;
    encodeSourceRequest(Format::Release10_11, Type::QuerySource, 7, 0x11223344, query);
    EXPECT_EQ(query, hex("0700000000000000 ec030000 00000000 44332211"));
    encodeSourceRequest(Format::Release14, Type::GetDescription, 7, 0x1122334455667788, query);
    EXPECT_EQ(query, hex("0700000000000000 ed030000 1800 0000 8877665544332211"));
}

TEST(NetworkStatisticsMessages, FormatsAndProvidersFollowTheRelease)
{
    const std::tuple<int, int, Format> releases[] = {{10, 9, Format::Release10_10}, {10, 11, Format::Release10_11},
        {10, 12, Format::Release10_12}, {10, 14, Format::Release10_13}, {10, 15, Format::Release10_15},
        {10, 16, Format::Release11}, {13, 6, Format::Release11}, {99, 0, Format::Release14}};
    for (const auto& [major, minor, format] : releases) {
        EXPECT_EQ(statisticsFormatOf({major, minor, 0}), format) << major << "." << minor;
        std::set<std::uint8_t> protocols;
        for (const std::uint32_t provider : statisticsProviders(format)) {
            protocols.insert(protocolOfProvider(format, provider));
        }
        EXPECT_EQ(protocols, (std::set<std::uint8_t>{6, 17})) << "TCP and UDP on each";
        const auto providers = statisticsProviders(format);
        EXPECT_EQ(std::count(providers.begin(), providers.end(), 8U), format >= Format::Release10_15) << "QUIC";
    }
}

TEST(NetworkStatisticsMessages, TheFieldsLieWhereTheKernelsStructuresHaveThem)
{
    struct Place {
        std::uint32_t provider;
        std::size_t pid; ///< from the beginning of the message, as the next
        std::size_t localPort;
    };
    struct Release {
        std::size_t addedSize;
        std::size_t addedSource;
        std::size_t provider; ///< of a description
        std::size_t countsSize;
        std::size_t counts;
        Place tcp;
        Place udp;
    };
    constexpr Release releases[] = {// from 10.10 on
        {24, 20, 20, 132, 20, {2, 148, 26}, {3, 104, 26}}, {24, 20, 20, 132, 20, {2, 148, 26}, {3, 104, 26}},
        {28, 20, 32, 144, 32, {3, 160, 38}, {5, 116, 38}}, {32, 16, 32, 144, 32, {3, 140, 150}, {5, 168, 98}},
        {32, 16, 32, 144, 32, {8, 140, 150}, {5, 168, 98}}, // QUIC's sources are described as TCP's are
        {32, 16, 32, 144, 32, {3, 156, 166}, {5, 168, 98}}, {32, 16, 32, 144, 32, {8, 156, 166}, {5, 168, 98}}};
    for (int index = 0; index < 7; ++index) {
        const auto format = static_cast<Format>(index);
        const Release& release = releases[index];
        const Frame id = little32(77);
        for (const Place& place : {release.tcp, release.udp}) {
            Frame bytes = statisticsMessage(sourceDescribed, 400,
                {{16, id}, {release.provider, little32(place.provider)}, {place.pid, little32(4711)},
                    {place.localPort, hex("c350")}});
            const auto description = StatisticsMessages(format, bytes).next();
            ASSERT_TRUE(description && description->description);
            EXPECT_EQ(*description->description,
                (SourceDescription{protocolOfProvider(format, place.provider), 4711, 50'000}));
            for (std::size_t size = 0; size < bytes.size(); ++size) { // it may have been cut anywhere
                const Frame cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
                StatisticsMessages reader(format, cut);
                while (reader.next()) { }
            }
        }
        const Frame first = statisticsMessage(sourceAdded, release.addedSize, {{release.addedSource, id}});
        const Frame counts = statisticsMessage(sourceCounted, release.countsSize,
            {{16, id}, {release.counts + 8, hex("0010a5d4e8")}, {release.counts + 24, little32(5)}});
        const Frame last = statisticsMessage(sourceRemoved, 24, {{16, id}});
        StatisticsMessages reader(format, first);
        EXPECT_EQ(reader.next()->source, 77U);
        const Frame both = format == Format::Release10_10 ? counts : joined({counts, last}); // it tells no lengths
        StatisticsMessages rest(format, both);
        EXPECT_EQ(rest.next()->counts, (SourceCounts{1'000'000'000'000, 5}));
        EXPECT_EQ(rest.next().has_value(), format != Format::Release10_10);
    }
}

/// A kernel of release 14 that answers at once.
class StatisticsSourcesTest : public ::testing::Test {
protected:
    void answer(std::span<const std::uint8_t> request)
    {
        const Frame id(request.begin() + 16, request.end());
        if (request[8] == 0xEC) {
            ++queries;
            say(statisticsMessage(sourceCounted, 144, {{16, id}, {40, little32(received)}, {56, little32(50)}}));
        } else if (request[8] == 0xED) {
            ++descriptions;
            say(statisticsMessage(sourceDescribed, 384,
                {{16, id}, {32, little32(3)}, {156, little32(static_cast<std::uint32_t>(pid))}, {166, hex("1388")}}));
        } else {
            ++subscriptions;
        }
    }
    void say(const Frame& bytes) { sources.received(bytes, now); }
    void add(std::uint32_t id) { say(statisticsMessage(sourceAdded, 32, {{16, little32(id)}})); }
    void remove(std::uint32_t id) { say(statisticsMessage(sourceRemoved, 24, {{16, little32(id)}})); }

    StatisticsSources sources{Format::Release14, [this](std::span<const std::uint8_t> request) { answer(request); }};
    double now = 100;
    std::int32_t pid = 42;
    std::uint32_t received = 1000;
    int subscriptions = 0;
    int queries = 0;
    int descriptions = 0;
};

TEST_F(StatisticsSourcesTest, AConnectionComesCountsAndGoes)
{
    sources.subscribe(now);
    EXPECT_EQ(subscriptions, 5);
    add(77);
    now = 102;
    auto rows = sources.read();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].pid, 42);
    EXPECT_EQ(rows[0].protocol, 6);
    EXPECT_EQ(rows[0].localPort, 5000);
    EXPECT_EQ(rows[0].bytesReceived, 1000U);
    EXPECT_EQ(rows[0].bytesSent, 50U);
    EXPECT_EQ(rows[0].countedAt, 102);
    EXPECT_FALSE(rows[0].isNew) << "it was there before us";
    add(78);
    say(statisticsMessage(sourceCounted, 144, {{16, little32(77)}, {40, little32(3000)}}));
    remove(77);
    remove(77);
    rows = sources.read();
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_TRUE(rows[0].hasEnded && rows[0].bytesReceived == 3000);
    EXPECT_TRUE(rows[1].isNew && !rows[1].hasEnded);
    EXPECT_EQ(sources.read().size(), 1U) << "told once";
}

TEST_F(StatisticsSourcesTest, AnOwnerIsAskedForTenTimes)
{
    sources.subscribe(now);
    pid = -1;
    add(77);
    for (int i = 0; i < 15; ++i) {
        EXPECT_FALSE(sources.read()[0].pid);
    }
    EXPECT_EQ(descriptions, 10);
    EXPECT_EQ(queries, 15);
}

} // namespace
} // namespace meridal::test
