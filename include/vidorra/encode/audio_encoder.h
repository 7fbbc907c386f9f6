#pragma once

#include "objstream/object.h"
#include "vidorra/audio/resampler.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/export.h"
#include "vidorra/encode/encoder_base.h"
#include "vidorra/filter/filter_graph.h"
#include "vidorra/picture/audio_frame.h"

namespace vidorra {

/// Makes packets of audio frames.
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
/// Besides the two keys of EncoderBase, of which one is needed, the configuration may have these; others are
/// ignored, with a line in the log at level 2:
///
///     sample_fmt   the number of an AVSampleFormat; unless told, the first one that the encoder lists
///     options      a map of FFmpeg's options for the encoder, among them "ar", the rate, "ac", the number of
///                  channels, and "b", the bits per second; what is no scalar counts as an empty text
///     filter       a description of FFmpeg for filters in front of the encoder
///
/// One and two channels are mono and stereo, whatever layout the options say; more need one of their own,
/// such as channel_layout "5.1". The time base is that which FFmpeg chooses, 1 over the rate.
///
/// Frames are of the encoder's rate and channels. Nothing collects samples: an encoder with a frame size of
/// its own, codecContext()->frame_size, takes frames of that size, and a shorter one as its last.
/// MediaFileWriter makes them; docs/RECIPES.md tells how else.
///
/// Owns: what EncoderBase owns, a filter graph and a resampler. Threads: one at a time.
class VIDORRA_API AudioEncoder : public EncoderBase {
public:
    /// Opens the encoder. Throws std::runtime_error for an encoder that is not of audio; as EncoderBase does
    /// for the choice of the encoder, its options and its opening; as FilterGraphAudio does for the filter;
    /// std::bad_cast for values of another kind, which is objstream::bad_objstream_cast for a scalar that
    /// does not convert.
    explicit AudioEncoder(const objstream::object& config);
    virtual ~AudioEncoder();

    /// Encodes a frame, in the encoder's sample format after a conversion if need be. A converted frame loses
    /// its metadata and side data.
    ///
    /// AvError::InvalidArgument refuses an empty frame, and what reaches the encoder without samples or in
    /// other channels than the encoder's. AvError::Again asks to receive packets first. AvError::Eof says
    /// that the filter has ended, and the stream with it, AvError::OutOfMemory also that 250 filtered frames
    /// wait. After a failure inside the filter every frame fails with the same error; see FilterGraphBase. A
    /// frame of another rate is dropped with a warning in the log and counts as a success, and so does a
    /// frame that the filter keeps for now. Throws as Resampler::resample() and Frame::toAvFrame() do.
    AvRes sendFrame(const AudioFrame& frame);

    /// Sends one more of the frames that the filter has made of those that it got: some filters make several
    /// of one, and sendFrame() sends the first. Receive the packets first. AvError::Again when there is none
    /// for now, also without a filter; AvError::Eof when the filter has ended; otherwise as sendFrame().
    AvRes sendFiltered();

    /// Tells the filter that no frame follows, and sends the first of those that it still held.
    /// sendFiltered() sends the others, and sendEndOfStream() then ends the codec. Results as of
    /// sendFiltered().
    AvRes endFilter();

private:
    AvRes encode(AVFrame& frame);
    AvRes handleFilterFailure(const AvRes& res, const AudioFrame& frame);

    FilterGraphAudio mFilterGraph;
    Resampler mResampler;
};

}  // namespace vidorra
