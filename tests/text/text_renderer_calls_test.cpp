// When FreeType's functions are called, and what happens when they fail: the linker redirects the library's
// calls to the functions below. Memory is counted below both operator new and FFmpeg's functions.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_GLYPH_H
#include FT_MODULE_H

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/counted_marks.h"
#include "support/throw_text.h"
#include "text/drawn.h"
#include "text/fonts.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/text/freetype_text_renderer.h"

namespace {

std::atomic<long> gAllocations{0};

std::vector<std::string> gCalls;
// Replaces FreeType's kerning, in 64ths of a pixel.
std::optional<long> gKerning;
// Calls of a name that fail.
std::function<bool(const std::string& name, unsigned long argument)> gFails;

// Changes what FreeType has put into a font's slot.
std::function<void(FT_Face)> gAfterLoading;

bool fails(const std::string& name, unsigned long argument = 0) {
    gCalls.push_back(name);
    return gFails && gFails(name, argument);
}

}  // namespace

// Seen by the shared libraries too.
#pragma GCC visibility push(default)

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers replace the heap functions and report their calls.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));
namespace {
const int kHooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++gAllocations; }, [](const volatile void*) {});
}  // namespace

#else

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
    ++gAllocations;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    ++gAllocations;
    return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
    ++gAllocations;
    return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    ++gAllocations;
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    ++gAllocations;
    *memory = __libc_memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}
}

#endif

// A function of FreeType that gives an error code, and fails when told to.
#define VIDORRA_WRAP(name, argument, parameters, ...)                                         \
    extern "C" decltype(name) __real_##name;                                                  \
    extern "C" decltype(name) __wrap_##name;                                                  \
    FT_Error __wrap_##name parameters {                                                       \
        return fails(#name, argument) ? FT_Err_Invalid_Argument : __real_##name(__VA_ARGS__); \
    }

VIDORRA_WRAP(FT_New_Library, 0, (FT_Memory memory, FT_Library* library), memory, library)
VIDORRA_WRAP(FT_New_Memory_Face, static_cast<unsigned long>(size),
             (FT_Library library, const FT_Byte* base, FT_Long size, FT_Long index, FT_Face* face), library,
             base, size, index, face)
VIDORRA_WRAP(FT_Select_Charmap, static_cast<unsigned long>(encoding), (FT_Face face, FT_Encoding encoding),
             face, encoding)
VIDORRA_WRAP(FT_Set_Pixel_Sizes, width * 1000 + height, (FT_Face face, FT_UInt width, FT_UInt height), face,
             width, height)
VIDORRA_WRAP(FT_Get_Glyph, 0, (FT_GlyphSlot slot, FT_Glyph* glyph), slot, glyph)
VIDORRA_WRAP(FT_Done_Face, 0, (FT_Face face), face)
VIDORRA_WRAP(FT_Done_Library, 0, (FT_Library library), library)

extern "C" {
decltype(FT_Load_Char) __real_FT_Load_Char;
decltype(FT_Load_Char) __wrap_FT_Load_Char;
FT_Error __wrap_FT_Load_Char(FT_Face face, FT_ULong code, FT_Int32 flags) {
    if (fails("FT_Load_Char", code)) {
        return FT_Err_Invalid_Argument;
    }
    const FT_Error result = __real_FT_Load_Char(face, code, flags);
    if (gAfterLoading) {
        gAfterLoading(face);
    }
    return result;
}
decltype(FT_Get_Kerning) __real_FT_Get_Kerning;
decltype(FT_Get_Kerning) __wrap_FT_Get_Kerning;
FT_Error __wrap_FT_Get_Kerning(FT_Face face, FT_UInt left, FT_UInt right, FT_UInt mode, FT_Vector* kerning) {
    if (fails("FT_Get_Kerning", mode)) {
        return FT_Err_Invalid_Argument;
    }
    const FT_Error result = __real_FT_Get_Kerning(face, left, right, mode, kerning);
    kerning->x = gKerning.value_or(kerning->x);
    return result;
}
decltype(FT_Get_Char_Index) __real_FT_Get_Char_Index;
decltype(FT_Get_Char_Index) __wrap_FT_Get_Char_Index;
FT_UInt __wrap_FT_Get_Char_Index(FT_Face face, FT_ULong code) {
    static_cast<void>(fails("FT_Get_Char_Index", code));
    return __real_FT_Get_Char_Index(face, code);
}
decltype(FT_Glyph_Get_CBox) __real_FT_Glyph_Get_CBox;
decltype(FT_Glyph_Get_CBox) __wrap_FT_Glyph_Get_CBox;
void __wrap_FT_Glyph_Get_CBox(FT_Glyph glyph, FT_UInt mode, FT_BBox* box) {
    static_cast<void>(fails("FT_Glyph_Get_CBox", mode));
    __real_FT_Glyph_Get_CBox(glyph, mode, box);
}
decltype(FT_Done_Glyph) __real_FT_Done_Glyph;
decltype(FT_Done_Glyph) __wrap_FT_Done_Glyph;
void __wrap_FT_Done_Glyph(FT_Glyph glyph) {
    static_cast<void>(fails("FT_Done_Glyph"));
    __real_FT_Done_Glyph(glyph);
}
}

