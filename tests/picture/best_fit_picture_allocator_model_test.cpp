// Long random runs against a plain model of the allocator, which keeps offsets in place of addresses.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>
#include <vector>

#include "picture/region.h"
#include "vidorra/picture/best_fit_picture_allocator.h"

namespace vidorra::test {
namespace {

struct Shape {
    int width;
    int height;
    AVPixelFormat format;

    friend bool operator==(const Shape&, const Shape&) = default;
};

std::uint64_t alignedUp(std::uint64_t value, std::uint64_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

std::uint64_t imageSize(const Shape& shape, std::uint64_t lineAlignment) {
    const auto width = static_cast<std::uint64_t>(shape.width);
    const auto height = static_cast<std::uint64_t>(shape.height);
    const std::uint64_t chromaWidth = (width + 1) / 2;
    const std::uint64_t chromaHeight = (height + 1) / 2;
    const std::uint64_t luma = alignedUp(width, lineAlignment) * height;
    switch (shape.format) {
    case AV_PIX_FMT_GRAY8:
        return luma;
    case AV_PIX_FMT_YUV420P:
        return luma + 2 * alignedUp(chromaWidth, lineAlignment) * chromaHeight;
    case AV_PIX_FMT_NV12:
        return luma + alignedUp(2 * chromaWidth, lineAlignment) * chromaHeight;
    default:
        throw std::logic_error("no such shape");
    }
}

// How often each way to choose a block was used.
struct Ways {
    int sameShape = 0;
    int sameSize = 0;
    int fresh = 0;
    int soleSplit = 0;
    int soleSplitWithoutRest = 0;
    int whole = 0;
    int largestSplit = 0;
    int exhausted = 0;
    int joined = 0;
    int badRelease = 0;
};

class Model {
public:
    struct Block {
        std::uint64_t offset;
        std::uint64_t size;
        bool used;
        std::optional<Shape> shape;
    };

    Model(std::uint64_t begin, std::uint64_t end, std::uint64_t lineAlignment, std::uint64_t blockAlignment)
        : mBegin(begin),
          mNext(begin),
          mEnd(end),
          mLineAlignment(lineAlignment),
          mBlockAlignment(blockAlignment) {}

    // Nothing when the region is exhausted.
    std::optional<Block> take(const Shape& shape, Ways& ways) {
        const std::uint64_t size = alignedUp(imageSize(shape, mLineAlignment), mBlockAlignment);
        for (const auto block : candidates(size)) {
            if (block->shape == shape) {
                ++ways.sameShape;
                return mark(block, shape);
            }
        }
        for (const auto block : candidates(size)) {
            if (block->size == size) {
                ++ways.sameSize;
                return mark(block, shape);
            }
        }
        if (mNext + size <= mEnd) {
            ++ways.fresh;
            mBlocks.push_back({mNext, size, false, std::nullopt});
            mNext += size;
            return mark(std::prev(mBlocks.end()), shape);
        }
        join(ways);
        const auto found = candidates(size);
        if (found.empty()) {
            ++ways.exhausted;
            return std::nullopt;
        }
        if (found.size() == 1) {
            ++(found[0]->size == size ? ways.soleSplitWithoutRest : ways.soleSplit);
            return mark(cut(found[0], size), shape);
        }
        const auto [smallest, largest] = std::minmax_element(
            found.begin(), found.end(), [](const auto& a, const auto& b) { return a->size < b->size; });
        if ((*smallest)->size <= size * 120 / 100) {
            ++ways.whole;
            return mark(*smallest, shape);
        }
        ++ways.largestSplit;
        return mark(cut(*largest, size), shape);
    }

    // False when there is nothing to give back.
    bool give(std::uint64_t offset) {
        auto found = mBlocks.end();
        for (auto block = mBlocks.begin(); block != mBlocks.end(); ++block) {
            if (block->offset == offset) {
                found = block;
            }
        }
        if (found == mBlocks.end() || !found->used) {
            return false;
        }
        found->used = false;
        while (!mBlocks.empty() && !mBlocks.back().used) {
            mNext = mBlocks.back().offset;
            mBlocks.pop_back();
        }
        return true;
    }

    [[nodiscard]] bool invariantsHold() const {
        std::uint64_t position = mBegin;
        for (const Block& block : mBlocks) {
            if (block.offset != position || block.size % mBlockAlignment != 0) {
                return false;
            }
            position += block.size;
        }
        return position == mNext && mNext <= mEnd && (mBlocks.empty() || mBlocks.back().used);
    }

private:
    using Position = std::list<Block>::iterator;

    std::vector<Position> candidates(std::uint64_t size) {
        std::vector<Position> result;
        for (auto block = mBlocks.begin(); block != mBlocks.end(); ++block) {
            if (!block->used && block->size >= size) {
                result.push_back(block);
            }
        }
        return result;
    }

    static Block mark(Position block, const Shape& shape) {
        block->used = true;
        block->shape = shape;
        return *block;
    }

    Position cut(Position block, std::uint64_t size) {
        mBlocks.insert(std::next(block), {block->offset + size, block->size - size, false, std::nullopt});
        block->size = size;
        return block;
    }

    void join(Ways& ways) {
        for (auto block = mBlocks.begin(); block != mBlocks.end(); ++block) {
            while (!block->used && std::next(block) != mBlocks.end() && !std::next(block)->used) {
                block->size += std::next(block)->size;
                block->shape.reset();
                mBlocks.erase(std::next(block));
                ++ways.joined;
            }
        }
    }

    std::uint64_t mBegin;
    std::uint64_t mNext;
    std::uint64_t mEnd;
    std::uint64_t mLineAlignment;
    std::uint64_t mBlockAlignment;
    std::list<Block> mBlocks;
};

class RandomRun {
public:
    explicit RandomRun(unsigned seed) : mRandom(seed) {
        const std::uint64_t line = std::uint64_t{1} << pick(6);
        const std::uint64_t block = std::uint64_t{1} << pick(9);
        mAlignment = std::max(line, block);
        mLead = static_cast<std::uint64_t>(pick(300));
        const std::uint64_t size = mLead + mAlignment * static_cast<std::uint64_t>(8 + pick(40)) +
                                   static_cast<std::uint64_t>(pick(6000));
        mRegion.emplace(size);
        const std::uint64_t begin = alignedUp(mLead, mAlignment);
        mModel.emplace(begin, size, line, mAlignment);
        mAllocator.emplace(mRegion->data() + mLead, size - mLead, line, block, false);
        const std::vector<AVPixelFormat> formats = {AV_PIX_FMT_GRAY8, AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12};
        const int largest = 8 + pick(60);
        for (int i = 0; i < 8; ++i) {
            mShapes.push_back(
                {1 + pick(largest), 1 + pick(largest), formats[static_cast<std::size_t>(pick(3))]});
        }
        // The same size in another shape.
        mShapes.push_back({mShapes[0].height, mShapes[0].width, mShapes[0].format});
    }

    // Stops at the first difference.
    void go(int steps, Ways& ways) {
        for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE(testing::Message() << "step " << i);
            // Times of growth and times of decay.
            const int tendency = i / 50 % 2 == 0 ? 70 : 35;
            const int choice = pick(100);
            if (choice < 3) {
                giveWrongly(ways);
            } else if (choice < tendency || mLive.empty()) {
                take(ways);
            } else {
                give();
            }
            ASSERT_TRUE(mModel->invariantsHold());
        }
    }

private:
    int pick(int below) { return static_cast<int>(mRandom() % static_cast<unsigned>(below)); }

    [[nodiscard]] std::uint8_t* at(std::uint64_t offset) const { return mRegion->data() + offset; }

    void take(Ways& ways) {
        const Shape& shape = mShapes[static_cast<std::size_t>(pick(static_cast<int>(mShapes.size())))];
        const std::optional<Model::Block> expected = mModel->take(shape, ways);
        if (!expected) {
            EXPECT_THROW((void)mAllocator->findFreeBlock({shape.width, shape.height}, shape.format),
                         std::bad_alloc);
            return;
        }
        const auto block = mAllocator->findFreeBlock({shape.width, shape.height}, shape.format);
        ASSERT_EQ(block.data - mRegion->data(), static_cast<std::ptrdiff_t>(expected->offset));
        ASSERT_EQ(block.size, expected->size);
        EXPECT_TRUE(block.used);
        EXPECT_EQ(block.frameSize, (Size{shape.width, shape.height}));
        EXPECT_EQ(block.format, shape.format);

        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.data) % mAlignment, 0u);
        EXPECT_LE(expected->offset + block.size, mRegion->size());
        const auto [position, isNew] = mLive.emplace(expected->offset, block.size);
        ASSERT_TRUE(isNew);
        if (position != mLive.begin()) {
            EXPECT_LE(std::prev(position)->first + std::prev(position)->second, position->first);
        }
        if (std::next(position) != mLive.end()) {
            EXPECT_LE(position->first + position->second, std::next(position)->first);
        }
    }

