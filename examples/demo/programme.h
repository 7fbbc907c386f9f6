#pragma once

#include <optional>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

#include "accelerator.h"

namespace demo {

/// Composes the pictures of the demonstration's programme: the played picture in the programme's size, and
/// on it a stack of windows, a moving half-transparent plate, a title that fades in, and the timecode.
///
/// Its pictures are full-range NV12.
class Programme {
public:
    static constexpr AVPixelFormat kFormat = AV_PIX_FMT_NV12;
    static constexpr AVColorRange kRange = AVCOL_RANGE_JPEG;

    /// Without a font there are no texts. The accelerator may be null and must otherwise outlive this object
    /// and its pictures; it then scales and composes, in its memory.
    Programme(vidorra::Size size, const std::string& font, Accelerator* accelerator);

    /// The picture that replaces the programme while the signal is lost.
    [[nodiscard]] const vidorra::Picture& black() const { return mBlack; }

    /// The programme so many seconds after its start.
    [[nodiscard]] vidorra::Picture compose(const vidorra::Picture& played, double seconds,
                                           const std::string& timecode);

private:
    [[nodiscard]] vidorra::Picture onCanvas(const vidorra::Picture& picture);
    void draw(vidorra::Picture& canvas, const vidorra::Picture& overlay, vidorra::Point place) const;
    void drawTexts(vidorra::Picture& canvas, double seconds, const std::string& timecode);

    vidorra::Size mSize;
    Accelerator* mAccelerator;
    vidorra::PictureAllocator& mAllocator;
    vidorra::Scaler mScaler;
    vidorra::Scaler mInterleaver;
    vidorra::Picture mBlack;
    vidorra::Picture mPlate;
    // Windows that overlap, cut so that no pixel is drawn twice.
    std::vector<vidorra::VideoFrame> mWindows;
    std::optional<vidorra::FreeTypeTextRenderer> mTitle;
    std::optional<vidorra::FreeTypeTextRenderer> mTimecode;
};

}  // namespace demo
