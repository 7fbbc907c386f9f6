#pragma once

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_SYSTEM_H

#include <array>
#include <string>

#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra {

/// FreeType with our own memory functions, an open font, and the font's file.
///
/// The whole file is in memory: FreeType would map it, and the process would crash if a mapped file is
/// truncated.
struct FreeTypeTextRenderer::Face {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    std::string file;
    FT_MemoryRec_ memory{};
    /// Whether an allocation has failed since this was last cleared. FreeType does not always report that:
    /// it continues without a module, a character map or a hint.
    bool outOfMemory = false;
    /// Memory for the next small allocations that fail. FreeType 2.12 does not check the first two
    /// allocations of its TrueType interpreter, and would crash.
    std::array<void*, 2> reserve{};
};

}  // namespace vidorra
