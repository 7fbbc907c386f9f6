// Threads that allocate, fill, hand over and release pictures at random. A short run belongs to the tests; a
// long one is
//
//     VIDORRA_SOAK_OPERATIONS=1000000 best_fit_picture_allocator_soak_test

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "picture/region.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/picture/best_fit_picture_allocator.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {
namespace {

// Blocks are whole words.
constexpr std::size_t kBlockAlignment = 64;

long operations() {
    const char* text = std::getenv("VIDORRA_SOAK_OPERATIONS");
    return text != nullptr ? std::stol(text) : 200000;
}

// A picture whose whole block is filled with one number of its own.
class Marked {
public:
    Marked(Picture picture, std::uint64_t mark) : mPicture(std::move(picture)), mMark(mark) {
        const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
        mPicture.fillAVFrame(frame.get());
        mWords = reinterpret_cast<std::uint64_t*>(frame->buf[0]->data);
        mCount = static_cast<std::size_t>(frame->buf[0]->size) / sizeof(std::uint64_t);
        std::fill_n(mWords, mCount, mMark);
    }

    // Whether nobody else has written to the block.
    [[nodiscard]] bool intact() const {
        return std::all_of(mWords, mWords + mCount, [this](std::uint64_t word) { return word == mMark; });
    }

private:
    Picture mPicture;
    std::uint64_t mMark;
    std::uint64_t* mWords;
    std::size_t mCount;
};

// Where threads swap pictures, so that many are released on another thread than they were made on.
class Exchange {
public:
    std::optional<Marked> swap(std::size_t slot, std::optional<Marked> mine) {
        const std::lock_guard lock(mMutex);
        std::swap(mSlots[slot % mSlots.size()], mine);
        return mine;
    }

private:
    // Guards mSlots.
    std::mutex mMutex;
    std::array<std::optional<Marked>, 16> mSlots;
};

struct Totals {
    std::atomic<long> made{0};
    std::atomic<long> exhausted{0};
    std::atomic<long> damaged{0};
};

void work(unsigned seed, long count, BestFitPictureAllocator& allocator, Exchange& exchange, Totals& totals) {
    constexpr std::size_t kMostPictures = 12;
    std::mt19937 random(seed);
    std::vector<Marked> mine;
    std::uint64_t mark = std::uint64_t{seed} << 40;
    const auto release = [&](std::size_t index) {
        totals.damaged += mine[index].intact() ? 0 : 1;
        std::swap(mine[index], mine.back());
        mine.pop_back();
    };
    for (long i = 0; i < count; ++i) {
        const unsigned choice = random() % 100;
        if (choice < 50 && mine.size() < kMostPictures) {
            // A few shapes most of the time, any now and then.
            const Size size = random() % 8 != 0 ? Size{16 * static_cast<int>(1 + random() % 4), 32}
                                                : Size{static_cast<int>(1 + random() % 80),
                                                       static_cast<int>(1 + random() % 60)};
            const AVPixelFormat format = random() % 2 == 0 ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUVA420P;
            try {
                mine.emplace_back(allocator.allocate(size, format, AVCOL_RANGE_MPEG), ++mark);
                ++totals.made;
            } catch (const std::bad_alloc&) {
                ++totals.exhausted;
                if (!mine.empty()) {
                    release(random() % mine.size());
                }
            }
        } else if (choice < 60) {
            std::optional<Marked> given;
            if (!mine.empty()) {
                given = std::move(mine.back());
                mine.pop_back();
            }
            if (std::optional<Marked> taken = exchange.swap(random(), std::move(given))) {
                mine.push_back(std::move(*taken));
            }
        } else if (!mine.empty()) {
            release(random() % mine.size());
        }
    }
    while (!mine.empty()) {
        release(mine.size() - 1);
    }
}

TEST(BestFitPictureAllocatorSoak, NoBlockIsEverSharedAndAllComeBack) {
    constexpr unsigned kThreads = 4;
    const Region region(128 * 1024);
    BestFitPictureAllocator allocator(region.data(), region.size(), 32, kBlockAlignment, true);
    Totals totals;
    {
        Exchange exchange;
        std::vector<std::thread> threads;
        for (unsigned thread = 1; thread <= kThreads; ++thread) {
            threads.emplace_back(
                [&, thread] { work(thread, operations() / kThreads, allocator, exchange, totals); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (std::size_t slot = 0; slot < 16; ++slot) {
            if (const std::optional<Marked> left = exchange.swap(slot, std::nullopt)) {
                totals.damaged += left->intact() ? 0 : 1;
            }
        }
    }
    EXPECT_EQ(totals.damaged, 0);
    EXPECT_GT(totals.made, operations() / 5);
    EXPECT_GT(totals.exhausted, operations() / 1000);
    RecordProperty("made", std::to_string(totals.made));
    RecordProperty("exhausted", std::to_string(totals.exhausted));
    // All blocks have come back when the whole region fits into one again.
    const Size whole{1024, static_cast<int>(region.size() / 1024)};
    EXPECT_EQ(allocator.allocate(whole, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG).data()[0], region.data());
}

}  // namespace
}  // namespace vidorra::test
