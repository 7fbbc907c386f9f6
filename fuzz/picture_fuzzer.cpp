// A sequence of operations on pictures, chosen by the input. Every byte of their results is read.
#include <array>
#include <cstring>
#include <numeric>

#include <vidorra/vidorra.h>

#include "ffmpeg/pixel_formats.h"
#include "support/silence.h"
#include "support/target.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace {

using vidorra::Picture;
using vidorra::Rect;
using vidorra::Size;
using vidorra::fuzz::expect;
using vidorra::fuzz::Input;

// One format of each kind, including those whose pixels share bytes.
constexpr std::array kFormats = {
    AV_PIX_FMT_YUV420P,     AV_PIX_FMT_YUVA420P, vidorra::NVA12,       AV_PIX_FMT_NV12,
    AV_PIX_FMT_GRAY8,       AV_PIX_FMT_NV21,     AV_PIX_FMT_NV16,      AV_PIX_FMT_NV24,
    AV_PIX_FMT_YUV410P,     AV_PIX_FMT_YUV411P,  AV_PIX_FMT_YUV422P,   AV_PIX_FMT_YUV440P,
    AV_PIX_FMT_YUV444P,     AV_PIX_FMT_RGB24,    AV_PIX_FMT_RGBA,      AV_PIX_FMT_ARGB,
    AV_PIX_FMT_RGB565LE,    AV_PIX_FMT_PAL8,     AV_PIX_FMT_GBRP,      AV_PIX_FMT_GBRAP,
    AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_P010LE,   AV_PIX_FMT_GRAY16LE,  AV_PIX_FMT_YUYV422,
    AV_PIX_FMT_UYVY422,     AV_PIX_FMT_YVYU422,  AV_PIX_FMT_UYYVYY411, AV_PIX_FMT_MONOBLACK,
    AV_PIX_FMT_RGB4,        AV_PIX_FMT_RGB565BE};

AVColorRange range(Input& input) {
    return static_cast<AVColorRange>(input.upTo(2));
}

int alignment(Input& input) {
    return 1 << input.upTo(6);
}

int side(Input& input) {
    return input.upTo(100) - 2;
}

int bytesOf(const Picture& picture, int align) {
    const Size size = picture.frameSize();
    return vidorra::ffmpeg_ext::imageBufferSize(picture.pixelFormat(), size.width, size.height, align);
}

Picture makePicture(Input& input, AVPixelFormat format, Size size) {
    const int align = alignment(input);
    Picture picture(size, format, range(input), align);
    if (!picture.empty()) {
        auto* first = picture.data()[0];
        std::iota(first, first + bytesOf(picture, align), input.byte());
        picture.markModified();
    }
    return picture;
}

Picture makePicture(Input& input) {
    const AVPixelFormat format = kFormats[input.byte() % kFormats.size()];
    const int width = side(input);
    return makePicture(input, format, {width, side(input)});
}

// All pixels in one string, read through the planes.
std::string pixels(const Picture& picture) {
    if (picture.empty() || picture.frameSize().width < 1 || picture.frameSize().height < 1) {
        return {};
    }
    Picture copy(picture.frameSize(), picture.pixelFormat(), picture.colorRange(), 1);
    const int size = bytesOf(picture, 1);
    std::memset(copy.data()[0], 0, static_cast<std::size_t>(size));
    copy.copyFrom(picture);
    return {reinterpret_cast<const char*>(copy.data()[0]), static_cast<std::size_t>(size)};
}

Rect rectangle(Input& input) {
    if (input.upTo(3) == 0) {
        const int x = input.number();
        const int y = input.number();
        const int width = input.number();
        return {x, y, width, input.number()};
    }
    const int x = side(input) - 10;
    const int y = side(input) - 10;
    const int width = side(input);
    return {x, y, width, side(input)};
}

// Operations that write pixels write nothing else, and operations that read pixels change nothing.
void process(Input& input, Picture& picture) {
    const std::string before = pixels(picture);
    const std::vector<unsigned char> table(256, input.byte());
    const std::string sum = vidorra::getPlanesMD5(picture);
    expect(sum.empty() == picture.empty(), "a picture with pixels has a sum");
    const Rect visible = vidorra::alphaTrimmedRect(picture);
    expect(visible.x >= 0 && visible.y >= 0, "what is visible lies in the picture");
    expect(pixels(picture) == before, "looking at a picture changes nothing");
    Picture other = picture;
    other.makeEditable();
    vidorra::applyLUT(other, input.upTo(3), table);
    vidorra::fillWithDebugData(other);
    try {
        vidorra::compose(other, picture, {side(input), side(input)}, vidorra::CheckColorRange::No, 1.0, 1);
        vidorra::fillRectangle(other, rectangle(input), vidorra::Color(1, 2, 3, 4));
    } catch (const std::runtime_error&) {
        // Empty, or a format that cannot be drawn on.
    }
    expect(pixels(picture) == before, "a copy that was made editable has pixels of its own");
}

