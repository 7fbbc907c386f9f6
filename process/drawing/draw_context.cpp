#include "process/drawing/draw_context.h"

#include <cstdint>
#include <stdexcept>

#include "vidorra/core/enum_text.h"
#include "vidorra/core/format.h"

namespace vidorra {

FFDrawContext initDrawContext(AVPixelFormat format, bool fullRange) {
    FFDrawContext context;
    const unsigned flags = ffmpeg_ext::kDrawProcessAlpha | (fullRange ? ffmpeg_ext::kDrawFullRange : 0U);
    if (ffmpeg_ext::ff_draw_init(&context, format, flags) < 0) {
        throw std::runtime_error(fmt::format("Drawing is not supported for {}", to_string(format)));
    }
    return context;
}

FFDrawColor initDrawColor(const FFDrawContext& context, Color color) {
    const std::uint8_t rgba[4] = {color.red, color.green, color.blue, color.alpha};
    FFDrawColor result;
    ffmpeg_ext::ff_draw_color(&context, &result, rgba);
    return result;
}

}  // namespace vidorra
