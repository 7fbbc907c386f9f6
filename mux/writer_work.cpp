#include "mux/writer_work.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace vidorra {
namespace {

// Compared as times: the operators of Timestamp leave numerators out.
bool isBefore(const Timestamp& a, const Timestamp& b) {
    return av_compare_ts(a.value, a.timebase, b.value, b.timebase) < 0;
}

Timestamp maximum(const Timestamp& a, const Timestamp& b) {
    return a.isNull || (!b.isNull && isBefore(a, b)) ? b : a;
}

std::int64_t microsecondsBetween(const Timestamp& begin, const Timestamp& end) {
    return end.rescale(Timebase()).value - begin.rescale(Timebase()).value;
}

void require(bool condition, const char* text) {
    if (!condition) {
        throw std::invalid_argument(text);
    }
}

}  // namespace

MediaFileWriter::Work::Work(const std::string& path, WriterOptions options)
    : mPath(path), mOptions(std::move(options)) {
    const Container probe(path, mOptions.format);
    // From here on each file has the container of the first path.
    mOptions.format = probe.formatName();
    require(!mOptions.fragmentDuration || probe.hasFragments(), "only MP4 and MOV have fragments");
    require(!hasSegments() || !probe.makesFiles(), "the container makes files by itself, and no segments");
    require(mOptions.playlist.empty() || (hasSegments() && mOptions.format == "mpegts"),
            "a playlist needs segments, in MPEG-TS");
    for (const auto& [name, value] : mOptions.container) {
        if (!probe.hasOption(name)) {
            throw std::invalid_argument(fmt::format("{} has no option {}", mOptions.format, name));
        }
    }
    if (hasSegments()) {
        require(mOptions.segmentName || !segmentPath(0, {}).empty(),
                "the path of segments needs a %d for their number");
        if (!mOptions.playlist.empty()) {
            mPlaylist.emplace(mOptions.playlist);
        }
    } else {
        mFilePath = path;
        mFile.emplace(path, mOptions);
    }
}

MediaFileWriter::Work::Work(std::shared_ptr<ByteSink> sink, WriterOptions options)
    : mPath("the sink"), mOptions(std::move(options)) {
    require(sink != nullptr, "the sink is null");
    require(!mOptions.format.empty(), "a sink needs the name of a format");
    require(!hasSegments() && mOptions.playlist.empty(), "a sink takes no segments");
    require(!mOptions.verify, "a sink cannot be read back");
    const Container probe("", mOptions.format);
    require(!probe.makesFiles(), "the container makes files by itself, and takes no sink");
    require(!mOptions.fragmentDuration || probe.hasFragments(), "only MP4 and MOV have fragments");
    for (const auto& [name, value] : mOptions.container) {
        if (!probe.hasOption(name)) {
            throw std::invalid_argument(fmt::format("{} has no option {}", mOptions.format, name));
        }
    }
    mFile.emplace(std::move(sink), mOptions);
}

MediaFileWriter::Work::~Work() {
    if (mState != State::Open) {
        return;
    }
    try {
        for (std::size_t i = 0; i < mTracks.size(); ++i) {
            endTrack(i);
        }
    } catch (const Refusal&) {
        // Nothing is refused at the end.
    } catch (const TrackFailure& failure) {
        logger::log(kLogError, "writer: ")
            << mPath << ": " << failure.step << ": " << failure.error.toString();
    } catch (const std::exception& error) {
        logger::log(kLogError, "writer: ") << mPath << ": " << error.what();
    } catch (...) {
        logger::log(kLogError, "writer: ") << mPath << ": cannot be written";
    }
    if (mFile) {
        if (mFile->hasBegun()) {
            logger::log(kLogWarning, "writer: ")
                << mPath << ": ended without finish(), left in " << mFile->place();
        }
        mFile->leave();
    }
}

EncoderNeeds MediaFileWriter::Work::encoderNeeds() const {
    return {Container(mPath, mOptions.format).wantsGlobalHeader(), hasSegments()};
}

void MediaFileWriter::Work::requireOpen() const {
    if (mState != State::Open) {
        throw std::logic_error(
            fmt::format("{}: the writer has {}", mPath, mState == State::Failed ? "failed" : "finished"));
    }
}

void MediaFileWriter::Work::requireInput(std::size_t track) const {
    requireOpen();
    if (track >= mTracks.size()) {
        throw std::out_of_range(fmt::format("{}: there is no track {}", mPath, track));
    }
    if (mHasEnded[track]) {
        throw std::logic_error(mTracks[track]->name() + " has ended");
    }
}

void MediaFileWriter::Work::requireRoom(std::size_t track) const {
    if (mInterleaver.waiting() < mOptions.mostWaiting) {
        return;
    }
    const std::optional<std::size_t> lagging = mInterleaver.lagging();
    if (lagging && *lagging != track) {
        throw std::runtime_error(
            fmt::format("{} lags: {} bytes of other tracks wait for it, up to {}; write to it or end() it",
                        mTracks[*lagging]->name(), mInterleaver.waiting(), latest().debugDescription()));
    }
}

void MediaFileWriter::Work::reportProgress() const {
    if (mOptions.progress) {
        mOptions.progress(mTaken, mWrittenUpTo);
    }
}

void MediaFileWriter::Work::rethrowFailure() {
    mState = State::Failed;
    const std::string place = mFile ? mFile->place() : mPath;
    if (mFile) {
        mFile->leave();
        mFile.reset();
    }
    try {
        throw;
    } catch (const TrackFailure& failure) {
        throw FFmpegError(failure.error, fmt::format("{}, which leaves {} incomplete:", failure.step, place));
    }
}

