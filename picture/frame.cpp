#include "vidorra/picture/frame.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <ostream>

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra {

Frame::Frame(const Timestamp& timestamp) : mTimestamp(timestamp) {}

Frame::~Frame() = default;

void Frame::addSideData(const SideData& sideData) {
    const auto found = std::find_if(mSideData.begin(), mSideData.end(), [&sideData](const SideData& entry) {
        return entry.index() == sideData.index();
    });
    if (found != mSideData.end()) {
        *found = sideData;
    } else {
        mSideData.push_back(sideData);
    }
}

AvPtr<AVFrame> Frame::toAvFrame() const {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    if (!frame) {
        throw std::bad_alloc();
    }
    fillAVFrame(frame.get());
    for (const SideData& entry : mSideData) {
        // Four words: a count of up to three timecodes, then the timecodes.
        constexpr std::size_t kSize = 4 * sizeof(std::uint32_t);
        const AVFrameSideData* added =
            av_frame_new_side_data(frame.get(), AV_FRAME_DATA_S12M_TIMECODE, kSize);
        if (added == nullptr) {
            throw std::bad_alloc();
        }
        const std::uint32_t words[] = {1, std::get<SMPTE12Timecode>(entry).toBinaryCodedDecimal()};
        std::memcpy(added->data, words, sizeof(words));
    }
    return frame;
}

std::ostream& operator<<(std::ostream& stream, const Frame& frame) {
    return stream << frame.debugDescription();
}

}  // namespace vidorra
