#include "support/counted_marks.h"

struct AVBufferRef;

namespace vidorra::test {

int& modificationMarks() {
    static int marks = 0;
    return marks;
}

}  // namespace vidorra::test

// The linker replaces vidorra::ffmpeg_ext::av_buffer_set_modified with this.
extern "C" void __wrap__ZN7vidorra10ffmpeg_ext22av_buffer_set_modifiedEP11AVBufferRef(AVBufferRef* /*ref*/) {
    ++vidorra::test::modificationMarks();
}