#pragma GCC visibility pop

namespace vidorra::test {
namespace {

using Calls = std::vector<std::string>;

class TextCalls : public testing::Test {
protected:
    TextCalls() { gCalls.clear(); }
    ~TextCalls() override {
        gFails = nullptr;
        gKerning.reset();
        gAfterLoading = nullptr;
    }

    static void failAt(const std::string& name) {
        gFails = [name](const std::string& called, unsigned long) { return called == name; };
    }
    static void failAtCharacter(const std::string& characters) {
        gFails = [characters](const std::string& called, unsigned long code) {
            return called == "FT_Load_Char" && characters.find(static_cast<char>(code)) != std::string::npos;
        };
    }
};

TEST_F(TextCalls, ALineThatWasLaidOutIsDrawnWithoutMemoryAndFreeType) {
    // 40 characters.
    const std::string text = "The quick brown fox jumps over lazy dogs";
    ASSERT_EQ(text.size(), 40U);
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, NVA12, AV_PIX_FMT_YUVA420P,
                                       AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24, AV_PIX_FMT_YUV420P10LE}) {
        for (const Color background : {Color(0, 0, 0, 0), Color(0, 0, 0)}) {
            FreeTypeTextRenderer renderer(kSans, 48);
            renderer.setBackgroundColor(background);
            Picture picture(Size{1920, 1080}, format, AVCOL_RANGE_MPEG, 32);
            const long before = gAllocations;
            // FFmpeg's reference counts are memory as well.
            ASSERT_FALSE(Picture(picture).empty());
            EXPECT_GT(gAllocations - before, 0) << format;
            gCalls.clear();
            renderer.renderOn(picture, text, {}, {});
            EXPECT_GT(gAllocations - before, 40) << format;
            EXPECT_GT(gCalls.size(), 40U) << format;
            gCalls.clear();
            const long between = gAllocations;
            renderer.setFontColor(Color(1, 2, 3));
            renderer.renderOn(picture, text, {}, {});
            renderer.renderOn(picture, text, {16, 4}, {8, 2, 700, 40});
            EXPECT_EQ(renderer.getTextSize(text, format).height % 2, 0);
            EXPECT_EQ(gAllocations - between, 0) << format;
            EXPECT_EQ(gCalls, Calls{}) << format;
        }
    }
}

TEST_F(TextCalls, TheFontIsOpenedInThisOrderAndTheBlankIsLoaded) {
    std::vector<unsigned long> arguments;
    gFails = [&](const std::string& name, unsigned long argument) {
        if (name == "FT_Select_Charmap" || name == "FT_Set_Pixel_Sizes" || name == "FT_Load_Char" ||
            name == "FT_Glyph_Get_CBox") {
            arguments.push_back(argument);
        }
        return false;
    };
    const FreeTypeTextRenderer renderer(kSans, 21);
    EXPECT_EQ(gCalls,
              (Calls{"FT_New_Library", "FT_New_Memory_Face", "FT_Select_Charmap", "FT_Set_Pixel_Sizes",
                     "FT_Get_Char_Index", "FT_Load_Char", "FT_Get_Glyph", "FT_Glyph_Get_CBox"}));
    EXPECT_EQ(arguments, (std::vector<unsigned long>{FT_ENCODING_UNICODE, 21000, ' ', 2}));
}

