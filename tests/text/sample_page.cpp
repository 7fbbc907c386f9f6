// Draws a page of texts in several formats and fonts into an image file:
//   text_sample_page docs/images/text_samples.png
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

#include "text/fonts.h"

namespace {

using namespace vidorra;
using namespace vidorra::test;

constexpr int kWidth = 960;
constexpr int kLabelWidth = 190;
constexpr Color kPaper{250, 248, 240};

struct Row {
    std::string label;
    Picture picture;
};

// The texts of all rows, put below each other at the end.
class Page {
public:
    Page() {
        mLabels.setFontColor(Color(90, 90, 90));
        mLabels.setBackgroundColor(kPaper);
        mLabels.setPadding(10, 6, 0, 0);
    }

    void add(const std::string& label, const Picture& picture) {
        mRows.push_back({label, mConverter.convertToColorspace(picture, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG)});
    }

    // With any renderer on the paper's colour.
    void add(const std::string& label, FreeTypeTextRenderer& renderer, const std::string& text,
             AVPixelFormat format = AV_PIX_FMT_RGB24, Rect area = {}) {
        add(label, renderer.render(text, format, AVCOL_RANGE_MPEG, {}, area));
    }

    void save(const std::string& file) {
        int height = 8;
        for (const Row& row : mRows) {
            height += row.picture.frameSize().height + 8;
        }
        Picture page(Size{kWidth, height}, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG, 32);
        fillRectangle(page, kPaper);
        int y = 8;
        for (const Row& row : mRows) {
            copy(page, mLabels.render(row.label, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG, {}, {}), 0, y);
            copy(page, row.picture, kLabelWidth, y);
            y += row.picture.frameSize().height + 8;
        }
        savePicture(page, file, AV_CODEC_ID_NONE);
    }

private:
    static void copy(Picture& page, const Picture& picture, int x, int y) {
        const Size size = picture.frameSize();
        const int width = std::min(size.width, kWidth - x);
        for (int row = 0; row < std::min(size.height, page.frameSize().height - y); ++row) {
            std::memcpy(page.data()[0] + (y + row) * page.linesize()[0] + 3 * x,
                        picture.data()[0] + row * picture.linesize()[0], static_cast<std::size_t>(3 * width));
        }
    }

    std::vector<Row> mRows;
    FreeTypeTextRenderer mLabels{kSans, 14};
    Scaler mConverter;
};

void addFormats(Page& page) {
    FreeTypeTextRenderer renderer(kSans, 26);
    renderer.setFontColor(Color(255, 220, 60));
    renderer.setBackgroundColor(Color(20, 50, 90));
    renderer.setPadding(8, 2, 8, 2);
    for (const AVPixelFormat format :
         {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_RGB24,
          AV_PIX_FMT_RGBA, AV_PIX_FMT_GBRP, AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_GRAY8}) {
        page.add(to_string(format), renderer,
                 "Quick AV To, gjy; \xce\x95\xce\xbb\xce\xbb\xce\xac\xcf\x82, "
                 "\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82, \xc3\xa4\xc3\xa9\xc5\x93",
                 format);
    }
}

void addFonts(Page& page) {
    struct Font {
        const char* label;
        const char* file;
        int size;
    };
    for (const Font& font :
         {Font{"TrueType, kerning", kSans, 30}, Font{"TrueType, one width", kMono, 26},
          Font{"OpenType CFF", kCff, 30}, Font{"bitmaps", kBitmap, 16}, Font{"9 pixels", kSans, 9}}) {
        FreeTypeTextRenderer renderer(font.file, font.size);
        renderer.setFontColor(Color(30, 30, 30));
        renderer.setBackgroundColor(kPaper);
        page.add(font.label, renderer, "AVATAR Tolstoy, (0123) {quick} & brown");
    }
}

void addLayouts(Page& page) {
    FreeTypeTextRenderer renderer(kSans, 24);
    renderer.setFontColor(Color(30, 30, 30));
    renderer.setBackgroundColor(Color(225, 232, 220));
    page.add("lines, tabs", renderer, "first\tline\nsecond\n\tthird\tline");
    renderer.setPadding(30, 10, 60, 10);
    page.add("padding", renderer, "30, 10, 60, 10");
    renderer.setPadding(0, 0, 0, 0);
    page.add("whole", renderer, "a part of this text");
    page.add("area 60,6 120x16", renderer, "a part of this text", AV_PIX_FMT_RGB24, {60, 6, 120, 16});
    page.add("combining marks", renderer, "e\xcc\x81 a\xcc\x88 o\xcc\x82");
    page.add("not in the font", renderer, "\xe6\xbc\xa2\xe5\xad\x97 \xf0\x90\x8e\xa0");
}

void addTranslucency(Page& page) {
    Picture stripes(Size{600, 60}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    for (int i = 0; i < 12; ++i) {
        fillRectangle(stripes, {50 * i, 0, 50, 60},
                      i % 2 == 0 ? Color(200, 60, 40) : Color(static_cast<std::uint8_t>(20 * i), 160, 200));
    }
    FreeTypeTextRenderer renderer(kSans, 40);
    renderer.setBackgroundColor(Color(0, 0, 0, 0));
    renderer.setPadding(6, 4, 0, 0);
    renderer.setFontColor(Color(255, 255, 255, 150));
    renderer.renderOn(stripes, "over a picture, alpha 150", {0, 0}, {});
    page.add("yuv420p, no background", stripes);
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
        return 2;
    }
    Page page;
    addFormats(page);
    addFonts(page);
    addLayouts(page);
    addTranslucency(page);
    page.save(argv[1]);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
