#include "mux/writer_track.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "vidorra/core/format.h"

namespace vidorra {

WriterTrack::WriterTrack(std::string name, Timebase timebase, Take take)
    : mName(std::move(name)), mTimebase(timebase), mTake(std::move(take)) {}

WriterTrack::~WriterTrack() = default;

void WriterTrack::write(const VideoFrame& /*frame*/) {
    refuse(std::logic_error(mName + " takes no pictures"));
}

void WriterTrack::write(const AudioFrame& /*frame*/) {
    refuse(std::logic_error(mName + " takes no sound"));
}

void WriterTrack::write(const Packet& /*packet*/) {
    refuse(std::logic_error(mName + " takes no packets"));
}

std::int64_t WriterTrack::requireRise(const Timestamp& time,
                                      const std::optional<std::int64_t>& latest) const {
    if (time.isNull) {
        refuse(std::invalid_argument(mName + ": the time is not set"));
    }
    const std::int64_t count = time.rescale(mTimebase).value;
    if (latest && count <= *latest) {
        refuse(std::invalid_argument(fmt::format("{}: the time {} is not above the latest one, {}", mName,
                                                 time.debugDescription(),
                                                 Timestamp(mTimebase, *latest).debugDescription())));
    }
    return count;
}

void WriterTrack::give(Packet packet, std::int64_t leadIn) {
    const Timestamp begin(mTimebase, packet.pts);
    const Timestamp end(mTimebase, packet.pts + packet.duration);
    const Timestamp shown(mTimebase, packet.pts + leadIn);
    ++mReport.packets;
    mReport.bytes += static_cast<std::uint64_t>(packet.size);
    mReport.begin = mReport.begin.isNull ? shown : std::min(mReport.begin, shown);
    mReport.end = mReport.end.isNull ? end : std::max(mReport.end, end);
    if (packet.isNoSignal()) {
        if (!mIsWithoutSignal) {
            mReport.noSignal.push_back({begin, end, 0});
        }
        WriterReport::Stretch& stretch = mReport.noSignal.back();
        stretch.begin = std::max(std::min(stretch.begin, begin), mReport.begin);
        stretch.end = std::max(stretch.end, end);
        ++stretch.packets;
    }
    mIsWithoutSignal = packet.isNoSignal();
    mTake(std::move(packet));
}

}  // namespace vidorra
