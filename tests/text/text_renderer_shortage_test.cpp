// A heap in which any single allocation can fail, and one that is measured.
#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "support/failing_heap.h"
#include "text/drawn.h"
#include "text/fonts.h"
#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra::test {
namespace {

struct Font {
    const char* name;
    std::string file;
    int size;
};

// A character beyond 16 bits, one that no font has, kerning, lines, and more than fits into a short string.
const std::string kText = "Quick AV \xf0\x9f\x98\x80 \xf0\x90\x80\x80\nTo\xc3\xa4 fi abc";
const std::string kOther = "fi \xf0\x9f\x98\x80 other?";

class TextShortage : public testing::TestWithParam<Font> {
protected:
    static Drawn drawnText(FreeTypeTextRenderer& renderer, const std::string& text) {
        return drawn(renderer.render(text, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {}));
    }

    // Lets each allocation of `call` fail in turn, until it makes no more; calls `check` after each. Returns
    // how many failed.
    static long failEach(const std::function<void()>& prepare, const std::function<void()>& call,
                         const std::function<void(bool thrown)>& check) {
        for (long succeeding = 0;; ++succeeding) {
            prepare();
            bool thrown = false;
            bool failed = false;
            {
                const FailingHeap heap(succeeding);
                try {
                    call();
                } catch (const std::bad_alloc&) {
                    thrown = true;
                } catch (const std::runtime_error&) {
                    thrown = true;
                }
                failed = heap.hasFailed();
            }
            check(thrown);
            if (!failed || testing::Test::HasFailure()) {
                return succeeding;
            }
        }
    }
};

TEST_P(TextShortage, AFontOpensAsItShouldOrNotAtAll) {
    const Font& font = GetParam();
    FreeTypeTextRenderer reference(font.file, font.size);
    const Drawn expected = drawnText(reference, kText + "\t.");
    std::unique_ptr<FreeTypeTextRenderer> renderer;
    const long failures =
        failEach([&] { renderer.reset(); },
                 [&] { renderer = std::make_unique<FreeTypeTextRenderer>(font.file, font.size); },
                 [&](bool thrown) {
                     EXPECT_EQ(thrown, renderer == nullptr);
                     if (renderer != nullptr) {
                         EXPECT_EQ(drawnText(*renderer, kText + "\t."), expected);
                     }
                 });
    EXPECT_GT(failures, 50);
}

TEST_P(TextShortage, ATextIsDrawnAsItShouldOnceThereIsMemoryAgain) {
    const Font& font = GetParam();
    FreeTypeTextRenderer reference(font.file, font.size);
    const Drawn expected = drawnText(reference, kText);
    const Drawn other = drawnText(reference, kOther);
    std::unique_ptr<FreeTypeTextRenderer> renderer;
    const long failures =
        failEach([&] { renderer = std::make_unique<FreeTypeTextRenderer>(font.file, font.size); },
                 [&] {
                     EXPECT_EQ(renderer->getTextSize(kText, AV_PIX_FMT_GRAY8).height,
                               static_cast<int>(expected.size()));
                 },
                 [&](bool) {
                     EXPECT_EQ(drawnText(*renderer, kText), expected);
                     EXPECT_EQ(drawnText(*renderer, kOther), other);
                 });
    EXPECT_GT(failures, 10);
}

TEST_P(TextShortage, APictureIsMadeOrTheFailureReported) {
    const Font& font = GetParam();
    FreeTypeTextRenderer renderer(font.file, font.size);
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    const auto render = [&] { return renderer.render(kText, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, {}, {}); };
    const Drawn expected = drawn(render());
    Picture result;
    const long failures = failEach([&] { result = Picture(); }, [&] { result = render(); },
                                   [&](bool thrown) {
                                       EXPECT_EQ(thrown, result.empty());
                                       if (!thrown) {
                                           EXPECT_EQ(drawn(result), expected);
                                       }
                                   });
    EXPECT_GT(failures, 3);
}

INSTANTIATE_TEST_SUITE_P(Fonts, TextShortage,
                         testing::Values(Font{"sans", kSans, 40}, Font{"cff", kCff, 31},
                                         Font{"bitmap", kBitmap, 16}, Font{"bdf", plainFont(), 8}),
                         [](const auto& row) { return std::string(row.param.name); });

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST(TextMemory, AllCharactersOneAfterTheOtherTakeNoMoreThanTheGlyphsMay) {
    FreeTypeTextRenderer renderer(kSans, 96);
    const std::size_t before = heapInUse();
    std::size_t most = 0;
    for (char32_t code = 0; code < 0x110000; ++code) {
        renderer.loadGlyph(code);
        if (code % 16 == 0) {
            most = std::max(most, heapInUse() - before);
        }
    }
    // The bound is needed: all glyphs together take more.
    EXPECT_GT(most, std::size_t{15} << 20);
    EXPECT_LT(most, std::size_t{17} << 20);
}

TEST(TextMemory, TheGlyphsTakeNoMoreThanIsSet) {
    FreeTypeTextRenderer renderer(kSans, 96);
    renderer.setGlyphCacheSize(std::size_t{2} << 20);
    const std::size_t before = heapInUse();
    for (char32_t code = 0; code < 0x800; ++code) {
        renderer.loadGlyph(code);
    }
    EXPECT_LT(heapInUse() - before, std::size_t{3} << 20);
}

TEST(TextMemory, WhatAVeryLongTextTookIsGivenBack) {
    FreeTypeTextRenderer renderer(kSans, 20);
    renderer.prepare("short");
    const std::size_t before = heapInUse();
    renderer.prepare(std::string(1000000, 'x'));
    EXPECT_GT(heapInUse() - before, std::size_t{20} << 20);
    renderer.prepare("short");
    EXPECT_LT(heapInUse() - before, std::size_t{1} << 20);
}

}  // namespace
}  // namespace vidorra::test
