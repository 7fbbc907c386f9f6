#include "vidorra/picture/frame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <type_traits>

namespace vidorra {
namespace {

static_assert(std::is_abstract_v<Frame>);
static_assert(std::is_polymorphic_v<Frame>);
static_assert(std::has_virtual_destructor_v<Frame>);
static_assert(std::is_same_v<std::underlying_type_t<Frame::FrameFlags>, std::uint32_t>);
static_assert(Frame::NoFlags == 0);
static_assert(Frame::LastFrame == 2);
static_assert(Frame::NoSignal == 4);
static_assert((Frame::LastFrame | Frame::NoSignal) == 6);
static_assert(((Frame::LastFrame | Frame::NoSignal) & Frame::NoSignal) == Frame::NoSignal);
static_assert((Frame::LastFrame & Frame::NoSignal) == Frame::NoFlags);

// The least that a frame can be.
class PlainFrame : public Frame {
public:
    using Frame::Frame;
    ~PlainFrame() override {
        if (mDestroyed != nullptr) {
            *mDestroyed = true;
        }
    }

    void fillAVFrame(AVFrame*) const override {}
    [[nodiscard]] bool empty() const override { return true; }
    [[nodiscard]] std::string debugDescription() const override { return "a plain frame"; }
    [[nodiscard]] bool isAudio() const override { return false; }
    [[nodiscard]] bool isVideo() const override { return false; }

    bool* mDestroyed = nullptr;
};

static_assert(!std::is_default_constructible_v<PlainFrame>);
static_assert(std::is_constructible_v<PlainFrame, Timestamp>);

// The place of a virtual function in the table, by the C++ ABI of all platforms here.
template <class Function>
std::size_t slotOf(Function function) {
    std::uintptr_t offset;
    std::memcpy(&offset, &function, sizeof(offset));
    return (offset & ~std::uintptr_t{1}) / sizeof(void*);
}

// Ordered by the table, whose first two places are the destructor's.
TEST(Frame, KeepsTheOrderOfItsVirtualFunctions) {
    EXPECT_EQ(slotOf(&Frame::fillAVFrame), 2U);
    EXPECT_EQ(slotOf(&Frame::empty), 3U);
    EXPECT_EQ(slotOf(&Frame::debugDescription), 4U);
    EXPECT_EQ(slotOf(&Frame::isAudio), 5U);
    EXPECT_EQ(slotOf(&Frame::isVideo), 6U);
}

TEST(Frame, HasATimestampAndNothingElse) {
    const Timestamp time({1, 90000}, 4711);
    const PlainFrame frame(time);
    EXPECT_EQ(frame.timestamp().value, 4711);
    EXPECT_EQ(frame.timestamp().timebase, (Timebase{1, 90000}));
    EXPECT_FALSE(frame.timestamp().isNull);
    EXPECT_EQ(frame.flags(), Frame::NoFlags);
    std::ostringstream metadata;
    metadata << frame.metadata();
    EXPECT_EQ(metadata.str(), "");
}

TEST(Frame, ItsFieldsCanBeSet) {
    PlainFrame frame{Timestamp()};
    EXPECT_TRUE(frame.timestamp().isNull);
    frame.setTimestamp(Timestamp({1, 25}, 7));
    frame.setFlags(Frame::LastFrame | Frame::NoSignal);
    frame.metadata().addValue("title", "one");
    EXPECT_EQ(frame.timestamp().value, 7);
    EXPECT_EQ(frame.flags(), 6U);
    EXPECT_EQ(static_cast<const Frame&>(frame).metadata()["title"], "one");
}

TEST(Frame, StreamOutputWritesTheDescriptionOfTheDerivedClass) {
    const PlainFrame plain{Timestamp()};
    const Frame& frame = plain;
    std::ostringstream stream;
    stream << frame << '|';
    EXPECT_EQ(stream.str(), "a plain frame|");
}

TEST(Frame, IsDestroyedThroughItsBase) {
    bool destroyed = false;
    auto* frame = new PlainFrame{Timestamp()};
    frame->mDestroyed = &destroyed;
    delete static_cast<Frame*>(frame);
    EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace vidorra
