#pragma once

#include <cstddef>
#include <memory>

#include "mux/encoded_track.h"
#include "objstream/object.h"

struct AVCodecParameters;

namespace vidorra {

/// The kinds of tracks. Each throws as the constructor of its encoder.
std::unique_ptr<WriterTrack> makeVideoTrack(const objstream::object& config, const EncoderNeeds& needs,
                                            std::size_t number, WriterTrack::Take take);
std::unique_ptr<WriterTrack> makeAudioTrack(const objstream::object& config, const EncoderNeeds& needs,
                                            std::size_t number, WriterTrack::Take take);
/// Throws std::invalid_argument for parameters without a codec and a time base that is not positive.
std::unique_ptr<WriterTrack> makePacketTrack(const AVCodecParameters& parameters, Timebase timebase,
                                             std::size_t number, WriterTrack::Take take);

}  // namespace vidorra