TEST_F(TextCalls, EachGlyphIsLoadedOnce) {
    FreeTypeTextRenderer renderer(kMono, 21);
    gCalls.clear();
    renderer.prepare("aab a\nb");
    const auto count = [](const std::string& name) { return std::count(gCalls.begin(), gCalls.end(), name); };
    EXPECT_EQ(count("FT_Load_Char"), 2);
    renderer.prepare("ba");
    renderer.loadGlyph(U'a');
    EXPECT_EQ(count("FT_Load_Char"), 2);
    renderer.loadGlyph(U'c');
    renderer.prepare("c");
    EXPECT_EQ(count("FT_Load_Char"), 3);
}

TEST_F(TextCalls, AllCharactersThatTheFontLacksShareOneGlyph) {
    FreeTypeTextRenderer renderer(kMono, 21);
    gCalls.clear();
    const auto loaded = [&] { return std::count(gCalls.begin(), gCalls.end(), "FT_Load_Char"); };
    // Linear B, and values that are not characters.
    for (const char32_t code : {0x10000, 0x10001, 0x10002, 0x110000, -1}) {
        renderer.loadGlyph(code);
    }
    renderer.prepare("\xf0\x90\x80\x80\xf0\x90\x80\x83");
    EXPECT_EQ(loaded(), 1);
    EXPECT_EQ(std::count(gCalls.begin(), gCalls.end(), "FT_Get_Glyph"), 1);
}

TEST_F(TextCalls, GlyphsThatTheTextDoesNotShowMakeRoomForOthers) {
    FreeTypeTextRenderer renderer(kMono, 21);
    const auto loads = [&](const std::string& text) {
        gCalls.clear();
        renderer.prepare(text);
        return std::count(gCalls.begin(), gCalls.end(), "FT_Load_Char");
    };
    const auto released = [] { return std::count(gCalls.begin(), gCalls.end(), "FT_Done_Glyph"); };
    EXPECT_EQ(loads("abc"), 3);
    gCalls.clear();
    renderer.setGlyphCacheSize(1);
    // The blank, which the font was opened with.
    EXPECT_EQ(released(), 1);
    gCalls.clear();
    renderer.loadGlyph(U'd');
    EXPECT_EQ(released(), 0);
    EXPECT_EQ(loads("bcd"), 0);
    // By the text that shows others than the last.
    EXPECT_EQ(released(), 1);
    EXPECT_EQ(loads("bcda"), 1);
    EXPECT_EQ(released(), 0);
    EXPECT_EQ(loads(""), 0);
    EXPECT_EQ(released(), 4);
    renderer.setGlyphCacheSize(1 << 20);
    EXPECT_EQ(loads("abcd"), 4);
    EXPECT_EQ(loads("x"), 1);
    EXPECT_EQ(loads("abcd"), 0);
    EXPECT_EQ(released(), 0);
}

TEST_F(TextCalls, TheSameTextIsLaidOutAgainAfterAChangeOfItsGeometryOnly) {
    FreeTypeTextRenderer renderer(kSans, 21);
    const auto layOuts = [&](const auto& change) {
        change();
        gCalls.clear();
        renderer.prepare("AV");
        return std::count(gCalls.begin(), gCalls.end(), "FT_Get_Kerning");
    };
    EXPECT_EQ(layOuts([] {}), 1);
    EXPECT_EQ(layOuts([] {}), 0);
    EXPECT_EQ(layOuts([&] { renderer.setLineSpacing(0); }), 1);
    EXPECT_EQ(layOuts([&] { renderer.setPadding(0, 0, 0, 0); }), 1);
    EXPECT_EQ(layOuts([&] { renderer.setFontColor(Color(1, 2, 3)); }), 0);
    EXPECT_EQ(layOuts([&] { renderer.setBackgroundColor(Color(1, 2, 3)); }), 0);
    EXPECT_EQ(layOuts([&] { renderer.setPictureAllocator(nullptr); }), 0);
    EXPECT_EQ(layOuts([&] { renderer.prepare("A"); }), 1);
}

TEST_F(TextCalls, ATextOfNegativeHeightIsLaidOutEachTime) {
    FreeTypeTextRenderer renderer(kSans, 21);
    renderer.setLineSpacing(-100);
    for (int round = 0; round < 2; ++round) {
        gCalls.clear();
        renderer.prepare("AV\n\n");
        EXPECT_EQ(std::count(gCalls.begin(), gCalls.end(), "FT_Get_Kerning"), 1) << round;
    }
}

