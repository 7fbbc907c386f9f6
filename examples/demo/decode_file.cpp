#include "decode_file.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <vector>

#include <vidorra/vidorra.h>

#include "progress_bar.h"
#include "stream_report.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace demo {
namespace {

/// One run over one file.
class FileDecoder {
public:
    FileDecoder(const Options& options, std::ostream& output) : mOptions(options), mOutput(output) {}

    FileFacts run() {
        open();
        const auto start = std::chrono::steady_clock::now();
        for (vidorra::Packet packet = mSource.readPacket(); !mSource.isEOF(); packet = mSource.readPacket()) {
            take(packet);
        }
        for (unsigned index = 0; index < mStreams.size(); ++index) {
            takeRest(index);
        }
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        mBar.clear();
        summarise(elapsed.count());
        return facts();
    }

private:
    void open() {
        mSource.setUrl(mOptions.file);
        mSource.open("", true, std::chrono::seconds(2));
        mOutput << mOptions.file << ": " << mSource.getAVFormatContext()->iformat->long_name;
        const std::int64_t duration = mSource.getAVFormatContext()->duration;
        if (duration != AV_NOPTS_VALUE && duration > 0) {
            mDuration = duration;
            mOutput << ", " << vidorra::Timestamp({}, duration) << " s";
        }
        mOutput << '\n';
        addNewStreams();
    }

    // Some formats show a stream when its first packet comes.
    void addNewStreams() {
        while (mStreams.size() < mSource.tracksNumber()) {
            const auto index = static_cast<unsigned>(mStreams.size());
            const AVMediaType type = mSource.trackAtIndex(index)->codecpar->codec_type;
            int& first = type == AVMEDIA_TYPE_VIDEO ? mFirstVideo : mFirstAudio;
            if (first < 0 && (type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO)) {
                first = static_cast<int>(index);
            }
            mStreams.emplace_back(mSource, index);
            mBar.clear();
            mOutput << "  " << mStreams.back().description() << '\n';
        }
    }

    void take(const vidorra::Packet& packet) {
        addNewStreams();
        StreamReport& stream = mStreams.at(static_cast<std::size_t>(packet.stream_index));
        stream.count(packet);
        noteEnd(packet);
        if (stream.isVideo()) {
            take(mSource.decodeVideoPacket(packet), stream);
        }
        showProgress(packet);
    }

    void take(const vidorra::VideoFrame& frame, StreamReport& stream) {
        if (frame.empty()) {
            return;
        }
        stream.count(frame);
        if (mOptions.verbose) {
            mOutput << frame << '\n';
        }
    }

    // A decoder that reorders frames keeps some until it is told that no packet follows.
    void takeRest(unsigned index) {
        const auto* decoder = dynamic_cast<vidorra::VideoDecoder*>(mSource.getCodecContext(index).get());
        if (decoder == nullptr || mStreams[index].packets() == 0) {
            return;
        }
        const AVPacket& noMore = vidorra::Packet();
        if (!decoder->send(noMore).ok) {
            return;
        }
        for (auto frame = decoder->receive(); frame; frame = decoder->receive()) {
            take(*frame, mStreams[index]);
            mKeptBack += static_cast<int>(index) == mFirstVideo ? 1 : 0;
        }
    }

    // A reader plays the first track of each type.
    void noteEnd(const vidorra::Packet& packet) {
        if (packet.stream_index == mFirstVideo || packet.stream_index == mFirstAudio) {
            mEnd = std::max(mEnd, packet.pts + packet.duration);
        }
    }

    [[nodiscard]] FileFacts facts() const {
        FileFacts result;
        result.hasVideo = mFirstVideo >= 0;
        result.hasAudio = mFirstAudio >= 0;
        result.length = static_cast<double>(mEnd) / 1e6;
        result.keptBack = mKeptBack;
        if (result.hasVideo) {
            const AVRational rate = mSource.trackAtIndex(static_cast<unsigned>(mFirstVideo))->avg_frame_rate;
            result.frameInterval = rate.num > 0 ? static_cast<double>(rate.den) / rate.num : 0.04;
        }
        return result;
    }

    void showProgress(const vidorra::Packet& packet) {
        if (mOptions.verbose || !mBar.isDue()) {
            return;
        }
        std::optional<double> done;
        if (mDuration && packet.pts != AV_NOPTS_VALUE) {
            mStart = mStart.value_or(packet.pts);
            done = static_cast<double>(packet.pts - *mStart) / static_cast<double>(*mDuration);
        }
        mBar.draw(done, fmt::format("{} frames", frames()));
    }

    [[nodiscard]] std::uint64_t frames() const {
        std::uint64_t count = 0;
        for (const StreamReport& stream : mStreams) {
            count += stream.frames();
        }
        return count;
    }

    void summarise(double seconds) const {
        bool hasVideo = false;
        mOutput << "seen:\n";
        for (const StreamReport& stream : mStreams) {
            mOutput << "  " << stream << '\n';
            hasVideo = hasVideo || (stream.isVideo() && stream.packets() > 0);
        }
        if (hasVideo && frames() == 0) {
            throw std::runtime_error(mOptions.file + ": no frame could be decoded");
        }
        mOutput << fmt::format("{} frames in {:.2f} s, {:.0f} a second\n", frames(), seconds,
                               static_cast<double>(frames()) / seconds);
    }

    const Options& mOptions;
    std::ostream& mOutput;
    vidorra::FormatContext mSource;
    std::vector<StreamReport> mStreams;
    ProgressBar mBar;
    std::optional<std::int64_t> mDuration;
    std::optional<std::int64_t> mStart;
    int mFirstVideo = -1;
    int mFirstAudio = -1;
    std::int64_t mEnd = 0;
    std::uint64_t mKeptBack = 0;
};

}  // namespace

FileFacts decodeFile(const Options& options, std::ostream& output) {
    return FileDecoder(options, output).run();
}

}  // namespace demo
