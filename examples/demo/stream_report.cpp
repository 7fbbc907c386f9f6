#include "stream_report.h"

#include <ostream>

extern "C" {
#include <libavformat/avformat.h>
}

namespace demo {

StreamReport::StreamReport(vidorra::FormatContext& source, unsigned index) : mIndex(index) {
    const AVCodecParameters& parameters = *source.trackAtIndex(index)->codecpar;
    mIsVideo = parameters.codec_type == AVMEDIA_TYPE_VIDEO;
    if (const auto& decoder = source.getCodecContext(index)) {
        mCodec = decoder->codecInfo();
        return;
    }
    const char* type = av_get_media_type_string(parameters.codec_type);
    mCodec = fmt::format("{}: {}, not decoded", type != nullptr ? type : "unknown", parameters.codec_id);
}

void StreamReport::count(const vidorra::Packet& packet) {
    ++mPackets;
    mKeyPackets += packet.isKeyFrame() ? 1 : 0;
    mBytes += static_cast<std::uint64_t>(packet.size);
    if (!mIsVideo && packet.pts != AV_NOPTS_VALUE) {
        note({{}, packet.pts});
    }
}

void StreamReport::count(const vidorra::VideoFrame& frame) {
    ++mFrames;
    note(frame.timestamp());
}

void StreamReport::note(const vidorra::Timestamp& time) {
    if (time.isNull) {
        return;
    }
    if (mFirst.isNull || time < mFirst) {
        mFirst = time;
    }
    if (mLast.isNull || time > mLast) {
        mLast = time;
    }
}

std::string StreamReport::description() const {
    return fmt::format("stream {}: {}", mIndex, mCodec);
}

std::ostream& operator<<(std::ostream& stream, const StreamReport& report) {
    stream << "stream " << report.mIndex << ": " << report.mPackets << " packets, " << report.mKeyPackets
           << " of them key packets, " << report.mBytes << " bytes";
    if (report.mIsVideo) {
        stream << ", " << report.mFrames << " frames";
    }
    if (!report.mFirst.isNull) {
        stream << ", from " << report.mFirst << " s to " << report.mLast << " s";
    }
    return stream;
}

}  // namespace demo
