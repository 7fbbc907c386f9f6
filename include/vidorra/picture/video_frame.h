#pragma once

#include <string>
#include <vector>

#include "vidorra/core/export.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/frame.h"
#include "vidorra/picture/picture.h"

namespace vidorra {

/// A frame with a picture, and the place of that picture on a larger canvas. Copying one costs four reference
/// counts and the metadata; pixels are not touched.
///
///     VideoFrame overlay(logo, Timestamp(), Frame::NoFlags);
///     overlay.setPosition(Point{1500, 60});
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

    /// A view of the part that `rect`, in coordinates of the canvas, and this frame have in common, with time
    /// stamp, flags and metadata of this frame but without its side data, at the place that the part has on
    /// the canvas. No pixel is copied. The part's place within the picture and its size are rounded down as
    /// by Picture::crop(), where the format has subsampled chroma to whole chroma samples: it can begin up to
    /// a sample before `rect`, and a part of a single row or column becomes 0 by 0, though not empty(). A
    /// rectangle that has no pixel in common gives an empty frame with a null time stamp. Throws
    /// std::invalid_argument when the format has no descriptor and the part is not the whole.
    [[nodiscard]] VideoFrame crop(const Rect& rect) const;

    /// The parts outside of `rect`, as by crop(): above it and below it in the full width of this frame, left
    /// and right of it in its height. They come in the order top, left, right, bottom, without those that
    /// would be empty. Nothing when `rect` covers all; and nothing either when it has no pixel in common with
    /// this frame, which would stay whole, so find that out before. Throws as crop().
    [[nodiscard]] std::vector<VideoFrame> subtract(const Rect& rect) const;

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
