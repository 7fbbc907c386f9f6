#include "vidorra/picture/default_picture_allocator.h"

#include "picture/line_alignment.h"

namespace vidorra {

PictureAllocator* getDefaultPictureAllocator() {
    class DefaultPictureAllocator : public PictureAllocator {
    public:
        Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override {
            return Picture(size, format, range, kLineAlignment);
        }
    };
    static DefaultPictureAllocator allocator;
    return &allocator;
}

}  // namespace vidorra