TEST_F(TextCalls, KerningIsAskedForBetweenGlyphsOfTheFontOnly) {
    FreeTypeTextRenderer renderer(kSans, 21);
    const auto asked = [&](const std::string& text) {
        gCalls.clear();
        renderer.prepare(text);
        return std::count(gCalls.begin(), gCalls.end(), "FT_Get_Kerning");
    };
    EXPECT_EQ(asked("AVA"), 2);
    EXPECT_EQ(asked("A\rV"), 1);
    EXPECT_EQ(asked("A\tV"), 0);
    EXPECT_EQ(asked("A\nV"), 0);
    EXPECT_EQ(asked("A\xf0\x90\x80\x80V"), 0);
    FreeTypeTextRenderer bitmap(plainFont(), 8);
    gCalls.clear();
    bitmap.prepare("ab");
    EXPECT_EQ(std::count(gCalls.begin(), gCalls.end(), "FT_Get_Kerning"), 0);
}

TEST_F(TextCalls, AFailureToAnswerAboutKerningMeansNone) {
    FreeTypeTextRenderer renderer(kSans, 60);
    failAt("FT_Get_Kerning");
    const int apart = renderer.getTextSize("AV", AV_PIX_FMT_GRAY8).width;
    gFails = nullptr;
    renderer.setLineSpacing(0);
    EXPECT_LT(renderer.getTextSize("AV", AV_PIX_FMT_GRAY8).width, apart);
}

TEST_F(TextCalls, PartsOfAPixelOfKerningAreRoundedDown) {
    FreeTypeTextRenderer renderer(kSans, 60);
    gKerning = 0;
    const int width = renderer.getTextSize("ababa", AV_PIX_FMT_GRAY8).width;
    for (const auto& [kerning, change] : {std::pair{63L, 0}, {64L, 4}, {-1L, -4}, {-64L, -4}, {-65L, -8}}) {
        gKerning = kerning;
        renderer.setLineSpacing(0);
        EXPECT_EQ(renderer.getTextSize("ababa", AV_PIX_FMT_GRAY8).width, width + change) << kerning;
    }
}

TEST_F(TextCalls, PartsOfAPixelOfAnAdvanceAreCutOff) {
    struct Row {
        FT_Pos advance;
        // Of four letters and of a tab.
        int letters;
        int tab;
    };
    for (const Row& row : {Row{5 * 64, 20, 20}, Row{5 * 64 + 63, 20, 20}, Row{63, 0, 0}, Row{64, 4, 4}}) {
        gAfterLoading = [&](FT_Face face) { face->glyph->advance.x = row.advance; };
        FreeTypeTextRenderer renderer(plainFont(), 8);
        EXPECT_EQ(renderer.getTextSize("aaaa", AV_PIX_FMT_GRAY8).width, row.letters) << row.advance;
        EXPECT_EQ(renderer.getTextSize("\t", AV_PIX_FMT_GRAY8).width, row.tab) << row.advance;
    }
    // Towards zero, even when the pen moves left.
    gAfterLoading = [](FT_Face face) { face->glyph->advance.x = face->glyph->bitmap.width == 4 ? -65 : 320; };
    FreeTypeTextRenderer renderer(plainFont(), 8);
    EXPECT_EQ(renderer.getTextSize("aabb", AV_PIX_FMT_GRAY8).width, 8);
}

TEST_F(TextCalls, PartsOfAPixelOfAscenderAndDescenderAreCutOff) {
    struct Row {
        FT_Pos ascender;
        FT_Pos descender;
        int baseLine;
        int lineHeight;
    };
    for (const Row& row : {Row{6 * 64, -2 * 64, 6, 10}, Row{6 * 64 + 63, -2 * 64 - 63, 6, 10},
                           Row{-63, -63, 0, 8}, Row{64, 127, 1, 9}, Row{64, -4 * 64, 1, 12}}) {
        SCOPED_TRACE(row.ascender);
        gAfterLoading = [&](FT_Face face) {
            face->size->metrics.ascender = row.ascender;
            face->size->metrics.descender = row.descender;
        };
        FreeTypeTextRenderer renderer(plainFont(), 8);
        renderer.setFontColor(Color(255, 255, 255));
        renderer.setBackgroundColor(Color(0, 0, 0, 0));
        // Of two lines, since that of one is made even.
        EXPECT_EQ(renderer.getTextSize("b\nb", AV_PIX_FMT_GRAY8).height, 2 * row.lineHeight);
        Picture picture = blackPicture(4, 20);
        renderer.renderOn(picture, "b\nb", {}, {});
        const Drawn result = drawn(picture);
        for (int y = 0; y < 20; ++y) {
            const bool first = y == row.baseLine || y == row.baseLine + row.lineHeight;
            const bool second = y == row.baseLine + 1 || y == row.baseLine + row.lineHeight + 1;
            EXPECT_EQ(result[static_cast<std::size_t>(y)], first ? "#..#" : second ? "####" : "....") << y;
        }
    }
}

