#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "tests/process/FrameBytes.h"
#include "tests/process/ProcessFixture.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

using Format = StatisticsFormat;
using Type = StatisticsType;

std::uint64_t little(const Frame& bytes, std::size_t at, std::size_t count)
{
    std::uint64_t value = 0;
    for (std::size_t i = count; i-- > 0;) {
        value = value << 8 | bytes.at(at + i);
    }
    return value;
}

TEST(NetworkStatisticsMessages, RequestsAreLaidOutAsEachKernelReadsThem)
{
    EXPECT_EQ(encodeAddAllSources(Format::Release10_10, 3), hex("0300000000000000 ea030000 00000000 03000000"));
    const Frame on1011 = encodeAddAllSources(Format::Release10_11, 2);
    EXPECT_EQ(on1011.size(), 28U);
    EXPECT_EQ(little(on1011, 16, 4), 2U);
    for (const Format format : {Format::Release10_12, Format::Release10_13, Format::Release11, Format::Release14}) {
        const bool isFilterInFront = format != Format::Release10_12; // of the provider
        const Frame later = encodeAddAllSources(format, 5);
        EXPECT_EQ(later.size(), 56U);
        EXPECT_EQ(little(later, 12, 2), 56U);
        EXPECT_EQ(isFilterInFront ? little(later, 16, 8) : little(later, 20, 4), 0x200000U);
        EXPECT_EQ(little(later, isFilterInFront ? 32 : 16, 4), 5U);
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
        {10, 12, Format::Release10_12}, {10, 15, Format::Release10_13}, {10, 16, Format::Release11},
        {13, 6, Format::Release11}, {99, 0, Format::Release14}};
    for (const auto& [major, minor, format] : releases) {
        EXPECT_EQ(statisticsFormatOf({major, minor, 0}), format) << major << "." << minor;
        std::set<std::uint8_t> protocols;
        for (const std::uint32_t provider : statisticsProviders(format)) {
            protocols.insert(protocolOfProvider(format, provider));
        }
        EXPECT_EQ(protocols, (std::set<std::uint8_t>{6, 17})) << "TCP and UDP on each";
    }
}

