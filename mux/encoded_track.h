#pragma once

#include <string>

#include "mux/writer_track.h"
#include "objstream/object.h"
#include "vidorra/core/av_res.h"
#include "vidorra/encode/encoder_base.h"

namespace vidorra {

/// What the files ask of encoders.
struct EncoderNeeds {
    /// The codec's parameters once for all, and not with each key frame.
    bool globalHeader;
    /// Groups of pictures that refer to nothing outside of them.
    bool closedGroups;
};

/// The configuration of an encoder with the flags that the files need.
objstream::object withNeeds(const objstream::object& config, const EncoderNeeds& needs);

/// A track with an encoder, which its derived class has.
class EncodedTrack : public WriterTrack {
public:
    EncodedTrack(std::size_t number, EncoderBase& encoder, Take take);

    void describe(AVStream& stream, const Timestamp& start) const override;

protected:
    /// Whether a frame was sent; not when a filter has none. Throws TrackFailure.
    [[nodiscard]] bool wasSent(const AvRes& res) const;

    /// Takes all packets that the encoder has ready.
    void receive();

    /// Ends the filter and the encoder, and takes all packets.
    template <class Encoder>
    void endEncoder(Encoder& encoder) {
        for (AvRes sent = encoder.endFilter(); wasSent(sent); sent = encoder.sendFiltered()) {
            receive();
        }
        static_cast<void>(wasSent(encoder.sendEndOfStream()));
        receive();
    }

    /// What to do with a packet of the encoder.
    virtual void received(Packet packet) = 0;

private:
    EncoderBase& mEncoder;
};

}  // namespace vidorra