    void give() {
        const auto block = std::next(mLive.begin(), pick(static_cast<int>(mLive.size())));
        ASSERT_TRUE(mModel->give(block->first));
        EXPECT_NO_THROW(mAllocator->deallocate(at(block->first)));
        mFormer.push_back(block->first);
        mLive.erase(block);
    }

    void giveWrongly(Ways& ways) {
        const std::uint64_t offset =
            mFormer.empty() || pick(2) == 0
                ? static_cast<std::uint64_t>(pick(static_cast<int>(mRegion->size())))
                : mFormer[static_cast<std::size_t>(pick(static_cast<int>(mFormer.size())))];
        if (mLive.contains(offset)) {
            return;
        }
        ++ways.badRelease;
        ASSERT_FALSE(mModel->give(offset));
        EXPECT_THROW(mAllocator->deallocate(at(offset)), std::runtime_error);
    }

    std::mt19937 mRandom;
    std::uint64_t mAlignment = 1;
    std::uint64_t mLead = 0;
    std::vector<Shape> mShapes;
    std::optional<Region> mRegion;
    std::optional<Model> mModel;
    std::optional<BestFitPictureAllocator> mAllocator;
    // Offset and size of the blocks that are handed out.
    std::map<std::uint64_t, std::uint64_t> mLive;
    std::vector<std::uint64_t> mFormer;
};

TEST(BestFitPictureAllocatorModel, AgreesInEveryStepOfRandomRuns) {
    Ways ways;
    for (unsigned seed = 1; seed <= 400 && !HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        RandomRun(seed).go(500, ways);
    }
    // The runs went all ways, often.
    EXPECT_GT(ways.sameShape, 1000);
    EXPECT_GT(ways.sameSize, 1000);
    EXPECT_GT(ways.fresh, 1000);
    EXPECT_GT(ways.soleSplit, 1000);
    EXPECT_GT(ways.soleSplitWithoutRest, 100);
    EXPECT_GT(ways.whole, 100);
    EXPECT_GT(ways.largestSplit, 1000);
    EXPECT_GT(ways.exhausted, 1000);
    EXPECT_GT(ways.joined, 1000);
    EXPECT_GT(ways.badRelease, 1000);
}

}  // namespace
}  // namespace vidorra::test
