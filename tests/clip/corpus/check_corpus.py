#!/usr/bin/env python3
"""Compares what ClipReader gives with what the ffmpeg program decodes, on a corpus that it makes.

    tests/clip/corpus/check_corpus.py CLIP_DUMP FOLDER [--quick] [--only REGEX] [--files FILE...]

For each file: every picture and every sample of one reading, five passes of a loop, in and out points, and the same through
byte sources. --quick takes
a few files of each kind. --files takes media files that are there already.
"""
import argparse
import dataclasses
import pathlib
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import media

PCM = {"u8": "u8", "s16": "s16le", "s32": "s32le", "flt": "f32le", "dbl": "f64le", "s64": "s64le"}
QUICK = r"^(bframes\.mp4|opengop\.mp4|vp9\.webm|edited\.mp4|adpcm_ms\.wav|cover\.mp3|cut\.mkv|aac\.mp4|mp3\.mp3|opus\.webm" \
        r"|vorbis\.ogg|picture\.png)$"

# Files below this many bytes are read byte by byte too.
SMALL = 50000


@dataclasses.dataclass
class Reading:
    """What clip_dump printed."""
    video: list = dataclasses.field(default_factory=list)  # (pass, time, duration, md5)
    audio: list = dataclasses.field(default_factory=list)  # (pass, time, samples, rate)
    format: str = ""
    sound: bytes = b""
    error: str = ""
    counters: str = ""
    lead: int = 0  # time of the first frame in the source


def read(dump, path, *arguments):
    with tempfile.NamedTemporaryFile() as sound:
        done = subprocess.run([dump, *arguments, "--sound", sound.name, path], capture_output=True, text=True, timeout=300)
        reading = Reading(sound=pathlib.Path(sound.name).read_bytes())
    for line in done.stdout.splitlines():
        kind, *fields = line.split(" ")
        if kind == "lead":
            reading.lead = int(fields[0])
        elif kind == "v":
            reading.video.append((int(fields[0]), int(fields[1]), int(fields[2]), fields[5]))
        elif kind == "a":
            reading.audio.append((int(fields[0]), int(fields[1]), int(fields[2]), int(fields[3]), int(fields[4])))
            reading.format = fields[5]
        elif kind == "error":
            reading.error = line
        elif kind == "counters":
            reading.counters = line
    if done.returncode not in (0, 1) or not (reading.error or reading.counters):
        reading.error = f"ended with {done.returncode}: {done.stderr[-300:]}"
    return reading


def run(*command):
    return subprocess.run(command, capture_output=True, timeout=300).stdout


def decoded_pictures(path, filters=()):
    """The hash of each picture, by the ffmpeg program."""
    return [md5 for _, md5 in placed_pictures(path, filters)]


def placed_pictures(path, filters=()):
    """The time of each picture in seconds, and its hash."""
    text = run("ffmpeg", "-nostdin", "-v", "error", "-threads", "1", "-noautorotate", "-copyts", "-i", path, "-map", "0:V:0",
               *(["-vf", ",".join(filters)] if filters else []), "-fps_mode", "passthrough", "-enc_time_base", "-1",
               "-avoid_negative_ts", "disabled", "-f", "framemd5", "-").decode()
    return placed(text)


def placed(text):
    """(time in seconds, hash) of the lines of framemd5."""
    base = re.search(r"^#tb 0: (\d+)/(\d+)", text, re.MULTILINE)
    lines = [line.split(",") for line in text.splitlines() if line and not line.startswith("#")]
    return [(int(fields[2]) * int(base[1]) / int(base[2]), fields[-1].strip()) for fields in lines]


def sound_times(path):
    """The time of each frame of sound in seconds, by the ffmpeg program."""
    text = run("ffmpeg", "-nostdin", "-v", "error", "-copyts", "-i", path, "-map", "0:a:0", "-avoid_negative_ts", "disabled", "-f", "framemd5", "-").decode()
    return [time for time, _ in placed(text)]


def decoded_sound(path, sample_format, filters=()):
    pcm = PCM[sample_format.rstrip("p")]
    return run("ffmpeg", "-nostdin", "-v", "error", "-copyts", "-i", path, "-map", "0:a:0",
               *(["-af", ",".join(filters)] if filters else []), "-c:a", f"pcm_{pcm}", "-f", pcm, "-")


def start_of(path):
    """Where the tracks start, which counts as 0."""
    text = run("ffprobe", "-v", "error", "-show_entries", "stream=codec_type,start_time:stream_disposition=attached_pic", "-of",
               "compact=p=0", path).decode()
    starts = []
    for line in text.splitlines():
        fields = dict(field.split("=", 1) for field in line.split("|") if "=" in field)
        if fields.get("codec_type") in ("audio", "video") and fields.get("disposition:attached_pic") != "1" \
                and fields.get("start_time", "N/A") != "N/A":
            starts.append(float(fields["start_time"]))
    return max(min(starts, default=0.0), 0.0)


