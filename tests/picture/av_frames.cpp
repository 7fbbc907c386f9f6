#include "picture/av_frames.h"

#include <algorithm>
#include <new>
#include <ostream>

#include "ffmpeg/channels.h"

namespace vidorra::test {

std::vector<Kind> allKinds() {
    std::vector<Kind> kinds;
    for (const Format& format : kFormats) {
        for (const Layout& layout : kLayouts) {
            kinds.push_back({format, layout});
        }
    }
    return kinds;
}

void PrintTo(const Kind& kind, std::ostream* stream) {
    *stream << kind.format.name << " " << kind.layout.name;
}

std::vector<Bytes> unlikePlanes(const Kind& kind, int samples) {
    std::vector<Bytes> planes;
    for (int i = 0; i < kind.planes(); ++i) {
        Bytes plane(static_cast<std::size_t>(kind.planeBytes(samples)));
        std::uint32_t state = 12345U + 77U * static_cast<std::uint32_t>(i);
        std::generate(plane.begin(), plane.end(), [&] {
            state = state * 1664525U + 1013904223U;
            return static_cast<std::uint8_t>(state >> 24U);
        });
        planes.push_back(std::move(plane));
    }
    return planes;
}

AvPtr<AVFrame> makeFrame(const Kind& kind, int samples, int rate, const std::vector<Bytes>& planes) {
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = kind.format.format;
    frame->sample_rate = rate;
    frame->nb_samples = samples;
    ffmpeg_ext::setChannelMask(*frame, kind.layout.mask);
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    for (std::size_t i = 0; i < planes.size(); ++i) {
        std::copy(planes[i].begin(), planes[i].end(), frame->extended_data[i]);
    }
    return frame;
}

std::vector<Bytes> planesOf(const AudioBuffer& buffer, int planeBytes) {
    std::vector<Bytes> planes;
    for (const std::uint8_t* plane : buffer.getPointersToPlanes()) {
        planes.emplace_back(plane, plane + planeBytes);
    }
    return planes;
}

std::vector<Bytes> planesOf(const AVFrame& frame, int planes, int planeBytes) {
    std::vector<Bytes> result;
    for (int i = 0; i < planes; ++i) {
        result.emplace_back(frame.extended_data[i], frame.extended_data[i] + planeBytes);
    }
    return result;
}

}  // namespace vidorra::test
