#include "platform/linux/traffic/PcapPacketTap.h"

#include "collectors/process/FrameDecoder.h"
#include "tests/process/FrameBytes.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <pcap/pcap.h>

namespace meridal {
namespace {

using test::big16;
using test::ethernet;
using test::Frame;
using test::ipv4;
using test::ipv6;
using test::joined;
using test::ports;
using test::TemporaryTree;

/// What the decoder makes of the frames of a file.
struct DecodingSink final : PacketTap::Sink {
    std::vector<DecodedFrame> decoded;
    int batches = 0;

    void frame(const CapturedFrame& frame) override
    {
        if (const auto result = decodeFrame(frame)) {
            decoded.push_back(*result);
        }
    }
    void lost(std::uint64_t) override { }
    void endBatch() override { ++batches; }
    void failed(const std::string& why) override { FAIL() << why; }
};

struct CaptureFileTest : testing::Test {
    /// Ethernet frames, of which no more than the beginning is kept.
    void write(const std::vector<Frame>& frames) const
    {
        constexpr int snapLength = 96;
        pcap_t* capture = pcap_open_dead(DLT_EN10MB, snapLength);
        pcap_dumper_t* file = pcap_dump_open(capture, path.c_str());
        ASSERT_TRUE(file) << pcap_geterr(capture);
        for (const Frame& frame : frames) {
            pcap_pkthdr header{};
            header.len = static_cast<bpf_u_int32>(frame.size());
            header.caplen = std::min<bpf_u_int32>(header.len, snapLength);
            pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.data());
        }
        pcap_dump_close(file);
        pcap_close(capture);
    }
    static Frame padded(Frame frame, std::size_t length)
    {
        frame.resize(length);
        return frame;
    }

    TemporaryTree tree;
    const std::filesystem::path path = tree.root() / "frames.pcap";
    DecodingSink sink;
};

TEST_F(CaptureFileTest, FramesOfAFileGoThroughTheSameDecoder)
{
    const Frame tcp = padded(joined({ipv4(6, 1400), ports()}), 1400);
    const Frame udp = padded(joined({ipv6(17, 500), ports()}), 540);
    write({ethernet(0x0800, tcp), ethernet(0x86dd, udp), ethernet(0x8100, joined({big16(42), big16(0x0800), tcp}))});
    const auto statistics = readCaptureFile(path, sink);
    ASSERT_TRUE(statistics && statistics->frames == 3U);
    EXPECT_EQ(sink.batches, 1);
    ASSERT_EQ(sink.decoded.size(), 3U);
    EXPECT_EQ(sink.decoded[0].bytes, 1400U) << "the length of the packet, though the file holds its beginning only";
    EXPECT_EQ(sink.decoded[0].linkBytes, 1414U);
    EXPECT_EQ(sink.decoded[0].destinationPort, 80);
    EXPECT_TRUE(sink.decoded[1].isIPv6);
    EXPECT_EQ(sink.decoded[1].protocol, 17);
    EXPECT_EQ(sink.decoded[2].vlan, 42);
    EXPECT_EQ(sink.decoded[2].bytes, 1400U);
}

TEST_F(CaptureFileTest, AFileThatEndsInMidFrameGivesWhatItHas)
{
    const Frame frame = ethernet(0x0800, padded(joined({ipv4(17, 60), ports()}), 60));
    write({frame, frame});
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 10);
    EXPECT_TRUE(readCaptureFile(path, sink));
    EXPECT_EQ(sink.decoded.size(), 1U);
    std::filesystem::resize_file(path, 10);
    EXPECT_FALSE(readCaptureFile(path, sink));
    EXPECT_EQ(sink.decoded.size(), 1U);
}

} // namespace
} // namespace meridal