TEST_F(TextCalls, DrawingMarksThePictureAndNothingToShowDoesNot) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    Picture picture = blackPicture(16, 16);
    const auto marks = [&](const std::string& text, Point position, Rect area) {
        test::modificationMarks() = 0;
        renderer.renderOn(picture, text, position, area);
        return test::modificationMarks();
    };
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    EXPECT_EQ(marks("ab", {}, {}), 1);
    EXPECT_EQ(marks(" ", {}, {}), 1);
    EXPECT_EQ(marks("ab", {100, 0}, {}), 1);
    EXPECT_EQ(marks("", {}, {}), 0);
    EXPECT_EQ(marks("ab", {}, {50, 0, 5, 5}), 0);
    // Filling marks as well, where it fills.
    renderer.setBackgroundColor(Color(0, 0, 0));
    EXPECT_EQ(marks("ab", {}, {}), 2);
    EXPECT_EQ(marks("ab", {100, 0}, {}), 1);
    EXPECT_EQ(marks("", {}, {}), 0);
}

TEST_F(TextCalls, RenderingFillsAPictureOnceBeforeItDraws) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    const auto marks = [&](AVPixelFormat format) {
        test::modificationMarks() = 0;
        EXPECT_FALSE(renderer.render("ab", format, AVCOL_RANGE_MPEG, {}, {}).empty());
        return test::modificationMarks();
    };
    EXPECT_EQ(marks(AV_PIX_FMT_RGBA), 2);
    EXPECT_EQ(marks(AV_PIX_FMT_RGB24), 2);
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    EXPECT_EQ(marks(AV_PIX_FMT_RGBA), 2);
    EXPECT_EQ(marks(AV_PIX_FMT_RGB24), 1);
}

TEST_F(TextCalls, EverythingIsGivenBackInReverse) {
    {
        FreeTypeTextRenderer renderer(kSans, 21);
        renderer.prepare("ab");
        gCalls.clear();
    }
    EXPECT_EQ(gCalls,
              (Calls{"FT_Done_Glyph", "FT_Done_Glyph", "FT_Done_Glyph", "FT_Done_Face", "FT_Done_Library"}));
}

TEST_F(TextCalls, FailuresToOpenAFontAreReportedAndGiveEverythingBack) {
    struct Row {
        const char* call;
        std::string text;
    };
    const std::string file = kSans;
    for (const Row& row : {
             Row{"FT_New_Library", "Could not initialize FreeType library"},
             Row{"FT_New_Memory_Face", "Could not load font " + file},
             Row{"FT_Select_Charmap", "Could not select unicode charmap for font " + file},
             Row{"FT_Set_Pixel_Sizes", "Could not set fontsize for font " + file},
         }) {
        failAt(row.call);
        gCalls.clear();
        EXPECT_THROW_TEXT(std::runtime_error, row.text, FreeTypeTextRenderer(file, 20));
        ASSERT_GE(gCalls.size(), 3U);
        EXPECT_EQ(gCalls[gCalls.size() - 3], row.call);
        EXPECT_EQ(gCalls[gCalls.size() - 2], "FT_Done_Face");
        EXPECT_EQ(gCalls[gCalls.size() - 1], "FT_Done_Library");
    }
}

TEST_F(TextCalls, ACharacterThatCannotBeLoadedIsAQuestionMarkFromThenOn) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    renderer.setFontColor(Color(255, 255, 255));
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    failAtCharacter("b");
    Picture picture = blackPicture(6, 8);
    renderer.renderOn(picture, "b", {}, {});
    EXPECT_EQ(drawn(picture)[4], "##....");
    EXPECT_EQ(drawn(picture)[5], "#.....");
    gFails = nullptr;
    Picture later = blackPicture(6, 8);
    renderer.renderOn(later, "ab", {}, {});
    EXPECT_EQ(drawn(later)[7], "......");
}

