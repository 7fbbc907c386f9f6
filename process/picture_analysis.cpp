#include "vidorra/process/picture_analysis.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <optional>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "ffmpeg/owners.h"
#include "ffmpeg/pixel_formats.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/md5.h>
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

constexpr const char* kPrefix = "....Pictures are different. ";

// Width and height of the part of a picture that a component describes, rounded down.
Size componentSize(const Picture& picture, const AVPixFmtDescriptor& descriptor, int plane) {
    const bool isChroma = (descriptor.flags & AV_PIX_FMT_FLAG_RGB) == 0 && (plane == 1 || plane == 2);
    const Size size = picture.frameSize();
    return isChroma ? Size{size.width >> descriptor.log2_chroma_w, size.height >> descriptor.log2_chroma_h}
                    : size;
}

// The bytes of the pixels in a row of a plane; chroma is rounded down as above.
std::ptrdiff_t rowBytes(const Picture& picture, const AVPixFmtDescriptor& descriptor, int plane) {
    const int samples = componentSize(picture, descriptor, plane).width;
    const int pixels = plane == 1 || plane == 2 ? samples << descriptor.log2_chroma_w : samples;
    return ffmpeg_ext::rowBytes(picture.pixelFormat(), plane, pixels);
}

// The differing samples of two pictures, for one component.
struct Difference {
    struct Sample {
        int x = 0;
        int y = 0;
        int left = 0;
        int right = 0;
        int diff = 0;
    };
    Sample first;
    Sample max;
    int total = 0;
};

// Two pictures of the same shape, row by row of a plane.
struct PlanePair {
    const std::uint8_t* left;
    const std::uint8_t* right;
    std::ptrdiff_t leftStride;
    std::ptrdiff_t rightStride;
    Size size;
    std::ptrdiff_t bytes;

    PlanePair(const Picture& l, const Picture& r, const AVPixFmtDescriptor& descriptor, int plane)
        : left(l.data()[static_cast<std::size_t>(plane)]),
          right(r.data()[static_cast<std::size_t>(plane)]),
          leftStride(l.linesize()[static_cast<std::size_t>(plane)]),
          rightStride(r.linesize()[static_cast<std::size_t>(plane)]),
          size(componentSize(l, descriptor, plane)),
          bytes(rowBytes(l, descriptor, plane)) {}

    [[nodiscard]] bool rowIsEqual(int y) const {
        return std::memcmp(left + y * leftStride, right + y * rightStride, static_cast<std::size_t>(bytes)) ==
               0;
    }
    [[nodiscard]] bool isEqual() const {
        int y = 0;
        while (y < size.height && rowIsEqual(y)) {
            ++y;
        }
        return y >= size.height;
    }
};

// Compares one component. Rows of equal bytes are skipped at once.
Difference compareComponent(const PlanePair& planes, const AVComponentDescriptor& component,
                            unsigned tolerance) {
    Difference result;
    for (int y = 0; y < planes.size.height; ++y) {
        if (planes.rowIsEqual(y)) {
            continue;
        }
        const std::uint8_t* left = planes.left + y * planes.leftStride;
        const std::uint8_t* right = planes.right + y * planes.rightStride;
        int x = 0;
        for (std::ptrdiff_t i = component.offset; x < planes.size.width && i < planes.bytes;
             ++x, i += component.step) {
            const int diff = std::abs(left[i] - right[i]);
            if (static_cast<unsigned>(diff) <= tolerance) {
                continue;
            }
            const Difference::Sample sample{x, y, left[i], right[i], diff};
            if (result.total == 0) {
                result.first = sample;
            }
            if (diff > result.max.diff) {
                result.max = sample;
            }
            ++result.total;
        }
    }
    return result;
}

void write(std::ostream& report, const Difference& difference, int index,
           const AVComponentDescriptor& component) {
    const auto place = [&](const Difference::Sample& sample) {
        return fmt::format(" component:{} plane:{} offset:{}, x:{}, y:{}, value left:{}, value right:{}",
                           index, component.plane, component.offset, sample.x, sample.y, sample.left,
                           sample.right);
    };
    report << fmt::format("{}First at{}, diff:{}\n", kPrefix, place(difference.first), difference.first.diff);
    report << fmt::format("{}  Max at{}, diff_max:{}, total:{}\n", kPrefix, place(difference.max),
                          difference.max.diff, difference.total);
}

