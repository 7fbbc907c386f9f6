#pragma once

#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/frame.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// A frame with a picture, and the place of that picture on a larger canvas. Copying one costs four reference
/// counts and the metadata; pixels are not touched.
class VIDORRA_API VideoFrame : public Frame {
public:
    /// Empty, with a null time stamp.
    VideoFrame();

    /// Shares the pixels of the picture.
    VideoFrame(const Picture& picture, const Timestamp& timestamp, FrameFlags flags);
    /// Takes the buffers of the picture.
    VideoFrame(Picture&& picture, const Timestamp& timestamp, FrameFlags flags);

    VideoFrame(const VideoFrame& other) = default;
    VideoFrame(VideoFrame&& other) = default;
    VideoFrame& operator=(const VideoFrame& other) = default;
    VideoFrame& operator=(VideoFrame&& other) = default;
    ~VideoFrame() override;

    [[nodiscard]] const Picture& picture() const noexcept { return mPicture; }
    [[nodiscard]] Picture& picture() noexcept { return mPicture; }

    /// Of the picture's top left pixel, (0, 0) unless an overlay operation has set it.
    [[nodiscard]] Point position() const noexcept { return mPosition; }
    void setPosition(Point position) noexcept { mPosition = position; }

    void fillAVFrame(AVFrame* frame) const override;
    [[nodiscard]] bool empty() const override;
    /// "video frame 1920x1080, nv12 (tv), pts 1.000000, flags none".
    [[nodiscard]] std::string debugDescription() const override;
    [[nodiscard]] bool isAudio() const override;
    [[nodiscard]] bool isVideo() const override;

    /// "none", or the names of the flags joined by "+", with the flags that have no name as one hexadecimal
    /// number.
    [[nodiscard]] std::string debugDescriptionOfFlags() const;

private:
    Picture mPicture;
    Point mPosition;
};

}  // namespace vidorra
