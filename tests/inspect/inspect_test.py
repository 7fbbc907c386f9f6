#!/usr/bin/env python3
"""Compares what vidorra-inspect says of files with ffprobe.

    tests/inspect/inspect_test.py VIDORRA_INSPECT FOLDER
"""
import json
import pathlib
import subprocess
import sys

INSPECT, FOLDER = sys.argv[1], pathlib.Path(sys.argv[2])


def make(name, *arguments):
    path = FOLDER / name
    if not path.exists():
        FOLDER.mkdir(parents=True, exist_ok=True)
        unfinished = FOLDER / ("unfinished." + name)
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *arguments, str(unfinished)], check=True)
        unfinished.rename(path)
    return path


def inspect(path):
    return json.loads(subprocess.run([INSPECT, "--json", str(path)], check=True, capture_output=True, text=True).stdout)


def counted(path):
    """(kind, codec, frames) of each track, by ffprobe."""
    text = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-show_entries",
                           "stream=codec_type,codec_name,nb_read_frames:stream_disposition=attached_pic", "-of", "json",
                           str(path)], check=True, capture_output=True, text=True).stdout
    return [(s["codec_type"], s["codec_name"], int(s["nb_read_frames"])) for s in json.loads(text)["streams"]
            if not s["disposition"]["attached_pic"]]


PICTURE = ["-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=2"]
SOUND = ["-f", "lavfi", "-i", "sine=r=44100:d=2"]
clip = make("clip.mp4", *PICTURE, *SOUND, "-c:v", "libx264", "-bf", "2", "-g", "10", "-preset", "veryfast", "-color_range", "tv",
            "-colorspace", "bt709", "-vf", "setsar=4/3", "-c:a", "aac")
try:
    turned = make("turned.mp4", "-display_rotation", "-90", "-i", str(clip), "-c", "copy")
except subprocess.CalledProcessError:
    # FFmpeg before 6.
    turned = make("turned.mp4", "-i", str(clip), "-c", "copy", "-metadata:s:v", "rotate=90")
album = make("album.mp3", *SOUND, *PICTURE, "-map", "0", "-map", "1", "-frames:v", "1", "-c:v", "png", "-c:a", "libmp3lame",
             "-disposition:v", "attached_pic")
alpha = make("alpha.mov", *PICTURE, "-c:v", "qtrle", "-pix_fmt", "argb")
short = make("short.wav", "-f", "lavfi", "-i", "sine=r=44100:d=0.1")

for path in (clip, turned, album, alpha, short):
    report = inspect(path)
    got = [(track["kind"], track["codec"], track["frames"]) for track in report["tracks"]]
    assert got == counted(path), f"{path}: {got} and not {counted(path)}"
    assert all("error" not in track for track in report["tracks"]), report

report = inspect(clip)
video = report["tracks"][0]
assert video["framesLost"] == 2, video
assert video["keyFrameDistance"] == 10, video
assert (video["sampleAspect"], video["displayAspect"], video["rotation"]) == ("4:3", "16:9", 0), video
assert (video["colorRange"], video["colorSpace"], video["alpha"]) == ("tv", "bt709", False), video
assert report["settledReaders"]["becomesReady"] is True, report
# ffprobe counts counterclockwise.
probed = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "stream_side_data=rotation", "-of",
                         "csv=p=0", str(turned)], check=True, capture_output=True, text=True).stdout
rotation = inspect(turned)["tracks"][0]["rotation"]
assert rotation in (90, 270) and rotation == -int(probed.split(",")[0]) % 360, (rotation, probed)
assert inspect(alpha)["tracks"][0]["alpha"] is True
assert inspect(short)["settledReaders"]["becomesReady"] is False
report = inspect(album)
assert report["attachedPictures"] == 1 and len(report["tracks"]) == 1, report
assert report["settledReaders"]["loopGapSamples"] > 1000, report

people = subprocess.run([INSPECT, str(clip)], check=True, capture_output=True, text=True).stdout
assert "video 0: h264" in people and "frames 50" in people and "framesLost 2" in people, people
missing = subprocess.run([INSPECT, "/nowhere.mp4"], capture_output=True, text=True)
assert missing.returncode == 1 and "/nowhere.mp4" in missing.stderr and not missing.stdout, missing
assert subprocess.run([INSPECT], capture_output=True).returncode == 2
