#include "vidorra/core/bad_cast.h"

#include <memory>
#include <type_traits>

namespace vidorra {
namespace {

static_assert(std::is_base_of_v<std::bad_cast, BadCast>);

TEST(BadCast, TextIsTheMessage) {
    EXPECT_STREQ(BadCast("width is no number").what(), "width is no number");
    EXPECT_STREQ(BadCast("").what(), "");
}

TEST(BadCast, OwnsItsMessage) {
    auto message = std::make_unique<std::string>("a message that is too long for the string object itself");
    const BadCast error(*message);
    message.reset();
    EXPECT_STREQ(error.what(), "a message that is too long for the string object itself");
}

TEST(BadCast, IsCaughtAsAStandardBadCast) {
    try {
        throw BadCast("no such format");
    } catch (const std::bad_cast& error) {
        EXPECT_STREQ(error.what(), "no such format");
    }
}

}  // namespace
}  // namespace vidorra
