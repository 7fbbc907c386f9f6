#include "demux/h264_key_packet.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <random>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/literal_key_scan.h"

namespace vidorra {
namespace {

// Scans a block of exactly this size, so that the address sanitizer detects a read outside it.
bool scanExactly(const std::uint8_t* data, std::size_t size) {
    const auto block = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    if (size > 0) {
        std::memcpy(block.get(), data, size);
    }
    return isH264KeyPacket(block.get(), size);
}

TEST(H264KeyPacket, AgreesWithThePlainScanOnRandomPackets) {
    // Mostly the bytes of start codes and of the units of interest.
    constexpr std::array<std::uint8_t, 14> kAlphabet = {0, 0, 0, 0, 0, 1, 1, 5, 7, 8, 0x65, 0x67, 0x68, 0xe1};
    std::mt19937 random(20240611);
    std::uniform_int_distribution<std::size_t> letter(0, kAlphabet.size() - 1);
    std::uniform_int_distribution<std::size_t> length(0, 200);
    std::array<std::uint8_t, 200> bytes{};
    int keys = 0;
    for (int i = 0; i < 200000; ++i) {
        const std::size_t size = length(random);
        for (std::size_t j = 0; j < size; ++j) {
            bytes[j] = kAlphabet[letter(random)];
        }
        const bool expected = test::literalKeyScan(bytes.data(), size);
        keys += expected ? 1 : 0;
        ASSERT_EQ(scanExactly(bytes.data(), size), expected) << "packet " << i;
    }
    // Both results occurred.
    EXPECT_GT(keys, 300);
    EXPECT_LT(keys, 199700);
}

TEST(H264KeyPacket, AgreesWithThePlainScanOnPacketsThatAreMadeOfUnits) {
    constexpr std::array<std::uint8_t, 8> kTypes = {0x67, 0x68, 0x65, 0x61, 0x09, 0x06, 0x00, 0x01};
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> type(0, kTypes.size() - 1);
    std::uniform_int_distribution<int> small(0, 4);
    int keys = 0;
    for (int i = 0; i < 50000; ++i) {
        std::string bytes;
        for (int unit = 0; unit < 12; ++unit) {
            bytes.append(static_cast<std::size_t>(2 + small(random) / 4), '\0');
            bytes += '\1';
            bytes += static_cast<char>(kTypes[type(random)]);
            bytes.append(static_cast<std::size_t>(small(random)), static_cast<char>(small(random)));
        }
        // Cut anywhere, even inside a start code.
        bytes.resize(bytes.size() - static_cast<std::size_t>(small(random)));
        const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
        const bool expected = test::literalKeyScan(data, bytes.size());
        keys += expected ? 1 : 0;
        ASSERT_EQ(scanExactly(data, bytes.size()), expected) << "packet " << i;
    }
    EXPECT_GT(keys, 1000);
    EXPECT_LT(keys, 49000);
}

// There would be too many packets of up to nine bytes of this alphabet, but not too many short ones.
TEST(H264KeyPacket, AgreesWithThePlainScanOnAllShortPackets) {
    constexpr std::array<std::uint8_t, 4> kAlphabet = {0, 1, 7, 8};
    std::array<std::uint8_t, 7> bytes{};
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        for (std::size_t code = 0; code < (std::size_t{1} << (2 * size)); ++code) {
            for (std::size_t i = 0; i < size; ++i) {
                bytes[i] = kAlphabet[(code >> (2 * i)) & 3];
            }
            ASSERT_EQ(scanExactly(bytes.data(), size), test::literalKeyScan(bytes.data(), size));
        }
    }
}

TEST(H264KeyPacket, FindsTheSmallestKeyPacketOnlyAsAWhole) {
    constexpr std::array<std::uint8_t, 12> kBytes = {0, 0, 1, 7, 0, 0, 1, 8, 0, 0, 1, 5};
    EXPECT_TRUE(scanExactly(kBytes.data(), kBytes.size()));
    for (std::size_t size = 0; size < kBytes.size(); ++size) {
        EXPECT_FALSE(scanExactly(kBytes.data(), size)) << size;
    }
}

class H264KeyPacketOfFile : public testing::TestWithParam<const char*> {};

TEST_P(H264KeyPacketOfFile, AgreesWithThePlainScan) {
    FormatContext source = test::opened(test::fileOf(GetParam()).string());
    const int video = test::firstStream(source, AVMEDIA_TYPE_VIDEO);
    int packets = 0;
    for (const Packet& packet : test::readAllPackets(source)) {
        if (packet.stream_index == video) {
            SCOPED_TRACE(packets++);
            const auto size = static_cast<std::size_t>(packet.size);
            EXPECT_EQ(scanExactly(packet.data, size), test::literalKeyScan(packet.data, size));
        }
    }
    EXPECT_EQ(packets, 30);
}

INSTANTIATE_TEST_SUITE_P(, H264KeyPacketOfFile,
                         testing::Values("H264InMp4", "H264InMatroska", "H264InTransportStream",
                                         "H264InFlash", "H264InFortySlicesInTransportStream",
                                         "H264InFortySlicesInAnnexB"),
                         [](const auto& row) { return std::string(row.param); });

}  // namespace
}  // namespace vidorra