def compare_sound(expected, reading, problems, what):
    if expected == reading.sound:
        return
    width = {"u8": 1, "s16": 2, "s32": 4, "flt": 4, "dbl": 8, "s64": 8}[reading.format.rstrip("p")] if reading.format else 1
    step = width * (reading.audio[0][4] if reading.audio else 1)
    first = next((i for i, (a, b) in enumerate(zip(expected, reading.sound)) if a != b), min(len(expected), len(reading.sound)))
    problems.append(f"{what}: {len(reading.sound) // step} samples instead of {len(expected) // step}, first different is "
                    f"{first // step}")


def compare_pictures(expected, got, problems, what):
    if expected == got:
        return
    first = next((i for i, (a, b) in enumerate(zip(expected, got)) if a != b), min(len(expected), len(got)))
    problems.append(f"{what}: {len(got)} pictures instead of {len(expected)}, first different is {first}")


def check_times(reading, problems, what):
    """Stamps rise, from 0 on, and sound lies end to end within a pass as far as it has to."""
    for name, frames in (("picture", reading.video), ("sound", reading.audio)):
        times = [frame[1] for frame in frames]
        if any(b <= a for a, b in zip(times, times[1:])):
            problems.append(f"{what}: the times of {name} do not rise")
        if times and times[0] < 0:
            problems.append(f"{what}: {name} begins at {times[0]}")
    first = min([frames[0][1] for frames in (reading.video, reading.audio) if frames], default=0)
    if first > 0:
        problems.append(f"{what}: begins at {first}")


def compare_times(expected, got, tolerance, start, problems, what):
    if len(expected) != len(got):
        return
    worst = max((abs(a - start - b / 1e6) for a, b in zip(expected, got)), default=0)
    if worst > tolerance:
        problems.append(f"whole: the times of {what} differ by up to {worst * 1e6:.0f} us")


def check_whole(dump, path, reading, problems):
    start = start_of(path)
    pictures = placed_pictures(path)
    compare_pictures([md5 for _, md5 in pictures], [frame[3] for frame in reading.video], problems, "whole")
    if not reading.counters.startswith("counters 0"):
        start = None
    if start is not None:
        compare_times([time for time, _ in pictures], [frame[1] for frame in reading.video], 2e-6, start + reading.lead / 1e6,
                      problems, "pictures")
    if reading.format:
        if start is not None:
            compare_times(sound_times(path), [frame[1] for frame in reading.audio], 1.1e-3, start + reading.lead / 1e6, problems,
                          "sound")
        compare_sound(decoded_sound(path, reading.format), reading, problems, "whole")
    elif run("ffmpeg", "-nostdin", "-v", "quiet", "-i", path, "-map", "0:a:0", "-f", "s16le", "-"):
        problems.append("whole: no sound")
    check_times(reading, problems, "whole")


def padding(path, reading):
    """The samples after the end of the last packet, in containers that count samples, by ffprobe."""
    if not reading.audio:
        return 0
    text = run("ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries", "stream=time_base:packet=pts,duration", "-of",
               "compact=p=0", path).decode()
    rate = reading.audio[0][3]
    packets = [dict(field.split("=", 1) for field in line.split("|") if "=" in field) for line in text.splitlines()]
    packets = [p for p in packets if p.get("pts", "N/A") != "N/A"]
    if f"time_base=1/{rate}" not in text or not packets or packets[-1].get("duration", "N/A") == "N/A":
        return 0
    last = reading.audio[-1]
    end = int(packets[-1]["pts"]) + int(packets[-1]["duration"])
    given = round((last[1] + reading.lead) * rate / 1e6 + start_of(path) * rate) + last[2]
    return given - end if 0 < given - end < last[2] else 0


def check_passes(dump, path, once, problems):
    passes = 5
    loop = read(dump, path, "--passes", str(passes))
    if loop.error:
        problems.append(f"passes: {loop.error}")
        return
    compare_pictures([frame[3] for frame in once.video] * passes, [frame[3] for frame in loop.video], problems, "passes")
    # Padding that the container tells of is cut between passes.
    samples = sum(frame[2] for frame in once.audio)
    step = len(once.sound) // samples if samples else 1
    between = once.sound[: (samples - padding(path, once)) * step]
    compare_sound(between * (passes - 1) + once.sound, loop, problems, "passes")
    check_times(loop, problems, "passes")
    ends = [0.0] * passes
    for number, time, duration, _ in loop.video:
        ends[number] = max(ends[number], time + duration)
    for number, time, samples, rate, _ in loop.audio:
        ends[number] = max(ends[number], time + samples * 1e6 / rate)
    for number in range(1, passes):
        begin = min(frame[1] for frame in loop.video + loop.audio if frame[0] == number)
        if abs(begin - ends[number - 1]) > 1.5:
            problems.append(f"passes: pass {number} begins at {begin} and not at {ends[number - 1]}")


