#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "vidorra/encode/video_encoder.h"

namespace vidorra::test {

inline constexpr Size kVideoSize{64, 48};

/// A configuration for pictures of kVideoSize at 25 frames a second.
inline objstream::object videoConfig(const std::string& encoder, const std::string& format = "yuv420p") {
    objstream::object config;
    config["codec"] = encoder;
    config["width"] = kVideoSize.width;
    config["height"] = kVideoSize.height;
    config["timebase_num"] = 1;
    config["timebase_den"] = 25;
    config["pix_fmt"] = format;
    return config;
}

/// The available packets, up to the error that ends them.
inline void receiveAll(EncoderBase& encoder, std::vector<Packet>& packets, AvError end) {
    for (;;) {
        tl::expected<Packet, AvError> packet = encoder.receivePacket();
        if (!packet) {
            EXPECT_EQ(packet.error(), end);
            return;
        }
        packets.push_back(std::move(*packet));
    }
}

/// All packets of some frames, including those after the end of the stream.
inline std::vector<Packet> encodeAll(VideoEncoder& encoder, const std::vector<VideoFrame>& frames) {
    std::vector<Packet> packets;
    for (const VideoFrame& frame : frames) {
        const AvRes res = encoder.sendFrame(frame);
        EXPECT_TRUE(res.ok) << res;
        receiveAll(encoder, packets, AvError::Again);
    }
    EXPECT_TRUE(encoder.sendEndOfStream().ok);
    receiveAll(encoder, packets, AvError::Eof);
    return packets;
}

}  // namespace vidorra::test
