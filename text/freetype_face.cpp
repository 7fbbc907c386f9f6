#include "text/freetype_face.h"

#include FT_MODULE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "vidorra/core/format.h"

namespace vidorra {
namespace {

using Face = FreeTypeTextRenderer::Face;

// No font is this large, but a film that is opened by mistake may be.
constexpr std::uintmax_t kLargestFile = std::uintmax_t{1} << 30;

// The size of each block in reserve.
constexpr long kReserved = 4096;

void* reallocate(FT_Memory memory, long /*oldSize*/, long size, void* block) {
    void* result = std::realloc(block, static_cast<std::size_t>(size));
    if (result != nullptr) {
        return result;
    }
    Face& face = *static_cast<Face*>(memory->user);
    face.outOfMemory = true;
    for (void*& reserved : face.reserve) {
        if (block == nullptr && size <= kReserved && reserved != nullptr) {
            return std::exchange(reserved, nullptr);
        }
    }
    return nullptr;
}

void* allocate(FT_Memory memory, long size) {
    return reallocate(memory, 0, size, nullptr);
}

void release(FT_Memory /*memory*/, void* block) {
    std::free(block);
}

void releaseFace(Face* face) {
    FT_Done_Face(face->face);
    FT_Done_Library(face->library);
    for (void* reserved : face->reserve) {
        std::free(reserved);
    }
    delete face;
}

// The content of a file; empty if it cannot be a font because it is missing, not regular or too large.
std::string contentOf(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file || size > kLargestFile) {
        return {};
    }
    std::string content(size, '\0');
    file.read(content.data(), static_cast<std::streamsize>(size));
    content.resize(static_cast<std::size_t>(file.gcount()));
    return content;
}

}  // namespace

FreeTypeTextRenderer::FacePtr FreeTypeTextRenderer::loadFace(const std::string& fontFile, int size) {
    FacePtr result(new Face, releaseFace);
    for (void*& reserved : result->reserve) {
        reserved = std::malloc(kReserved);
        if (reserved == nullptr) {
            throw std::bad_alloc();
        }
    }
    result->memory = {result.get(), allocate, release, reallocate};
    if (FT_New_Library(&result->memory, &result->library) == 0) {
        FT_Add_Default_Modules(result->library);
        FT_Set_Default_Properties(result->library);
    }
    if (result->library == nullptr || result->outOfMemory) {
        throw std::runtime_error("Could not initialize FreeType library");
    }
    result->file = contentOf(fontFile);
    FT_New_Memory_Face(result->library, reinterpret_cast<const FT_Byte*>(result->file.data()),
                       static_cast<FT_Long>(result->file.size()), 0, &result->face);
    if (result->face == nullptr || result->outOfMemory) {
        throw std::runtime_error(fmt::format("Could not load font {}", fontFile));
    }
    if (FT_Select_Charmap(result->face, FT_ENCODING_UNICODE) != 0) {
        throw std::runtime_error(fmt::format("Could not select unicode charmap for font {}", fontFile));
    }
    // Deliberate: FreeType would treat 0 as 1, and negative sizes as huge ones.
    if (size < 1 || FT_Set_Pixel_Sizes(result->face, static_cast<FT_UInt>(size), 0) != 0 ||
        result->outOfMemory) {
        throw std::runtime_error(fmt::format("Could not set fontsize for font {}", fontFile));
    }
    return result;
}

}  // namespace vidorra
