#include "mux/output_file.h"

#include <utility>

#include "core/log.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace vidorra {

OutputFile::OutputFile(const std::string& path, const WriterOptions& options)
    : mPlace(path), mContainer(path, options.format) {
    if (!mContainer.makesFiles()) {
        mFile = std::make_shared<WholeFile>(path, !options.whole);
        mSink = mFile;
        mPlace = mFile->workingPath();
    }
    mContainer.setOutput(mSink, mPlace);
    if (options.verify) {
        mVerification.emplace();
    }
}

OutputFile::OutputFile(std::shared_ptr<ByteSink> sink, const WriterOptions& options)
    : mPlace("the sink"), mSink(std::move(sink)), mContainer("", options.format) {
    mContainer.setOutput(mSink, mPlace);
}

void OutputFile::begin(const std::vector<const WriterTrack*>& tracks, const FileStart& start,
                       const WriterOptions& options) {
    mStreams.resize(tracks.size());
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        if (tracks[i] != nullptr) {
            AVStream& stream = mContainer.addStream();
            tracks[i]->describe(stream, start.zero);
            if (tracks[i]->hasForeignTag()) {
                mContainer.dropForeignTag(stream);
            }
            mStreams[i] = {stream.index, tracks[i]->timebase(), 0};
        }
    }
    mContainer.begin(options.container, options.fragmentDuration);
    mHasBegun = true;
    for (std::optional<Stream>& stream : mStreams) {
        if (stream) {
            const Timebase unit = mContainer.stream(stream->index).time_base;
            stream->shift = start.lead.rescale(unit).value - start.zero.rescale(unit).value;
        }
    }
}

void OutputFile::write(std::size_t track, Packet packet) {
    const Stream& stream = *mStreams[track];
    const AVStream& written = mContainer.stream(stream.index);
    av_packet_rescale_ts(&packet, stream.timebase, written.time_base);
    packet.pts += stream.shift;
    packet.dts += stream.shift;
    packet.stream_index = stream.index;
    if (mVerification) {
        mVerification->add(written, packet);
    }
    mContainer.write(std::move(packet));
}

void OutputFile::complete() {
    mHasEnded = true;
    mContainer.end();
    if (mSink) {
        mSink->close();
    }
    if (mVerification) {
        mVerification->compare(mPlace, mContainer.hasTimes());
    }
    if (mFile) {
        mFile->rename();
    }
}

void OutputFile::leave() noexcept {
    if (!mHasBegun && mFile) {
        mFile->discard();
    }
    if (!mHasBegun || mHasEnded) {
        return;
    }
    mHasEnded = true;
    try {
        mContainer.end();
        if (mFile) {
            mFile->close();
        }
    } catch (const std::exception& error) {
        logger::log(kLogDebug, "writer: ") << mPlace << " is not complete: " << error.what();
    } catch (...) {
        logger::log(kLogDebug, "writer: ") << mPlace << " is not complete";
    }
}

}  // namespace vidorra