TEST(NetworkStatisticsMessages, WhatIsEncodedIsReadBackOnEveryRelease)
{
    for (int index = 0; index < 6; ++index) {
        const auto format = static_cast<Format>(index);
        for (const std::uint32_t provider : statisticsProviders(format)) {
            const SourceDescription description{provider, 4711, 5, 50'000, 443};
            Frame bytes;
            encodeSourceAdded(format, 77, provider, bytes);
            if (format == Format::Release10_10) { // one message a read: it does not tell lengths
                EXPECT_EQ(StatisticsMessages(format, bytes).next()->source, 77U);
                continue;
            }
            encodeSourceDescription(format, 9, 77, description, bytes);
            encodeSourceCounts(format, 9, 77, {1'000'000'000'000, 5}, bytes);
            encodeSourceRemoved(format, 77, bytes);
            StatisticsMessages reader(format, bytes);
            EXPECT_EQ(reader.next()->provider, provider);
            EXPECT_EQ(reader.next()->description, description);
            EXPECT_EQ(reader.next()->counts, (SourceCounts{1'000'000'000'000, 5}));
            EXPECT_EQ(reader.next()->type, Type::SourceRemoved);
            EXPECT_FALSE(reader.next());
        }
    }
}

TEST(NetworkStatisticsMessages, TheFieldsLieWhereTheKernelsStructuresHaveThem)
{
    Frame bytes(40 + 344);
    const auto put = [&bytes](std::size_t at, const Frame& what) {
        std::copy(what.begin(), what.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(8, joined({little32(10003), hex("8001 0000")}));
    put(16, hex("8877665544332211"));
    put(32, little32(3));
    put(40 + 116, little32(4711));
    put(40 + 124 + 2, hex("01bb"));
    put(40 + 152 + 2, hex("c350"));
    const auto message = StatisticsMessages(Format::Release14, bytes).next();
    ASSERT_TRUE(message && message->description);
    EXPECT_EQ(message->source, 0x1122334455667788U);
    EXPECT_EQ(*message->description, (SourceDescription{3, 4711, 0, 443, 50'000}));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        StatisticsMessages cut(Format::Release14, std::span(bytes).first(size));
        while (cut.next()) { }
    }
}

class NetworkStatisticsTest : public ProcessFixture {
protected:
    NetworkStatisticsTest()
    {
        set(42);
        update();
        kernel().answer = [this](const FakeNetworkStatistics::Bytes& request) { reply(request); };
    }
    FakeNetworkStatistics& kernel() { return machine.networkStatistics(); }
    void reply(const Frame& bytes)
    {
        const auto request = parseStatisticsRequest(format, bytes);
        Frame answer;
        if (request->type == Type::QuerySource) {
            ++queries;
            encodeSourceCounts(format, request->context, request->source, counts, answer);
        } else if (request->type == Type::GetDescription) {
            ++descriptions;
            encodeSourceDescription(format, request->context, request->source, {3, pid, 1, 5000, 80}, answer);
        }
        if (!answer.empty()) {
            kernel().say(answer);
        }
    }
    void addSource(std::uint64_t source)
    {
        Frame added;
        encodeSourceAdded(format, source, 3, added);
        kernel().say(added);
    }
    void updateAfter(double seconds)
    {
        machine.runtime.advance(seconds);
        statistics.updateStats();
    }

    static constexpr Format format = Format::Release14;
    NetworkStatisticsStatCollector statistics{machine.context, collector()};
    SourceCounts counts;
    std::int32_t pid = 42;
    int queries = 0;
    int descriptions = 0;
};

TEST_F(NetworkStatisticsTest, RatesComeFromTheDifferenceOfTwoCounts)
{
    ASSERT_TRUE(statistics.start());
    EXPECT_EQ(kernel().requests.size(), 4U);
    addSource(77);
    const auto downloadAfter = [this](const SourceCounts& now) {
        counts = now;
        updateAfter(2);
        return traffic(42)[0];
    };
    EXPECT_EQ(downloadAfter({1000, 50}), 0) << "it was there before us: its first counts say nothing";
    EXPECT_EQ(downloadAfter({21'000, 50}), 10'000);
    EXPECT_EQ(traffic(42)[1] + item(42).activity.networkUploadTime, 0);
    EXPECT_EQ(downloadAfter({5, 5}), 0) << "the counter started over";
    statistics.setFigure(NetworkStatisticsStatCollector::Figure::Bytes);
    EXPECT_EQ(downloadAfter({4005, 5}), 4000);
}

TEST_F(NetworkStatisticsTest, AnOwnerIsAskedForTenTimes)
{
    ASSERT_TRUE(statistics.start());
    pid = -1;
    addSource(77);
    for (int i = 0; i < 15; ++i) {
        updateAfter(2);
    }
    EXPECT_EQ(descriptions, 10);
    EXPECT_EQ(queries, 15);
}

TEST_F(NetworkStatisticsTest, SlotsAreReusedAndTheTableEnds)
{
    ASSERT_TRUE(statistics.start());
    addSource(1);
    addSource(2);
    addSource(2);
    EXPECT_EQ(statistics.connectionItems(), 2U);
    Frame removed;
    encodeSourceRemoved(format, 1, removed);
    kernel().say(removed);
    kernel().say(removed);
    addSource(3);
    EXPECT_EQ(statistics.connections().size(), 2U) << "in the slot of the one that went";
    for (std::uint64_t source = 10; source < 70'000; ++source) {
        addSource(source);
    }
    EXPECT_EQ(statistics.connectionItems(), NetworkStatisticsStatCollector::mostConnections);
    EXPECT_GT(statistics.missedSources(), 0U);
    statistics.stop();
    EXPECT_FALSE(kernel().say);
    EXPECT_EQ(statistics.connectionItems(), 0U);
}

} // namespace
} // namespace meridal::test