// Formats that are not in kFormats must not do harm either.
void anyFormat(Input& input) {
    const auto format = static_cast<AVPixelFormat>(input.byte());
    const int width = side(input);
    try {
        Picture picture = makePicture(input, format, {width, side(input)});
        process(input, picture);
        Picture view = picture.crop({1, 1, 2, 2});
        view.makeEditable();
        expect(!picture.debugDescription().empty(), "a picture has a text");
        expect(picture.hasAlpha() == view.hasAlpha(), "a view has the format of its picture");
    } catch (const vidorra::FFmpegError&) {
        // Not a format of pictures in memory.
    } catch (const std::invalid_argument&) {
        // Not a format.
    }
}

void crop(Input& input, Picture& picture) {
    const Rect rect = rectangle(input);
    Picture whole = picture;
    whole.makeEditable();
    const Picture view = picture.crop(rect);
    const Size size = view.frameSize();
    // A rectangle with a negative side gives a view with a negative side, from which nothing can be read.
    const Size before = picture.frameSize();
    const bool plain = before.width >= 0 && before.height >= 0 && rect.width >= 0 && rect.height >= 0;
    if (plain && size != before) {
        expect(size.width >= 0 && size.width <= rect.width, "a view is not wider than asked for");
        expect(size.height >= 0 && size.height <= rect.height, "a view is not higher than asked for");
    }
    expect(view.empty() == picture.empty(), "a view holds the buffers");
    expect(pixels(view) == pixels(whole.crop(rect)), "a view of a copy shows the same");
    picture = view;
}

void makeEditable(Picture& picture) {
    const std::string before = pixels(picture);
    const Picture shared = picture;
    picture.makeEditable();
    expect(picture.editable() == !picture.empty(), "a picture is editable when it was made so");
    expect(pixels(picture) == before, "making a picture editable keeps its pixels");
    expect(pixels(shared) == before, "making a picture editable keeps those of its copies");
}

void addAlpha(Input& input, Picture& picture) {
    const bool fits = input.upTo(3) != 0;
    const Picture alpha =
        fits ? makePicture(input, AV_PIX_FMT_GRAY8, picture.frameSize()) : makePicture(input);
    try {
        Picture result(picture, alpha);
        expect(result.hasAlpha(), "a picture with an alpha plane has alpha");
        expect(result.data()[3] == alpha.data()[0], "the alpha plane is that of the second picture");
        const std::string text = pixels(result);
        expect(text.substr(text.size() - pixels(alpha).size()) == pixels(alpha), "alpha stays as it was");
        picture = std::move(result);
    } catch (const std::logic_error&) {
        // The formats or sizes do not fit.
    }
}

void copyFrom(Input& input, Picture& picture) {
    Picture other = input.upTo(1) == 0 ? makePicture(input)
                                       : makePicture(input, picture.pixelFormat(), picture.frameSize());
    try {
        other.copyFrom(picture);
        expect(pixels(other) == pixels(picture), "a copy shows the same");
    } catch (const std::runtime_error&) {
        // Empty, or of another size or format.
    }
}

void throughFrame(Picture& picture) {
    if (picture.empty()) {
        return;
    }
    const std::string before = pixels(picture);
    const vidorra::AvPtr<AVFrame> frame = vidorra::makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    const Picture shared(frame.get());
    expect(shared.frameSize() == picture.frameSize(), "a frame carries the size");
    expect(pixels(shared) == before || shared.empty(), "a frame carries the pixels");
}

}  // namespace

std::vector<std::string> vidorra::fuzz::seeds() {
    std::vector<std::string> result;
    for (std::size_t format = 0; format < kFormats.size(); ++format) {
        // The picture, then each operation.
        std::string seed = {static_cast<char>(format), 66, 50, 5, 1, 7};
        seed += std::string("\1", 1);
        seed += std::string("\2\1\5\2\7", 5);
        seed += std::string("\0\1\17\21\55\51", 6);
        seed += std::string("\1\4", 2);
        seed += std::string("\3\1\5\1\3", 5);
        seed += std::string("\5\11\1\5\7\1\20\21\22\23", 10);
        result.push_back(seed);
    }
    result.push_back(
        std::string("\0\102\62\5\1\7\0\0\177\377\377\377\200\0\0\0\177\377\377\377\177\377", 22));
    result.push_back(std::string("\0\1\62\5\1\7\6\13\62\62\5\1\7\6\301\62\62\5\1\7", 20));
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vidorra::fuzz::silence();
    Input input(data, size);
    Picture picture = makePicture(input);
    for (int i = 0; i < 20 && !input.empty(); ++i) {
        switch (input.upTo(6)) {
        case 0:
            crop(input, picture);
            break;
        case 1:
            makeEditable(picture);
            break;
        case 2:
            addAlpha(input, picture);
            break;
        case 3:
            copyFrom(input, picture);
            break;
        case 4:
            throughFrame(picture);
            break;
        case 5:
            process(input, picture);
            break;
        default:
            anyFormat(input);
            break;
        }
        expect(!picture.debugDescription().empty(), "a picture has a text");
    }
    return 0;
}