void MediaFileWriter::Work::end(std::size_t track) {
    requireInput(track);
    mHasInput = true;
    guard([&] { endTrack(track); });
}

void MediaFileWriter::Work::endTrack(std::size_t track) {
    if (!mHasEnded[track]) {
        mHasEnded[track] = true;
        mTracks[track]->end();
        mInterleaver.end(track);
        pump();
    }
}

void MediaFileWriter::Work::take(std::size_t track, Packet packet) {
    mInterleaver.add(track, std::move(packet));
    pump();
}

void MediaFileWriter::Work::pump() {
    while (const std::optional<std::size_t> next = mInterleaver.next(mCut)) {
        const Packet* first = mInterleaver.first(*next);
        if (mWritten.empty()) {
            begin();
        }
        if (mCut && mCut->track == *next) {
            startSegment(mCut->time);
            mCut.reset();
        } else if (!mCut && isCutBefore(*next, *first)) {
            mCut = {*next, Timestamp(mTracks[*next]->timebase(), first->pts)};
            continue;
        }
        mWrittenUpTo = Timestamp(mTracks[*next]->timebase(), first->dts);
        mFile->write(*next, mInterleaver.take(*next));
    }
}

Timestamp MediaFileWriter::Work::earliest() const {
    Timestamp found;
    for (const auto& track : mTracks) {
        Timestamp begin = track->report().begin;
        // Packets from before 0 are a codec's lead-in, which containers do not show.
        if (track->report().frames == 0) {
            begin.value = std::max<std::int64_t>(begin.value, 0);
        }
        if (!begin.isNull && track->isWaitedFor() && (found.isNull || isBefore(begin, found))) {
            found = begin;
        }
    }
    return found.isNull ? Timestamp(Timebase(), 0) : found;
}

Timestamp MediaFileWriter::Work::latest() const {
    Timestamp found;
    for (const auto& track : mTracks) {
        found = maximum(found, track->report().end);
    }
    return found;
}

// The first packets of the tracks are at hand.
FileStart MediaFileWriter::Work::startAt(const Timestamp& zero) const {
    Timestamp lead(Timebase(), 0);
    if (mFile->container().takesNegativeTimes()) {
        return {zero, lead};
    }
    for (std::size_t i = 0; i < mTracks.size(); ++i) {
        if (const Packet* first = mInterleaver.first(i)) {
            const Timebase unit = mTracks[i]->timebase();
            const std::int64_t time = mFile->container().storesDecodingTimes() ? first->dts : first->pts;
            lead = maximum(lead, Timestamp(unit, zero.rescale(unit).value - time));
        }
    }
    return {zero, lead};
}

void MediaFileWriter::Work::begin() {
    for (std::size_t i = 0; i < mTracks.size(); ++i) {
        const bool isWritten = mInterleaver.first(i) != nullptr || !mTracks[i]->isWaitedFor();
        mWritten.push_back(isWritten ? mTracks[i].get() : nullptr);
        if (!isWritten) {
            logger::log(kLogWarning, "writer: ")
                << mPath << ": " << mTracks[i]->name() << " is empty and left out";
        }
    }
    mSegmentStart = earliest();
    if (hasSegments()) {
        mFilePath = segmentPath(0, mSegmentStart);
        mFile.emplace(mFilePath, mOptions);
    }
    mStart = startAt(mSegmentStart);
    mFile->begin(mWritten, mStart, mOptions);
}

std::size_t MediaFileWriter::Work::cuttingTrack() const {
    const auto found =
        std::find_if(mTracks.begin(), mTracks.end(), [](const auto& track) { return track->hasPictures(); });
    return found != mTracks.end() ? static_cast<std::size_t>(found - mTracks.begin()) : 0;
}

bool MediaFileWriter::Work::isCutBefore(std::size_t track, const Packet& packet) const {
    return hasSegments() && track == cuttingTrack() && packet.isKeyFrame() &&
           microsecondsBetween(mSegmentStart, {mTracks[track]->timebase(), packet.pts}) >=
               mOptions.segmentDuration.count();
}

std::string MediaFileWriter::Work::segmentPath(std::uint64_t number, const Timestamp& start) const {
    if (mOptions.segmentName) {
        return mOptions.segmentName(number, start);
    }
    std::array<char, 4096> path{};
    const int code = av_get_frame_filename(path.data(), static_cast<int>(path.size()), mPath.c_str(),
                                           static_cast<int>(number));
    return code >= 0 ? path.data() : "";
}

void MediaFileWriter::Work::startSegment(const Timestamp& start) {
    completeFile(start);
    mSegmentStart = start;
    mFilePath = segmentPath(mFiles.size(), start);
    mFile.emplace(mFilePath, mOptions);
    mFile->begin(mWritten, mPlaylist ? mStart : startAt(start), mOptions);
}

void MediaFileWriter::Work::completeFile(const Timestamp& end) {
    mFile->complete();
    if (!mFilePath.empty()) {
        mFiles.push_back(mFilePath);
    }
    if (mPlaylist) {
        mPlaylist->add(mFilePath, microsecondsBetween(mSegmentStart, end));
    }
}

WriterReport MediaFileWriter::Work::finish() {
    requireOpen();
    guard([&] {
        for (std::size_t i = 0; i < mTracks.size(); ++i) {
            endTrack(i);
        }
        if (mWritten.empty()) {
            throw std::runtime_error(mPath + ": nothing was written");
        }
        completeFile(latest());
        if (mPlaylist) {
            mPlaylist->end();
        }
    });
    mState = State::Finished;
    WriterReport report;
    for (const auto& track : mTracks) {
        report.tracks.push_back(track->report());
    }
    report.files = mFiles;
    report.mostWaiting = mInterleaver.mostWaiting();
    return report;
}

}  // namespace vidorra
