#pragma once

#include "objstream/object.h"
#include "vidorra/audio/resampler.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/export.h"
#include "vidorra/encode/encoder_base.h"
#include "vidorra/filter/filter_graph.h"
#include "vidorra/picture/audio_frame.h"

namespace vidorra {

/// Encodes audio frames into packets.
///
///     objstream::object config;
///     config["codec"] = "aac";
///     config["options"]["ar"] = 48000;
///     config["options"]["ac"] = 2;
///     config["options"]["b"] = 128000;
///     AudioEncoder encoder(config);
///     encoder.sendFrame(AudioFrame(buffer, time)).throwIfError("the encoder does not take a frame");
///     while (const auto packet = encoder.receivePacket()) { ... }
///
/// The configuration needs one of the two keys of EncoderBase and may have these; others are ignored, with a
/// line in the log at level 2:
///
///     sample_fmt   the number of an AVSampleFormat; the first one in the encoder's list by default
///     options      a map of FFmpeg's options for the encoder, among them "ar", the rate, "ac", the number of
///                  channels, and "b", the bits per second; a value that is not a scalar counts as
///                  an empty text
///     filter       an FFmpeg description of filters before the encoder
///
/// One and two channels are mono and stereo, whatever layout the options give; more channels need a layout,
/// such as channel_layout "5.1". FFmpeg chooses the time base, 1 over the rate.
///
/// Frames must have the encoder's rate and channels. Samples are not collected: an encoder with a fixed
/// frame size, codecContext()->frame_size, takes frames of that size, and only the last may be shorter.
/// MediaFileWriter makes such frames; docs/RECIPES.md shows another way.
///
/// Owns: what EncoderBase owns, a filter graph and a resampler. Threads: one at a time.
class VIDORRA_API AudioEncoder : public EncoderBase {
public:
    /// Opens the encoder. Throws std::runtime_error for an encoder that is not for audio; what EncoderBase
    /// throws for the choice of the encoder, its options and its opening; what FilterGraphAudio throws for
    /// the filter; std::bad_cast for values of another kind, and objstream::bad_objstream_cast for a scalar
    /// that cannot be converted.
    explicit AudioEncoder(const objstream::object& config);
    virtual ~AudioEncoder();

    /// Encodes a frame and converts it to the encoder's sample format if necessary. A converted frame loses
    /// its metadata and side data.
    ///
    /// Returns AvError::InvalidArgument for an empty frame, and for one that reaches the encoder without
    /// samples or with other channels than the encoder's. AvError::Again means that packets must be received
    /// first. AvError::Eof means that the filter has ended, and the stream with it. AvError::OutOfMemory can
    /// also mean that 250 filtered frames are waiting. After a failure inside the filter every frame fails
    /// with the same error; see FilterGraphBase. It is a success when a frame of another rate is dropped,
    /// with a warning in the log, and when the filter keeps the frame for now. Throws as
    /// Resampler::resample() and Frame::toAvFrame() do.
    AvRes sendFrame(const AudioFrame& frame);

    /// Sends another frame that the filter has made: some filters make several frames from one, and
    /// sendFrame() sends only the first. Receive the packets first. Returns AvError::Again when there is no
    /// frame now, or no filter; AvError::Eof when the filter has ended; otherwise as sendFrame().
    AvRes sendFiltered();

    /// Tells the filter that no frame follows, and sends the first frame that it still held. Call
    /// sendFiltered() for the others, and then sendEndOfStream() to end the codec. Returns the same as
    /// sendFiltered().
    AvRes endFilter();

private:
    AvRes encode(AVFrame& frame);
    AvRes handleFilterFailure(const AvRes& res, const AudioFrame& frame);

    FilterGraphAudio mFilterGraph;
    Resampler mResampler;
};

}  // namespace vidorra
