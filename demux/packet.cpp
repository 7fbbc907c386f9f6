#include "vidorra/demux/packet.h"

#include <utility>

#include "ffmpeg/chapters.h"
#include "ffmpeg/packets.h"

namespace vidorra {
namespace {

// Not a flag of FFmpeg. A packet keeps it because references and moves copy all flags.
constexpr int kNoSignalFlag = 0x1000;

void setBit(int& flags, int bit, bool on) {
    flags = on ? flags | bit : flags & ~bit;
}

}  // namespace

Packet::Packet() noexcept : AVPacket() {
    ffmpeg_ext::resetPacket(*this);
}

Packet::Packet(const AVPacket& packet) : Packet() {
    const AvRes res = av_packet_ref(this, &packet);
    res.throwIfError("Could not copy AVPacket:");
}

Packet::Packet(const AvPtr<AVPacket>& packet) : Packet() {
    if (packet) {
        *this = Packet(*packet);
    }
}

Packet::Packet(const Packet& other) : Packet(static_cast<const AVPacket&>(other)) {}

Packet& Packet::operator=(const Packet& other) {
    if (this != &other) {
        *this = Packet(other);
    }
    return *this;
}

Packet::Packet(Packet&& other) noexcept : Packet() {
    av_packet_move_ref(this, &other);
}

Packet& Packet::operator=(Packet&& other) noexcept {
    if (this != &other) {
        av_packet_unref(this);
        av_packet_move_ref(this, &other);
    }
    return *this;
}

Packet::~Packet() {
    av_packet_unref(this);
}

tl::expected<AvPtr<AVPacket>, AvError> Packet::makeReference() const {
    AvPtr<AVPacket> reference = makeAvPtr<AVPacket>();
    if (!reference) {
        return tl::unexpected(AvError::OutOfMemory);
    }
    const AvRes res = av_packet_ref(reference.get(), this);
    if (!res.ok) {
        return tl::unexpected(res.error);
    }
    return reference;
}

void Packet::setFlag(KeyFrame flag) noexcept {
    setBit(flags, AV_PKT_FLAG_KEY, flag == KeyFrame::Yes);
}

void Packet::setFlag(NoSignal flag) noexcept {
    setBit(flags, kNoSignalFlag, flag == NoSignal::Yes);
}

bool Packet::isKeyFrame() const noexcept {
    return (flags & AV_PKT_FLAG_KEY) != 0;
}

bool Packet::isNoSignal() const noexcept {
    return (flags & kNoSignalFlag) != 0;
}

AvRes Packet::setChapter(long first, unsigned long second, const std::string& title) {
    return ffmpeg_ext::av_side_data_set_chapter_metadata(this, first, second, title.c_str());
}

}  // namespace vidorra