def is_gapless(reading):
    """Whether the times of sound agree with the count of its samples."""
    count = 0
    for _, time, samples, rate, _ in reading.audio:
        if abs(time - reading.audio[0][1] - count * 1e6 / rate) > 2000:
            return False
        count += samples
    return True


def check_points(dump, path, once, problems):
    ends = [frame[1] + frame[2] for frame in once.video] + [f[1] + f[2] * 1e6 / f[3] for f in once.audio]
    length = max(ends, default=0) / 1e6
    start = start_of(path)
    for begin, end in ((0.52, 1.48), (0.3771, 0.9), (1.0, None)):
        if begin >= length:
            continue
        cut = read(dump, path, "--in", str(begin), *(["--out", str(end)] if end else []))
        what = f"from {begin} to {end}"
        if cut.error:
            problems.append(f"{what}: {cut.error}")
            continue
        points = f"start={begin + start}" + (f":end={end + start}" if end else "")
        # Stamps begin with the first frame, which can be later than the start of the source.
        lead = once.lead
        shown = [frame for frame in once.video if frame[1] + lead <= begin * 1e6 + 0.5]
        later = [frame for frame in once.video if frame[1] + lead > begin * 1e6 + 0.5]
        if shown and not later and shown[-1][1] + lead + shown[-1][2] <= begin * 1e6 + 0.5:
            shown = []
        own = [frame[3] for frame in shown[-1:] + later if end is None or frame[1] + lead < end * 1e6 - 0.5]
        # trim takes no picture that begins before the point.
        trimmed = decoded_pictures(path, [f"trim={points}"]) if once.video else []
        got = [frame[3] for frame in cut.video]
        if got != trimmed and got[1:] != trimmed:
            compare_pictures(trimmed, got, problems, f"{what}, against trim")
        compare_pictures(own, got, problems, f"{what}, against the whole")
        if once.audio:
            # Sound is counted by its samples; the stamps of many containers are rounded.
            first = round(((once.audio[0][1] + once.lead) / 1e6 + start) * once.audio[0][3])
            filters = [f"asetpts=round((N+{first})/SR/TB)"] if is_gapless(once) else []
            filters.append(f"atrim={points}")
            compare_sound(decoded_sound(path, once.format, filters), cut, problems, f"{what}, against atrim")
        check_times(cut, problems, what) if end else None


def check_sources(dump, path, once, problems):
    """Byte sources give what the file gives, however few bytes at a time."""
    sources = ["memory", "4096", "7"]  # in chunks of a mapped file
    if pathlib.Path(path).stat().st_size < SMALL:
        sources.append("1")
    for source in sources:
        reading = read(dump, path, "--source", source)
        if reading != once:
            problems.append(f"source {source}: {len(reading.video)} pictures, {len(reading.audio)} frames of sound; "
                            f"{reading.counters}{reading.error}")


def check(dump, path):
    problems = []
    path = str(path)
    once = read(dump, path)
    if once.error:
        problems.append(once.error)
        # What the ffmpeg program cannot open either is no file of the corpus.
        if subprocess.run(["ffprobe", "-v", "quiet", path]).returncode != 0:
            return once, []
    check_whole(dump, path, once, problems)
    if not once.error:
        check_passes(dump, path, once, problems)
        check_points(dump, path, once, problems)
        check_sources(dump, path, once, problems)
    return once, problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("dump")
    parser.add_argument("folder")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--files", nargs="*")
    arguments = parser.parse_args()
    if arguments.files:
        paths = [pathlib.Path(file) for file in arguments.files]
    else:
        chosen = [m for m in media.corpus() if re.search(QUICK if arguments.quick else arguments.only, m.name)]
        paths = [path for path in (media.make(m, arguments.folder) for m in chosen) if path]
    failures = 0
    with ThreadPoolExecutor(2) as pool:
        for path, (once, problems) in zip(paths, pool.map(lambda p: check(arguments.dump, p), paths)):
            failures += bool(problems)
            samples = sum(frame[2] for frame in once.audio)
            print(f"{'BAD ' if problems else 'ok  '} {path.name}: {len(once.video)} pictures, {samples} samples; {once.counters}",
                  flush=True)
            for problem in problems:
                print(f"       {problem}")
    print(f"{len(paths) - failures} of {len(paths)} files are equal")
    return 1 if failures or not paths else 0


if __name__ == "__main__":
    sys.exit(main())
