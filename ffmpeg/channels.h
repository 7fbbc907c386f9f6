#pragma once

#include <cstdint>
#include <string>

struct AVCodecContext;
struct AVCodecParameters;
struct AVFilterLink;
struct AVFrame;

/// The channels of audio, whether FFmpeg stores them as a mask and a number or as a layout.
namespace vidorra::ffmpeg_ext {

/// The channel mask of an audio stream, codec, frame or link between filters, 0 when it has none.
std::uint64_t channelMask(const AVCodecParameters& parameters);
std::uint64_t channelMask(const AVCodecContext& context);
std::uint64_t channelMask(const AVFrame& frame);
std::uint64_t channelMask(const AVFilterLink& link);

/// The number of channels of an audio stream, codec or frame, which can be known without a mask.
int channelCount(const AVCodecParameters& parameters);
int channelCount(const AVCodecContext& context);
int channelCount(const AVFrame& frame);

/// Sets the mask and the number of channels. A mask of 0 changes neither.
void setChannelMask(AVCodecParameters& parameters, std::uint64_t mask);
void setChannelMask(AVCodecContext& context, std::uint64_t mask);
void setChannelMask(AVFrame& frame, std::uint64_t mask);

/// Sets a number of channels and removes the mask.
void setChannelCount(AVCodecContext& context, int count);

/// Whether two audio streams have the same channels in the same order.
bool sameChannels(const AVCodecParameters& a, const AVCodecParameters& b);

/// FFmpeg's text for a mask, such as "stereo"; "0 channels" for 0.
std::string describeChannelMask(std::uint64_t mask);

/// The usual mask for a number of channels, the same with every FFmpeg version; 0 when there is none.
std::uint64_t defaultChannelMask(int channels);

/// The mask for FFmpeg's name of a channel or a layout; 0 for an unknown name. Throws std::bad_alloc.
std::uint64_t channelMaskFromName(const std::string& name);

}  // namespace vidorra::ffmpeg_ext
