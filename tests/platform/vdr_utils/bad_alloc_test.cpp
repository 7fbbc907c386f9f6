#include "vdr_utils/bad_alloc.h"

#include <memory>
#include <type_traits>

namespace vx::vdr::utils {
namespace {

static_assert(std::is_base_of_v<std::bad_alloc, BadAlloc>);

TEST(BadAlloc, TextIsTheMessage) {
    EXPECT_STREQ(BadAlloc("no packet").what(), "no packet");
    EXPECT_STREQ(BadAlloc("").what(), "");
}

TEST(BadAlloc, OwnsItsMessageAndSoDoesACopy) {
    const char* text = "a message that is too long for the string object itself";
    auto original = std::make_unique<BadAlloc>(text);
    const BadAlloc copy = *original;
    original.reset();
    EXPECT_STREQ(copy.what(), text);
}

TEST(BadAlloc, IsCaughtAsAStandardBadAlloc) {
    try {
        throw BadAlloc("no frame");
    } catch (const std::bad_alloc& error) {
        EXPECT_STREQ(error.what(), "no frame");
    }
}

}  // namespace
}  // namespace vx::vdr::utils
