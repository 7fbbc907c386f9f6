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
    /// Takes over the buffers of the picture.
    VideoFrame(Picture&& picture, const Timestamp& timestamp, FrameFlags flags);

    VideoFrame(const VideoFrame& other) = default;
    VideoFrame(VideoFrame&& other) = default;
    VideoFrame& operator=(const VideoFrame& other) = default;
    VideoFrame& operator=(VideoFrame&& other) = default;
    ~VideoFrame() override;

    [[nodiscard]] const Picture& picture() const noexcept { return mPicture; }
    [[nodiscard]] Picture& picture() noexcept { return mPicture; }

    /// The position of the picture's top left pixel, (0, 0) unless it was set.
    [[nodiscard]] Point position() const noexcept { return mPosition; }
    void setPosition(Point position) noexcept { mPosition = position; }

    /// A view of the part that `rect`, in canvas coordinates, and this frame have in common. It has the time
    /// stamp, flags and metadata of this frame but not its side data, and the position of the part on the
    /// canvas. No pixel is copied. The part's position within the picture and its size are rounded down as
    /// in Picture::crop(). With subsampled chroma the part can therefore begin up to a chroma sample before
    /// `rect`, and a part of a single row or column becomes 0 by 0, though it is not empty(). A rectangle
    /// without a common pixel gives an empty frame with a null time stamp. Throws std::invalid_argument when
    /// the format has no descriptor and the part is not the whole.
    [[nodiscard]] VideoFrame crop(const Rect& rect) const;

    /// The parts outside `rect`, cut by crop(): those above and below it in the full width of this frame,
    /// those left and right of it in its height. The order is top, left, right, bottom; empty parts are left
    /// out. Returns nothing when `rect` covers the frame. Also returns nothing when `rect` has no pixel in
    /// common with the frame, although the whole frame is then outside: check that first. Throws as crop().
    [[nodiscard]] std::vector<VideoFrame> subtract(const Rect& rect) const;

    void fillAVFrame(AVFrame* frame) const override;
    [[nodiscard]] bool empty() const override;
    /// "video frame 1920x1080, nv12 (tv), pts 1.000000, flags none".
    [[nodiscard]] std::string debugDescription() const override;
    [[nodiscard]] bool isAudio() const override;
    [[nodiscard]] bool isVideo() const override;

    /// "none", or the names of the flags joined by "+"; flags without a name are shown as one hexadecimal
    /// number.
    [[nodiscard]] std::string debugDescriptionOfFlags() const;

private:
    Picture mPicture;
    Point mPosition;
};

}  // namespace vidorra
