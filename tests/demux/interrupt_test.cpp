#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <thread>

#include "demux/calls.h"
#include "demux/clips.h"
#include "demux/decoders.h"
#include "demux/quiet_ffmpeg.h"
#include "support/log_capture.h"
#include "support/loopback_server.h"
#include "support/media.h"
#include "support/throw_text.h"

// interrupt() from another thread while FFmpeg waits for a socket.
namespace vidorra {
namespace {

using test::calls;
using test::LoopbackServer;

constexpr const char* kInterrupted = "Immediate exit requested";
constexpr int kTransportPacket = 188;

// The first part of a transport stream, in whole packets of it.
std::string firstPart(double part) {
    const std::string content = test::fileContent(test::fileOf("H264InTransportStream"));
    const auto size = static_cast<std::size_t>(static_cast<double>(content.size()) * part);
    return content.substr(0, size / kTransportPacket * kTransportPacket);
}

// Interrupts a source from another thread as soon as FFmpeg has read all data and waited in vain for more.
class InterrupterWhenBlocked {
public:
    InterrupterWhenBlocked(FormatContext& source, const LoopbackServer& server)
        : mServer(server), mThread([this, &source] {
              mBlocked.get_future().wait();
              source.interrupt();
          }) {}
    InterrupterWhenBlocked(const InterrupterWhenBlocked&) = delete;
    InterrupterWhenBlocked& operator=(const InterrupterWhenBlocked&) = delete;
    ~InterrupterWhenBlocked() {
        tellOnce();
        mThread.join();
    }

    bool sawBlock() const { return mSawBlock; }

private:
    void tellOnce() {
        if (!mTold) {
            mTold = true;
            mBlocked.set_value();
        }
    }

    int watchPoll(pollfd* descriptors, nfds_t count, int timeout) {
        const bool sentAll = mServer.sentAll();
        const int ready = calls().poll.real(descriptors, count, timeout);
        if (sentAll && ready == 0 && count == 1 && (descriptors->events & POLLIN) != 0) {
            mSawBlock = true;
            tellOnce();
        }
        return ready;
    }

    const LoopbackServer& mServer;
    std::promise<void> mBlocked;
    bool mTold = false;
    bool mSawBlock = false;
    test::Call<int(pollfd*, nfds_t, int)>::Replaced mPoll =
        calls().poll.replace([this](pollfd* descriptors, nfds_t count, int timeout) {
            return watchPoll(descriptors, count, timeout);
        });
    std::thread mThread;
};

// Reads until an exception, and returns the number of packets before it.
int readUntilInterrupted(FormatContext& source) {
    int packets = 0;
    try {
        for (; packets < 1000; ++packets) {
            EXPECT_GT(source.readPacket().size, 0);
        }
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(std::runtime_error));
        EXPECT_STREQ(error.what(), kInterrupted);
    }
    return packets;
}

class Interrupt : public testing::Test {
    const test::QuietFfmpeg mQuiet;
};

TEST_F(Interrupt, EndsABlockingReadWithFfmpegsText) {
    const LoopbackServer server(firstPart(0.5));
    FormatContext source;
    source.setUrl(server.url());
    source.setInterruptCallback();
    source.open("mpegts", false, std::chrono::seconds(1));
    const InterrupterWhenBlocked interrupter(source, server);
    EXPECT_GT(readUntilInterrupted(source), 10);
    EXPECT_TRUE(interrupter.sawBlock());
    EXPECT_FALSE(source.isEOF());
    EXPECT_TRUE(source.isOpened());
}

TEST_F(Interrupt, EndsABlockingReadOfASourceThatWasMoved) {
    const LoopbackServer server(firstPart(0.5));
    FormatContext first;
    first.setUrl(server.url());
    first.setInterruptCallback();
    first.open("mpegts", false, std::chrono::seconds(1));
    FormatContext source(std::move(first));
    const InterrupterWhenBlocked interrupter(source, server);
    EXPECT_GT(readUntilInterrupted(source), 10);
    EXPECT_TRUE(interrupter.sawBlock());
}

TEST_F(Interrupt, EndsABlockingReadOfASourceThatWasAssignedAndWhoseFirstOwnerHasGone) {
    const LoopbackServer server(firstPart(0.5));
    FormatContext source = test::opened(test::fileOf("PngSequence").string());
    {
        FormatContext first;
        first.setUrl(server.url());
        first.setInterruptCallback();
        first.open("mpegts", false, std::chrono::seconds(1));
        source = std::move(first);
    }
    const InterrupterWhenBlocked interrupter(source, server);
    EXPECT_GT(readUntilInterrupted(source), 10);
    EXPECT_TRUE(interrupter.sawBlock());
}

TEST_F(Interrupt, MakesABlockingOpenFail) {
    const LoopbackServer server("");
    FormatContext source;
    source.setUrl(server.url());
    source.setInterruptCallback();
    const InterrupterWhenBlocked interrupter(source, server);
    EXPECT_THROW_TEXT(std::runtime_error,
                      "can't open input file " + server.url() + " (#-1414092869: " + kInterrupted + ")",
                      source.open("", true, std::chrono::seconds(1)));
    EXPECT_TRUE(interrupter.sawBlock());
    EXPECT_FALSE(source.isOpened());
}

TEST_F(Interrupt, MakesABlockingSearchForStreamInformationFailOrTheFirstRead) {
    const LoopbackServer server(firstPart(0.2));
    FormatContext source;
    source.setUrl(server.url());
    source.setInterruptCallback();
    const InterrupterWhenBlocked interrupter(source, server);
    try {
        source.open("mpegts", true, std::chrono::seconds(60));
        // FFmpeg may treat the data so far as complete.
        readUntilInterrupted(source);
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(
            error.what(),
            ("can't find stream info of " + server.url() + " (#-1414092869: " + kInterrupted + ")").c_str());
    }
    EXPECT_TRUE(interrupter.sawBlock());
    EXPECT_TRUE(source.isOpened());
}

TEST_F(Interrupt, EveryReadFailsUntilTheSourceIsOpenedAgain) {
    const std::string file = test::fileOf("PngSequence").string();
    const LoopbackServer server(firstPart(0.5));
    FormatContext source;
    source.setUrl(server.url());
    source.setInterruptCallback();
    source.open("mpegts", false, std::chrono::seconds(1));
    {
        const InterrupterWhenBlocked interrupter(source, server);
        (void)readUntilInterrupted(source);
    }
    EXPECT_THROW_TEXT(std::runtime_error, kInterrupted, (void)source.readPacket());
    source.close();
    source.setUrl(file);
    source.open("", true, std::chrono::seconds(1));
    EXPECT_EQ(test::readAllPackets(source).size(), 30U);
}

TEST_F(Interrupt, TheFailedReadIsNoPacketInTheCount) {
    const LoopbackServer server(firstPart(0.5));
    FormatContext source;
    source.setUrl(server.url());
    source.setInterruptCallback();
    source.open("mpegts", false, std::chrono::seconds(1));
    int packets = 0;
    {
        const InterrupterWhenBlocked interrupter(source, server);
        packets = readUntilInterrupted(source);
    }
    const test::LogCapture log(5);
    source.close();
    EXPECT_THAT(log.texts(),
                testing::ElementsAre(server.url() + " closed, " + std::to_string(packets) + " packets read"));
}

}  // namespace
}  // namespace vidorra
