#include "encode/best_pixel_format.h"

#include <stdexcept>

#include "support/throw_text.h"

namespace vidorra {
namespace {

TEST(BestPixelFormat, NeedsAnEncoder) {
    EXPECT_THROW_TEXT(std::logic_error, "codec parameter cannot be nullptr",
                      static_cast<void>(bestPixelFormat(nullptr, AV_PIX_FMT_YUV420P)));
}

}  // namespace
}  // namespace vidorra