TEST_F(TextCalls, AQuestionMarkInPlaceOfACharacterHasThatOnesIndex) {
    FreeTypeTextRenderer renderer(kSans, 21);
    const auto asked = [&](const std::string& text) {
        gCalls.clear();
        renderer.prepare(text);
        return std::count(gCalls.begin(), gCalls.end(), "FT_Get_Kerning");
    };
    // The font lacks the one; the other it has, though it cannot be loaded.
    gFails = [](const std::string& name, unsigned long code) {
        return name == "FT_Load_Char" && (code == 0x10000 || code == 'V');
    };
    EXPECT_EQ(asked("A\xf0\x90\x80\x80T"), 0);
    EXPECT_EQ(asked("AVT"), 2);
}

TEST_F(TextCalls, AQuestionMarkInPlaceOfACharacterIsDrawnFromOutlinesToo) {
    FreeTypeTextRenderer renderer(kSans, 21);
    renderer.setFontColor(Color(255, 255, 255));
    failAtCharacter("V");
    const auto drawnText = [&](const std::string& text) {
        return drawn(renderer.render(text, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG, {}, {}));
    };
    EXPECT_EQ(drawnText("V"), drawnText("?"));
    EXPECT_NE(drawnText("V"), drawnText("l"));
}

TEST_F(TextCalls, AGlyphThatCannotBeKeptDoesNotEndKerning) {
    FreeTypeTextRenderer renderer(kSans, 60);
    const int together = renderer.getTextSize("AV", AV_PIX_FMT_GRAY8).width;
    failAt("FT_Get_Glyph");
    gCalls.clear();
    EXPECT_EQ(renderer.getTextSize("AxV", AV_PIX_FMT_GRAY8).width, together);
    EXPECT_EQ(std::count(gCalls.begin(), gCalls.end(), "FT_Get_Kerning"), 1);
}

TEST_F(TextCalls, ALayoutThatMemoryRanOutForIsMadeAgain) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    gFails = [](const std::string& name, unsigned long code) {
        return name == "FT_Load_Char" && code == 'b' ? throw std::bad_alloc() : false;
    };
    EXPECT_THROW(renderer.prepare("ab"), std::bad_alloc);
    EXPECT_THROW(renderer.prepare("ab"), std::bad_alloc);
    gFails = nullptr;
    EXPECT_EQ(renderer.getTextSize("ab", AV_PIX_FMT_GRAY8), (Size{10, 10}));
}

TEST_F(TextCalls, WithoutAQuestionMarkACharacterIsLeftOut) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    failAtCharacter("b?");
    gCalls.clear();
    renderer.loadGlyph(U'b');
    EXPECT_EQ(gCalls[0], "FT_Get_Char_Index");
    EXPECT_EQ(gCalls[1], "FT_Load_Char");
    EXPECT_EQ(gCalls[2], "FT_Load_Char");
    EXPECT_EQ(gCalls[3], "FT_Get_Glyph");
    gFails = nullptr;
}

TEST_F(TextCalls, AGlyphThatCannotBeKeptIsLeftOutAndTriedAgain) {
    FreeTypeTextRenderer renderer(plainFont(), 8);
    renderer.prepare("a");
    failAt("FT_Get_Glyph");
    EXPECT_EQ(renderer.getTextSize("aba", AV_PIX_FMT_GRAY8), (Size{10, 10}));
    EXPECT_EQ(renderer.getTextSize("b", AV_PIX_FMT_GRAY8), (Size{0, 10}));
    gFails = nullptr;
    EXPECT_EQ(renderer.getTextSize("aba", AV_PIX_FMT_GRAY8), (Size{16, 10}));
}

TEST_F(TextCalls, AFontWhoseBlankCannotBeKeptHasTabsOfNoWidth) {
    failAt("FT_Get_Glyph");
    FreeTypeTextRenderer renderer(plainFont(), 8);
    gFails = nullptr;
    EXPECT_EQ(renderer.getTextSize("\t", AV_PIX_FMT_GRAY8), (Size{0, 10}));
    EXPECT_EQ(renderer.getTextSize("a\ta", AV_PIX_FMT_GRAY8), (Size{10, 10}));
}

}  // namespace
}  // namespace vidorra::test
