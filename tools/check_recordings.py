#!/usr/bin/env python3
"""Holds what MediaFileWriter writes against programs that we have not written: ffmpeg, ffprobe and mediainfo.

    tools/check_recordings.py PROBE [PART...] [--small] [--table FILE]

PROBE is the program recording_probe of a build. The parts, all by default:

    table     each pair of container and codec that the ffmpeg program writes, which the writer has to write as well:
              ffprobe and mediainfo find nothing to complain of that they do not find in ffmpeg's file, the number of
              frames and their times are right, and lossless codecs give back what went in
    offset    a flash and a beep at one time are at one time in the file, to the sample
    killed    a recording in fragments that is killed loses no more than the latest fragment
    full      a full disk, at many sizes, is an error, and leaves no file under the final name (as root)
    sink      a sink that fails at its n-th call, for each n, is an error
    late      two hours of sound before the first picture are refused within the bound of memory
    segments  a day of segments at 29.97 loses no frame and no sample, in constant memory

With --small a few cases of each, for the tests.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SIZES = {"dvvideo": (720, 576), "v210": (384, 288)}
RATE = 48000
LOSSLESS = {"ffv1", "huffyuv", "ffvhuff", "utvideo", "rawvideo", "png", "qtrle", "v210", "pcm_s16le", "pcm_s16be",
            "pcm_s24le", "flac", "alac", "wavpack", "tta", "truehd", "mlp", "s302m"}
VIDEO = ("libx264 libx265 mpeg4 mpeg2video mpeg1video mjpeg ffv1 huffyuv ffvhuff utvideo libvpx libvpx-vp9 libtheora "
         "prores_ks dnxhd rawvideo v210 flv wmv2 h263p dvvideo png qtrle cfhd jpeg2000 vc2 libaom-av1").split()
AUDIO = ("aac ac3 eac3 mp2 libmp3lame flac alac libopus libvorbis pcm_s16le pcm_s16be pcm_s24le pcm_f32le wavpack tta "
         "truehd dca wmav2 adpcm_ms pcm_alaw s302m mlp").split()
CONTAINERS = ("mp4 mov matroska webm mpegts avi nut mxf gxf flv asf ogg mpeg vob 3gp ipod ivf yuv4mpegpipe wtv wav w64 "
              "aiff caf flac mp3 adts ac3 eac3 mp2 au tta wv oga opus").split()
# The numbers of formats of 16 bits, for encoders that would choose 8.
SAMPLE_FORMATS = {"tta": 1, "wavpack": 6}
SMALL = {("mp4", "libx264"), ("mov", "prores_ks"), ("matroska", "ffv1"), ("mpegts", "mpeg2video"), ("mp4", "aac"),
         ("ogg", "libopus")}
OPTIONS = {"libx264": {"preset": "veryfast"}, "libx265": {"preset": "ultrafast", "x265-params": "log-level=error"},
           "libaom-av1": {"cpu-used": "8", "strict": "-2"}, "libvpx": {"deadline": "realtime"},
           "libvpx-vp9": {"deadline": "realtime", "cpu-used": "8"}, "dnxhd": {"profile": "dnxhr_hq"},
           "truehd": {"strict": "-2"}, "mlp": {"strict": "-2"}, "dca": {"strict": "-2"}, "vc2": {"strict": "-1"}}


def run(command, timeout=600, **arguments):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, timeout=timeout,
                          stdin=subprocess.DEVNULL, **arguments)


def ffmpeg(*arguments):
    return run(["ffmpeg", "-hide_banner", "-v", "error", "-y", *arguments])


def formats_of(encoder):
    found = re.search(r"Supported (?:pixel|sample) formats: (.*)", run(["ffmpeg", "-hide_banner", "-h",
                                                                        f"encoder={encoder}"]).stdout)
    return found.group(1).split() if found else []


class Workshop:
    def __init__(self, probe, folder, small):
        self.probe, self.folder, self.small = probe, folder, small
        self.pcm = folder / "sound.s16"
        ffmpeg("-f", "lavfi", "-i", f"anoisesrc=d=2:c=pink:r={RATE}:a=0.5:seed=7", "-ac", "2", "-f", "s16le", self.pcm)

    def pictures(self, encoder):
        """Raw pictures in a format that the encoder takes, with their format and size."""
        formats = formats_of(encoder)
        wanted = "yuv420p" if "yuv420p" in formats or not formats else formats[0]
        width, height = SIZES.get(encoder, (352, 288))
        path = self.folder / f"{wanted}_{width}.raw"
        if not path.exists():
            ffmpeg("-f", "lavfi", "-i", f"testsrc2=size={width}x{height}:rate=25:duration=1", "-pix_fmt", wanted, "-f",
                   "rawvideo", path)
        return path, wanted, width, height

    def record(self, **job):
        """Runs the probe; gives its result."""
        path = self.folder / f"{job.get('name', 'job')}.json"
        job.pop("name", None)
        path.write_text(json.dumps({key: str(value) if isinstance(value, pathlib.Path) else value
                                    for key, value in job.items()}))
        # A day of segments takes its time.
        return run([self.probe, path], timeout=7200)

    def video_job(self, encoder):
        raw, pix_fmt, width, height = self.pictures(encoder)
        config = {"codec": encoder, "width": width, "height": height, "timebase_num": 1, "timebase_den": 25,
                  "pix_fmt": pix_fmt, "options": {"g": "12", **OPTIONS.get(encoder, {})}}
        return {"video": config, "frames": raw, "count": 25}

    def audio_job(self, encoder, seconds=1.0):
        config = {"codec": encoder, "options": {"ar": str(RATE), "ac": "2", **OPTIONS.get(encoder, {})}}
        if encoder in SAMPLE_FORMATS:
            config["sample_fmt"] = SAMPLE_FORMATS[encoder]
        return {"audio": config, "samples": self.pcm, "seconds": seconds}


def packets(path, kind):
    """The sizes of all packets of the tracks of a kind."""
    return run(["ffprobe", "-v", "quiet", "-select_streams", kind, "-show_entries", "packet=size", "-of", "csv=p=0",
                path]).stdout.split()


def frame_times(path):
    text = run(["ffprobe", "-v", "quiet", "-select_streams", "v", "-show_entries", "frame=best_effort_timestamp_time",
                "-of", "csv=p=0", path]).stdout
    return [float(line.strip(",")) for line in text.split() if line.strip(",") not in ("", "N/A")]


def complaints(path):
    """What ffprobe and mediainfo say of a file, without what differs from run to run."""
    text = run(["ffprobe", "-v", "warning", "-count_frames", "-show_entries", "stream=nb_read_frames", path]).stderr
    lines = {re.sub(r" @ 0x[0-9a-f]+|-?\d+(\.\d+)?", "", line) for line in text.splitlines()}
    info = json.loads(run(["mediainfo", "--Output=JSON", path]).stdout or "{}")
    tracks = (info.get("media") or {}).get("track", [])
    for track in tracks:
        lines |= {f"mediainfo: {key}" for key in {**track, **track.get("extra", {})}
                  if re.match("IsTruncated|Conformance|Error", key)}
    return lines, sorted(track["@type"] for track in tracks)


def hashes(kind, pix_fmt, *source):
    how = ["-pix_fmt", pix_fmt] if kind == "v" else ["-c:a", "pcm_s32le" if pix_fmt == "24" else "pcm_s16le"]
    text = ffmpeg(*source, "-map", f"0:{kind}", "-vsync", "passthrough", *how, "-f",
                  "framehash" if kind == "v" else "hash", "-hash", "md5", "-").stdout
    return [line.split(",")[-1].strip() for line in text.splitlines() if not line.startswith("#")]


def duration(path):
    text = run(["ffprobe", "-v", "quiet", "-show_entries", "format=duration", "-of", "csv=p=0", path]).stdout.strip()
    return float(text) if text and text != "N/A" else None


def check_pair(workshop, container, encoder):
    """None for a pair that ffmpeg does not write, else what is wrong with ours, as a list."""
    is_video = encoder in VIDEO
    reference = workshop.folder / f"{container}_{encoder}.reference"
    ours = workshop.folder / f"{container}_{encoder}.ours"
    job = workshop.video_job(encoder) if is_video else workshop.audio_job(encoder)
    options = [part for key, value in (job["video"] if is_video else job["audio"])["options"].items()
               if key not in ("ar", "ac") for part in (f"-{key}", value)]
    if is_video:
        config = job["video"]
        source = ["-f", "rawvideo", "-pix_fmt", config["pix_fmt"], "-s", f"{config['width']}x{config['height']}", "-r", "25",
                  "-i", job["frames"]]
        coding = ["-c:v", encoder, "-color_range", "pc"]
    else:
        source = ["-f", "s16le", "-ar", RATE, "-ac", "2", "-t", "1", "-i", workshop.pcm]
        coding = ["-c:a", encoder]
    made = ffmpeg(*source, *coding, *options, "-strict", options[options.index("-strict") + 1] if "-strict" in options else
                  "-1", "-f", container, reference)
    kind = "v" if is_video else "a"
    if made.returncode != 0 or not packets(reference, kind):
        return None

    problems = []
    muxer = {"strict": "-2"} if "strict" in OPTIONS.get(encoder, {}) else {}
    result = workshop.record(name=f"{container}_{encoder}", out=ours, format=container, container=muxer, **job)
    if result.returncode != 0:
        return [f"not written: {(result.stdout + result.stderr).strip()[-300:]}"]
    (expected_lines, expected_tracks), (lines, tracks) = complaints(reference), complaints(ours)
    if lines - expected_lines:
        problems.append(f"complaints: {sorted(lines - expected_lines)}")
    if tracks != expected_tracks:
        problems.append(f"mediainfo sees {tracks}, not {expected_tracks}")
    counts = len(packets(ours, kind)), len(packets(reference, kind))
    if counts[0] != counts[1]:
        problems.append(f"{counts[0]} packets, not {counts[1]}")
    lengths = duration(ours), duration(reference)
    # ffprobe makes too little of some transport streams that do not begin at 0, as ffmpeg's do not.
    if None not in lengths and abs(lengths[0] - lengths[1]) > 0.05 and abs(lengths[0] - 1) > 0.05:
        problems.append(f"lasts {lengths[0]} s, not {lengths[1]} s")
    if is_video:
        times, expected = frame_times(ours), frame_times(reference)
        if [round(t - times[0], 2) for t in times] != [round(t - expected[0], 2) for t in expected]:
            problems.append(f"times {times[:3]}..., not {expected[:3]}...")
    if encoder in LOSSLESS:
        if is_video:
            found, wanted = hashes("v", job["video"]["pix_fmt"], "-i", ours), hashes("v", job["video"]["pix_fmt"], *source)
        else:
            found, wanted = hashes("a", "", "-i", ours), hashes("a", "", *source)
        # A container without a count of samples may add silence; ffmpeg's file has the same.
        if found != wanted and found != hashes(kind, job["video"]["pix_fmt"] if is_video else "", "-i", reference):
            problems.append("other content than went in")
        elif found != wanted:
            problems.append("(as ffmpeg) not what went in")
    for path in (reference, ours):
        path.unlink()
    return problems


def table(workshop, out):
    pairs = sorted(SMALL) if workshop.small else [(c, e) for c in CONTAINERS for e in VIDEO + AUDIO]
    for encoder in VIDEO:
        if any(pair[1] == encoder for pair in pairs):
            workshop.pictures(encoder)
    written = {}
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for pair, problems in zip(pairs, pool.map(lambda pair: check_pair(workshop, *pair), pairs)):
            if problems is not None:
                written[pair] = problems
                print(f"{pair[0]:14} {pair[1]:14} {'; '.join(problems) or 'ok'}", file=out, flush=True)
    wrong = [pair for pair, problems in written.items() if [p for p in problems if not p.startswith("(as ffmpeg)")]]
    yield f"table: {len(written)} pairs, {len(wrong)} wrong", len(written) >= (len(SMALL) if workshop.small else 40), wrong


def flash_and_beep(workshop):
    """50 pictures of 64x64, white ones at 12 and 37, and a burst of noise at the same times."""
    random.seed(3)
    frames = b"".join((b"\xff" if k in (12, 37) else b"\x10") * 4096 + b"\x80" * 2048 for k in range(50))
    burst = [random.randint(-20000, 20000) for _ in range(480)]
    sound = [0] * (2 * RATE)
    for k in (12, 37):
        start = k * RATE // 25
        sound[start:start + len(burst)] = burst
    (workshop.folder / "flash.yuv").write_bytes(frames)
    (workshop.folder / "beep.s16").write_bytes(b"".join(s.to_bytes(2, "little", signed=True) * 2 for s in sound))
    return burst


def offsets_in(path, burst):
    """By how many samples each beep is later than its flash."""
    text = ffmpeg("-i", path, "-map", "0:v", "-vsync", "passthrough", "-copyts", "-pix_fmt", "gray", "-f", "framecrc", "-").stdout
    rows = [line.split(",") for line in text.splitlines() if not line.startswith("#")]
    timebase = re.search(r"#tb 0: (\d+)/(\d+)", text)
    unit = int(timebase.group(1)) / int(timebase.group(2))
    raw = subprocess.run(["ffmpeg", "-v", "error", "-i", str(path), "-map", "0:v", "-vsync", "passthrough", "-pix_fmt", "gray", "-f",
                          "rawvideo", "-"], capture_output=True, check=True).stdout
    flashes = [round(int(row[2]) * unit * RATE) for k, row in enumerate(rows) if raw[k * 4096] > 128]
    pcm = subprocess.run(["ffmpeg", "-v", "error", "-i", str(path), "-map", "0:a", "-copyts", "-af",
                          f"aresample={RATE}:first_pts=0", "-ac", "1", "-f", "s16le", "-"], capture_output=True, check=True).stdout
    samples = memoryview(pcm).cast("h")
    found = []
    for flash in flashes:
        def likeness(shift):
            begin = flash + shift
            return sum(a * b for a, b in zip(burst, samples[max(begin, 0):begin + len(burst)]))
        found.append(max(range(-2000, 2001), key=likeness) if len(samples) else None)
    return found


def offset(workshop, out):
    burst = flash_and_beep(workshop)
    video = {"width": 64, "height": 64, "timebase_num": 1, "timebase_den": 25, "pix_fmt": "yuv420p"}
    cases = [("mp4", "libx264", "aac", {}), ("mp4", "libx264", "aac", {"fragment": 0}), ("mov", "mpeg4", "pcm_s16le", {}),
             ("matroska", "ffv1", "flac", {}), ("mpegts", "mpeg2video", "mp2", {}), ("nut", "ffv1", "pcm_s16le", {}),
             ("avi", "mpeg4", "pcm_s16le", {}), ("mxf", "mpeg2video", "pcm_s16le", {}), ("mp4", "mpeg4", "libmp3lame", {}),
             ("matroska", "libx264", "libopus", {}), ("mp4", "libx264", "flac", {"container": {"strict": "-2"}})]
    wrong = []
    for container, encoder, sound, more in cases[:3] if workshop.small else cases:
        path = workshop.folder / f"offset.{container}"
        config = {**video, "codec": encoder, "options": {"g": "10", **({"b": "2000000"} if encoder.startswith("mpeg") else {}), **OPTIONS.get(encoder, {})}}
        result = workshop.record(out=path, format=container, video=config, frames=workshop.folder / "flash.yuv", count=50,
                                 audio={"codec": sound, "options": {"ar": str(RATE), "ac": "2"}},
                                 samples=workshop.folder / "beep.s16", seconds=2.0, **more)
        found = offsets_in(path, burst) if result.returncode == 0 else [result.stderr]
        # Matroska counts milliseconds.
        allowed = RATE // 1000 if container == "matroska" else 0
        print(f"offset {container:10} {encoder:12} {sound:12} {more or ''}: {found} samples", file=out)
        if len(found) != 2 or any(not isinstance(o, int) or abs(o) > allowed for o in found):
            wrong.append((container, encoder, sound, found))
    yield f"offset: {len(cases[:3] if workshop.small else cases)} recordings, {len(wrong)} wrong", True, wrong


def killed(workshop, out):
    random.seed(5)
    runs, wrong, lost = (3 if workshop.small else 300), [], []
    job = workshop.video_job("mpeg4")
    job["video"]["options"]["b"] = "300000"
    job["count"] = 1000000
    path = workshop.folder / "job_killed.json"
    target = workshop.folder / "killed.mp4"
    path.write_text(json.dumps({"out": str(target), "fragment": 0, "counted": 1, **job, "frames": str(job["frames"]),
                                **workshop.audio_job("aac", 40000.0), "samples": str(workshop.pcm)}))
    part = pathlib.Path(f"{target}.part")
    for _ in range(runs):
        part.unlink(missing_ok=True)
        with subprocess.Popen([workshop.probe, path], stdout=subprocess.PIPE) as process:
            os.read(process.stdout.fileno(), 1)
            time.sleep(random.uniform(0.0, 0.25))
            process.send_signal(signal.SIGKILL)
            written = 1 + len(process.stdout.read())
        there = len(packets(part, "v"))
        result = ffmpeg("-i", part, "-map", "0:v", "-f", "null", "-")
        lost.append(written - there)
        # The fragment that is under way, which the first picture of the next one would complete, and two pictures that
        # wait for their duration and for the sound.
        if written - there > 12 + 3 or (there > 0 and "moov atom" in result.stderr):
            wrong.append((written, there, result.stderr[-200:]))
        if target.exists():
            wrong.append("a file under the final name")
    print(f"killed: pictures lost of fragments of 12: at most {max(lost)}, mean {sum(lost) / len(lost):.1f}", file=out)
    yield f"killed: {runs} recordings, at most {max(lost)} pictures lost, {len(wrong)} wrong", True, wrong


def full(workshop, out):
    if os.geteuid() != 0:
        yield "full: not run, which takes root", True, []
        return
    place, wrong = workshop.folder / "disk", []
    place.mkdir()
    job = {**workshop.video_job("mjpeg"), **workshop.audio_job("pcm_s16le")}
    device = workshop.record(name="full", out="/dev/full", format="matroska", **job)
    if device.returncode == 0 or "No space left" not in device.stderr:
        wrong.append(("/dev/full", device.stderr))
    sizes = range(1, 5) if workshop.small else range(1, 201)
    failures = 0
    for size in sizes:
        mounted = run(["mount", "-t", "tmpfs", "-o", f"size={size * 4}k", "tmpfs", place])
        if mounted.returncode != 0:
            yield "full: not run, no file system can be mounted here", True, []
            return
        try:
            for name in ("a.mov", "a.mkv") if size % 2 else ("a.avi", "a.ts"):
                result = workshop.record(name="full", out=place / name, **job) if name != "a.ts" else workshop.record(
                    name="full", out=place / name, **workshop.video_job("mpeg2video"))
                whole = (place / name).exists()
                failures += result.returncode != 0
                if whole != (result.returncode == 0) or (result.returncode != 0 and
                                                         not ("No space left" in result.stderr and ".part" in result.stderr)):
                    wrong.append((size, name, result.returncode, result.stderr[-200:]))
                for left in place.iterdir():
                    left.unlink()
        finally:
            run(["umount", place])
    print(f"full: {failures} failures on {len(sizes)} sizes", file=out)
    yield f"full: {len(sizes)} sizes, {failures} recordings failed as they have to, {len(wrong)} wrong", failures > 0, wrong


def sink(workshop, out):
    wrong, total = [], 0
    for container in ("mp4",) if workshop.small else ("mp4", "matroska", "mpegts", "avi", "mxf", "ogg"):
        video = {"mxf": "mpeg2video", "mpegts": "mpeg2video", "ogg": "libtheora"}.get(container, "mpeg4")
        sound = {"mxf": "pcm_s16le", "mpegts": "mp2", "ogg": "libvorbis"}.get(container, "aac")
        job = {**workshop.video_job(video), **workshop.audio_job(sound), "format": container}
        if workshop.small:
            job["count"], job["seconds"] = 6, 0.2
        whole = workshop.record(name="sink", throwAt=0, **job)
        calls = int(re.search(r"calls (\d+)", whole.stdout).group(1))
        # The tests of the writer try each call as well.
        tried = sorted({*range(1, calls + 1, 5 if workshop.small else 1), calls})
        total += len(tried)
        for n in tried:
            result = workshop.record(name="sink", throwAt=n, **job)
            if result.returncode != 1 or "the sink fails" not in result.stderr:
                wrong.append((container, n, result.returncode, result.stderr[-200:]))
    print(f"sink: {total} calls", file=out)
    yield f"sink: failing at {total} calls, {len(wrong)} wrong", total > 5, wrong


def late(workshop, out):
    hours = 0.05 if workshop.small else 2.0
    job = workshop.audio_job("pcm_s16le", hours * 3600)
    video = workshop.video_job("mpeg4")
    # The pictures begin when the sound has ended: the probe writes in the order of time, so their unit is long.
    video["video"].update(timebase_num=1, timebase_den=25)
    result = workshop.record(
        name="late", out=workshop.folder / "late.mov", soundFirst=1, mostWaiting=(1 << 20) if workshop.small else (64 << 20),
        **job, **video)
    resident = re.search(r"resident (\d+)", result.stderr)
    most = int(resident.group(1)) if resident else 1 << 30
    print(f"late: {result.stderr.strip()}", file=out)
    good = result.returncode == 1 and "track 0 (mpeg4) lags" in result.stderr and most < 200 * 1024
    yield f"late: {result.stderr.strip().splitlines()[-1] if result.stderr else 'no error'}", good, []


def segments(workshop, out):
    hours = 0.02 if workshop.small else 24.0
    frames = int(hours * 3600 * 30000 / 1001)
    raw = workshop.folder / "tiny.yuv"
    raw.write_bytes(bytes(range(256)) * 3)
    place = workshop.folder / "segments"
    place.mkdir()
    video = {"codec": "mpeg4", "width": 32, "height": 16, "timebase_num": 1001, "timebase_den": 30000,
             "options": {"g": "60", "b": "100000"}}
    result = workshop.record(name="segments", out=place / "s%06d.ts", playlist=place / "index.m3u8", segment=6000000, video=video,
                             frames=raw, count=frames, audio={"codec": "mp2", "options": {"ar": str(RATE), "ac": "2", "b": "64000"}},
                             samples=workshop.pcm, seconds=frames * 1001 / 30000)
    if result.returncode != 0:
        yield f"segments: {result.stderr}", False, []
        return
    wrong = []
    summary = re.search(r"files (\d+) .* resident (\d+) (\d+)", result.stdout)
    count, quarter, end = (int(group) for group in summary.groups()) if summary else (0, 0, 0)
    samples = round(frames * 1001 / 30000 * RATE)
    # One after the other they are one transport stream.
    with subprocess.Popen(["cat", *sorted(place.glob("*.ts"))], stdout=subprocess.PIPE) as all_files:
        text = subprocess.run(["ffprobe", "-v", "quiet", "-show_entries", "packet=codec_type", "-of", "csv=p=0", "-i", "pipe:"],
                              stdin=all_files.stdout, capture_output=True, text=True, check=False).stdout
    read = {"v": text.count("video"), "a": text.count("audio")}
    expected = {"v": frames, "a": -(-samples // 1152)}
    if read != expected:
        wrong.append((read, expected))
    listed = (place / "index.m3u8").read_text()
    lengths = [float(found) for found in re.findall(r"EXTINF:([\d.]+)", listed)]
    if len(lengths) != count or abs(sum(lengths) - frames * 1001 / 30000) > 0.1 or "ENDLIST" not in listed:
        wrong.append((len(lengths), count, sum(lengths)))
    if end > quarter * 1.1 + 4096:
        wrong.append(f"memory grew from {quarter} to {end} KiB")
    shutil.rmtree(place)
    print(f"segments: {result.stdout}", file=out)
    yield (f"segments: {hours} h in {count} files, {read['v']} of {expected['v']} pictures and {read['a']} of {expected['a']} frames "
           f"of sound, memory {quarter} KiB after a quarter and {end} KiB at the end, {len(wrong)} wrong"), count > 5, wrong


PARTS = {function.__name__: function for function in (table, offset, killed, full, sink, late, segments)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("probe", type=pathlib.Path)
    parser.add_argument("parts", nargs="*", metavar="PART")
    parser.add_argument("--small", action="store_true")
    parser.add_argument("--table", type=pathlib.Path, help="where the details go; stdout by default")
    arguments = parser.parse_intermixed_args()
    failed = False
    with tempfile.TemporaryDirectory() as folder, (arguments.table.open("w") if arguments.table else
                                                   os.fdopen(os.dup(1), "w")) as out:
        workshop = Workshop(arguments.probe.resolve(), pathlib.Path(folder), arguments.small)
        for name in arguments.parts or PARTS:
            for text, enough, wrong in PARTS[name](workshop, out):
                out.flush()
                print(text, flush=True)
                for problem in wrong:
                    print(f"  {problem}", flush=True)
                failed = failed or bool(wrong) or not enough
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