// Whether the pictures can be compared sample by sample; if not, the report says why.
bool haveSameShape(const Picture& left, const Picture& right, std::ostream* report) {
    const auto refuse = [report](const char* what, const auto& ofLeft, const auto& ofRight) {
        if (report != nullptr) {
            // A separate stream, so that the numbers are decimal whatever the settings of the report's
            // stream.
            std::ostringstream line;
            line.imbue(std::locale::classic());
            line << kPrefix << what << ": left:" << ofLeft << ", right:" << ofRight << '\n';
            *report << line.str();
        }
        return false;
    };
    if (left.empty() || right.empty()) {
        return refuse("Empty", static_cast<int>(left.empty()), static_cast<int>(right.empty()));
    }
    if (left.frameSize() != right.frameSize()) {
        return refuse("Sizes", left.frameSize(), right.frameSize());
    }
    if (left.pixelFormat() != right.pixelFormat()) {
        return refuse("Formats", to_string(left.pixelFormat()), to_string(right.pixelFormat()));
    }
    if (left.colorRange() != right.colorRange() && left.colorRange() != AVCOL_RANGE_UNSPECIFIED &&
        right.colorRange() != AVCOL_RANGE_UNSPECIFIED) {
        return refuse("ColorRanges", to_string(left.colorRange()), to_string(right.colorRange()));
    }
    return true;
}

}  // namespace

bool comparePictures(const Picture& left, const Picture& right, unsigned tolerance, bool skipLastComponent,
                     std::ostream* report) {
    if (!haveSameShape(left, right, report)) {
        return false;
    }
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(left.pixelFormat());
    if (descriptor == nullptr) {
        return true;
    }
    // Compared once for each plane, since several components may share one.
    std::array<std::optional<bool>, 4> planeIsEqual;
    bool equal = true;
    for (int i = 0; i < (skipLastComponent ? 3 : 4); ++i) {
        const AVComponentDescriptor& component = descriptor->comp[i];
        if (component.depth == 0) {
            continue;
        }
        if (component.depth != 8) {
            if (report != nullptr) {
                *report << fmt::format("Unsupported component depth != 8. (depth:{})\n", component.depth);
            }
            throw std::runtime_error("Unsupported component depth != 8!");
        }
        const PlanePair planes(left, right, *descriptor, component.plane);
        std::optional<bool>& same = planeIsEqual[static_cast<std::size_t>(component.plane)];
        if (!same) {
            same = planes.isEqual();
        }
        if (*same) {
            continue;
        }
        const Difference difference = compareComponent(planes, component, tolerance);
        if (difference.total == 0) {
            continue;
        }
        equal = false;
        if (report != nullptr) {
            write(*report, difference, i, component);
        }
    }
    return equal;
}

std::string getPlanesMD5(const Picture& picture) {
    if (picture.empty()) {
        return {};
    }
    const AvPtr<AVMD5> md5 = ffmpeg_ext::adopt(av_md5_alloc());
    if (!md5) {
        throw std::runtime_error("Out of memory");
    }
    av_md5_init(md5.get());
    const AVPixFmtDescriptor* descriptor = ffmpeg_ext::pixelFormatDescriptor(picture.pixelFormat());
    int maxPlane = 0;
    for (int i = 0; descriptor != nullptr && i < descriptor->nb_components; ++i) {
        maxPlane = std::max(maxPlane, static_cast<int>(descriptor->comp[i].plane));
    }
    // Deliberate: iterates over components and not planes, up to the index of the last plane.
    for (int i = 0; descriptor != nullptr && i <= maxPlane; ++i) {
        const AVComponentDescriptor& component = descriptor->comp[i];
        const auto plane = static_cast<std::size_t>(component.plane);
        const Size size = componentSize(picture, *descriptor, component.plane);
        // Not an offset in bytes in all formats: negative in some big-endian ones, and in bits if pixels
        // share a byte.
        const bool inBits = (descriptor->flags & AV_PIX_FMT_FLAG_BITSTREAM) != 0;
        const std::ptrdiff_t offset = inBits ? 0 : std::max(component.offset, 0);
        // From an offset on, a row of whole pixels would reach past the picture's width.
        const std::ptrdiff_t bytes = std::min(std::ptrdiff_t{size.width} * component.step,
                                              rowBytes(picture, *descriptor, component.plane) - offset);
        for (int y = 0; y < size.height && bytes > 0; ++y) {
            const std::uint8_t* row = picture.data()[plane] + std::ptrdiff_t{y} * picture.linesize()[plane];
            av_md5_update(md5.get(), row + offset, static_cast<int>(bytes));
        }
    }
    std::uint8_t digest[16];
    av_md5_final(md5.get(), digest);
    std::string result;
    for (const std::uint8_t byte : digest) {
        result += fmt::format("{:02x}", byte);
    }
    return result;
}

}  // namespace vidorra
