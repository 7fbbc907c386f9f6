"""The corpus: short media files of many containers and codecs, made by the ffmpeg program, with what is hard in them."""
import dataclasses
import hashlib
import os
import pathlib
import re
import shutil
import subprocess


@dataclasses.dataclass
class Media:
    name: str
    arguments: list
    # Of the file that ffmpeg made, as a share of its size; the rest is cut off.
    keep: float = 1.0
    # A loop is compared pass by pass only when the source can be opened again.
    group: str = ""


def _picture(size="96x64", rate="25", seconds=2.04):
    return ["-f", "lavfi", "-i", f"testsrc2=s={size}:r={rate}:d={seconds}"]


def _sound(rate=48000, layout="stereo", seconds=1.93):
    channels = {"mono": 1, "stereo": 2, "5.1": 6}[layout]
    expressions = "|".join(f"{0.5 - 0.05 * i}*sin(2*PI*({300 + 110 * i}+{400 - 60 * i}*t)*t)+0.05*(random({i})-0.5)"
                           for i in range(channels))
    return ["-f", "lavfi", "-i", f"aevalsrc=exprs={expressions}:s={rate}:c={layout}:d={seconds}"]


X264 = ["-c:v", "libx264", "-preset", "veryfast", "-threads", "1"]
X265 = ["-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none:pools=1:frame-threads=1"]
VP9 = ["-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-b:v", "300k"]
MPEG2 = ["-c:v", "mpeg2video", "-b:v", "800k"]
AAC = ["-c:a", "aac"]


def _both(name, *codecs, **sources):
    rate = sources.pop("rate", 48000)
    layout = sources.pop("layout", "stereo")
    return Media(name, _picture(**sources) + _sound(rate, layout) + [a for codec in codecs for a in codec])


def _video(name, *codecs, **sources):
    return Media(name, _picture(**sources) + [a for codec in codecs for a in codec])


def _audio(name, *codecs, rate=48000, layout="stereo", seconds=1.93):
    return Media(name, _sound(rate, layout, seconds) + [a for codec in codecs for a in codec])


def _lossy(extension):
    """The sound codecs that a container takes, each by itself."""
    takes = {
        "mp4": "aac mp3 opus vorbis flac ac3 mp2", "mov": "aac mp3 ac3 pcm alac", "mkv": "aac mp3 opus vorbis flac ac3 pcm mp2",
        "mka": "aac opus", "webm": "opus vorbis", "ogg": "opus vorbis flac", "oga": "flac vorbis", "opus": "opus",
        "ts": "aac mp3 ac3 mp2 opus", "avi": "mp3 ac3 pcm mp2 aac", "flv": "aac mp3", "mpg": "mp2 ac3", "m4a": "aac alac",
        "mp3": "mp3", "aac": "aac", "ac3": "ac3", "flac": "flac", "wav": "pcm mp3 ac3", "aiff": "pcm", "caf": "pcm aac opus flac",
        "nut": "aac mp3 opus vorbis flac ac3 pcm mp2", "asf": "mp3 ac3 pcm mp2", "w64": "pcm", "au": "pcm", "mxf": "pcm",
        "wv": "wavpack", "tta": "tta", "mp2": "mp2", "3gp": "aac",
    }
    return takes[extension].split()


ENCODERS = {"aac": ["-c:a", "aac"], "mp3": ["-c:a", "libmp3lame"], "opus": ["-c:a", "libopus", "-strict", "-2"],
            "vorbis": ["-c:a", "libvorbis"], "flac": ["-c:a", "flac", "-strict", "-2"], "ac3": ["-c:a", "ac3"],
            "pcm": ["-c:a", "pcm_s16le"], "mp2": ["-c:a", "mp2"], "alac": ["-c:a", "alac"],
            "wavpack": ["-c:a", "wavpack"], "tta": ["-c:a", "tta"]}


def sounds():
    """Each codec in each container that takes it."""
    files = []
    for extension in ("mp4 mov mkv mka webm ogg oga opus ts avi flv mpg m4a mp3 aac ac3 flac wav aiff caf nut asf w64 au mxf wv "
                      "tta mp2 3gp").split():
        for codec in _lossy(extension):
            encoder = list(ENCODERS[codec])
            if codec == "pcm" and extension in ("aiff", "au"):
                encoder = ["-c:a", "pcm_s16be"]
            rate = 48000 if codec in ("opus", "ac3") or extension in ("mxf", "mpg") else 44100
            if extension == "mxf":
                files.append(_both(f"{codec}.{extension}", MPEG2, encoder))
            else:
                files.append(_audio(f"{codec}.{extension}", encoder, rate=rate))
    return files


def pictures():
    """Codecs and structures of pictures."""
    return [
        _both("bframes.mp4", X264, ["-bf", "3", "-g", "20"], AAC),
        _both("bframes.mkv", X264, ["-bf", "3", "-g", "20"], AAC),
        _both("bframes.ts", X264, ["-bf", "2", "-g", "20"], AAC),
        _both("bframes.mov", X264, ["-bf", "2", "-g", "20"], ENCODERS["pcm"]),
        _both("bframes.avi", ["-c:v", "mpeg4", "-bf", "2"], ENCODERS["mp3"]),
        _both("bframes.mpg", MPEG2, ["-bf", "2", "-g", "12"], ENCODERS["mp2"]),
        _video("bframes.h264", X264, ["-bf", "2", "-g", "20"]),
        _video("bframes.hevc", X265, ["-g", "20"]),
        _both("opengop.mp4", X264, ["-bf", "3", "-g", "10", "-x264-params", "open-gop=1"], AAC),
        _both("opengop.mkv", X264, ["-bf", "3", "-g", "10", "-x264-params", "open-gop=1"], ENCODERS["vorbis"]),
        _both("opengop.ts", MPEG2, ["-bf", "2", "-g", "10"], ENCODERS["mp2"]),
        _both("hevc.mp4", X265, ["-g", "12"], AAC),
        _both("hevc.mkv", X265, ["-g", "12"], ENCODERS["opus"]),
        _both("hevc.ts", X265, ["-g", "12"], ENCODERS["ac3"]),
        _both("interlaced.ts", X264, ["-flags", "+ilme+ildct", "-x264-params", "tff=1", "-bf", "2"], AAC),
        _both("refresh.mp4", X264, ["-x264-params", "intra-refresh=1:keyint=15", "-bf", "0"], AAC),
        _both("vp8.webm", ["-c:v", "libvpx", "-deadline", "realtime", "-b:v", "300k"], ENCODERS["vorbis"]),
        _both("vp9.webm", VP9, ["-g", "15"], ENCODERS["opus"]),
        _both("vp9.mp4", VP9, AAC),
        _video("altref.webm", ["-c:v", "libvpx-vp9", "-deadline", "good", "-cpu-used", "5", "-auto-alt-ref", "1",
                               "-lag-in-frames", "16", "-b:v", "200k"]),
        _both("av1.mp4", ["-c:v", "libsvtav1", "-preset", "12", "-svtav1-params", "lp=1"], AAC, size="128x96"),
        _both("av1.mkv", ["-c:v", "libsvtav1", "-preset", "12", "-svtav1-params", "lp=1"], ENCODERS["opus"], size="128x96"),
        _both("mpeg4.mp4", ["-c:v", "mpeg4", "-bf", "2"], AAC),
        _both("xvid.avi", ["-c:v", "libxvid", "-bf", "2"], ENCODERS["ac3"]),
        _both("mpeg1.mpg", ["-c:v", "mpeg1video", "-bf", "2"], ENCODERS["mp2"]),
        _video("mpeg2.m2v", MPEG2, ["-bf", "2"]),
        _both("mjpeg.avi", ["-c:v", "mjpeg"], ENCODERS["pcm"]),
        _both("mjpeg.mov", ["-c:v", "mjpeg"], ENCODERS["alac"]),
        _both("prores.mov", ["-c:v", "prores_ks"], ENCODERS["pcm"]),
        _both("dnxhd.mxf", ["-c:v", "dnxhd", "-profile:v", "dnxhr_lb", "-pix_fmt", "yuv422p"], ENCODERS["pcm"],
              size="256x128"),
        _both("ffv1.mkv", ["-c:v", "ffv1"], ENCODERS["flac"]),
        _both("huffyuv.avi", ["-c:v", "huffyuv"], ENCODERS["pcm"]),
        _both("theora.ogv", ["-c:v", "libtheora"], ENCODERS["vorbis"]),
        _both("wmv.wmv", ["-c:v", "wmv2"], ["-c:a", "wmav2"]),
        _both("flv1.flv", ["-c:v", "flv"], ENCODERS["mp3"], rate=44100),
        _both("h264.flv", X264, ["-bf", "2"], AAC),
        _both("h263.3gp", ["-c:v", "h263"], AAC, size="176x144"),
        _both("dv.avi", ["-c:v", "dvvideo", "-pix_fmt", "yuv420p"], ENCODERS["pcm"], size="720x576"),
        _both("rv10.rm", ["-c:v", "rv10"], ENCODERS["ac3"], size="96x64"),
        _both("bgr.avi", ["-c:v", "rawvideo", "-pix_fmt", "bgr24"], ENCODERS["pcm"]),
        _both("gray.nut", ["-c:v", "rawvideo", "-pix_fmt", "gray"], ENCODERS["flac"]),
        _video("palette.gif", []),
        _video("animated.apng", ["-f", "apng"]),
        _video("picture.png", ["-frames:v", "1"]),
        _video("picture.jpg", ["-frames:v", "1"]),
        _video("picture.webp", ["-frames:v", "1", "-c:v", "libwebp"]),
        _video("picture.tga", ["-frames:v", "1"]),
        _video("raw.y4m", []),
        _both("tenbit.mkv", X265, ["-pix_fmt", "yuv420p10le"], ENCODERS["flac"]),
        _both("alpha.mov", ["-c:v", "qtrle", "-pix_fmt", "argb"], ENCODERS["pcm"]),
    ]


def oddities():
    """Variable rates, edit lists, several frames a packet, attached pictures, many channels."""
    vfr = ["-vf", "select='not(eq(mod(n,7),3))*not(between(n,20,29))'", "-fps_mode", "passthrough"]
    return [
        _both("vfr.mp4", vfr, X264, ["-bf", "2"], AAC),
        _both("vfr.mkv", vfr, X264, ["-bf", "2"], AAC),
        Media("ntsc.mp4", _picture(rate="30000/1001") + _sound(44100) + X264 + ["-bf", "2"] + AAC),
        Media("edited.mp4", _picture() + _sound() + X264 + ["-bf", "2", "-g", "25"] + AAC, group="edit"),
        Media("late.mp4", ["-itsoffset", "0.3"] + _picture() + _sound() + X264 + AAC),
        Media("late.mkv", _picture() + ["-itsoffset", "0.5"] + _sound() + X264 + ENCODERS["opus"]),
        Media("late.ts", ["-itsoffset", "0.3"] + _picture() + _sound() + X264 + ["-bf", "2"] + ENCODERS["mp2"]),
        _audio("adpcm_ms.wav", ["-c:a", "adpcm_ms"], rate=44100),
        _audio("adpcm_ima.wav", ["-c:a", "adpcm_ima_wav"], rate=22050, layout="mono"),
        _audio("adpcm.mkv", ["-c:a", "adpcm_ms"], rate=22050),
        _audio("adpcm.flv", ["-c:a", "adpcm_swf"], rate=44100),
        _audio("wma.wma", ["-c:a", "wmav2"], rate=44100),
        _audio("surround.mp4", AAC, layout="5.1"),
        _audio("surround.ac3", ENCODERS["ac3"], layout="5.1"),
        _audio("surround.ogg", ENCODERS["opus"], layout="5.1"),
        _audio("surround.wav", ["-c:a", "pcm_s24le"], layout="5.1"),
        _audio("float.wav", ["-c:a", "pcm_f32le"]),
        _audio("double.wav", ["-c:a", "pcm_f64le"]),
        _audio("alaw.wav", ["-c:a", "pcm_alaw"], rate=8000, layout="mono"),
        _audio("eac3.mp4", ["-c:a", "eac3"]),
        _audio("dts.mkv", ["-c:a", "dca", "-strict", "-2"], layout="stereo"),
        _audio("truehd.mkv", ["-c:a", "truehd", "-strict", "-2"]),
        _audio("speex.ogg", ["-c:a", "libspeex"], rate=32000, layout="mono"),
        _audio("g722.wav", ["-c:a", "g722"], rate=16000, layout="mono"),
        _audio("nellymoser.flv", ["-c:a", "nellymoser"], rate=44100, layout="mono"),
        _audio("short.mp3", ENCODERS["mp3"], rate=44100, seconds=0.1),
        _audio("short.m4a", AAC, rate=44100, seconds=0.05),
        _audio("short.ogg", ENCODERS["opus"], seconds=0.03),
        Media("cover.mp3", _sound(44100) + ["-f", "lavfi", "-i", "color=red:s=64x64:d=0.04", "-map", "0:a", "-map", "1:v",
                                            "-c:a", "libmp3lame", "-c:v", "png", "-frames:v", "1", "-disposition:v",
                                            "attached_pic"]),
        Media("cover.m4a", _sound(44100) + ["-f", "lavfi", "-i", "color=red:s=64x64:d=0.04", "-map", "0:a", "-map", "1:v",
                                            "-c:a", "aac", "-c:v", "png", "-frames:v", "1", "-disposition:v", "attached_pic"]),
        Media("cover.flac", _sound(44100) + ["-f", "lavfi", "-i", "color=red:s=64x64:d=0.04", "-map", "0:a", "-map", "1:v",
                                             "-c:a", "flac", "-c:v", "png", "-frames:v", "1", "-disposition:v",
                                             "attached_pic"]),
        Media("fragmented.mp4", _picture() + _sound() + X264 + ["-bf", "2", "-g", "10"] + AAC +
              ["-movflags", "frag_keyframe+empty_moov+default_base_moof"]),
        Media("languages.mkv", _picture() + _sound() + _sound(44100) + ["-map", "0:v", "-map", "1:a", "-map", "2:a",
              "-metadata:s:a:0", "language=ger", "-metadata:s:a:1", "language=fre"] + X264 + ENCODERS["flac"]),
    ]


def damaged():
    """Files whose ends are missing."""
    files = []
    for source in (_both("cut.mkv", X264, ["-bf", "2", "-g", "10"], AAC), _both("cut.ts", X264, ["-bf", "2", "-g", "10"], AAC),
                   Media("cut.mp4", _picture() + _sound() + X264 + ["-bf", "2", "-g", "10"] + AAC + ["-movflags", "faststart"]),
                   _both("cut.avi", ["-c:v", "mpeg4", "-bf", "2"], ENCODERS["mp3"]), _both("cut.mpg", MPEG2, ENCODERS["mp2"]),
                   _both("cut.webm", VP9, ENCODERS["opus"]), _audio("cut.mp3", ENCODERS["mp3"], rate=44100),
                   _audio("cut.ogg", ENCODERS["vorbis"], rate=44100), _audio("cut.flac", ENCODERS["flac"]),
                   _audio("cut.wav", ENCODERS["pcm"]), _audio("cut.aac", AAC), _both("cut.flv", ["-c:v", "flv"], AAC),
                   _video("cut.h264", X264, ["-bf", "2"])):
        files.append(dataclasses.replace(source, keep=0.7))
    return files


def corpus():
    return sounds() + pictures() + oddities() + damaged()


def make(media, folder):
    """The file, made when it is not there yet; None when this ffmpeg program cannot make it."""
    key = hashlib.sha256(repr((media.name, media.arguments, media.keep, media.group)).encode()).hexdigest()[:12]
    path = pathlib.Path(folder) / key / media.name
    if path.exists():
        return path
    unfinished = path.parent.with_suffix(".unfinished")
    shutil.rmtree(unfinished, ignore_errors=True)
    unfinished.mkdir(parents=True)
    target = unfinished / media.name
    command = ["ffmpeg", "-nostdin", "-v", "error", "-y", *media.arguments, "-fflags", "+bitexact", "-flags:v", "+bitexact",
               "-flags:a", "+bitexact", str(target)]
    if media.group == "edit":
        # Copied from within a group of pictures, the container gets an edit list.
        command[-1] = str(target) + ".whole.mp4"
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode == 0 and media.group == "edit":
        whole = command[-1]
        done = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-ss", "0.61", "-i", whole, "-c", "copy", str(target)],
                              capture_output=True, text=True)
        os.remove(whole)
    if done.returncode != 0:
        shutil.rmtree(unfinished)
        print(f"cannot make {media.name}: {done.stderr.strip().splitlines()[-1:]}")
        return None
    if media.keep != 1.0:
        size = target.stat().st_size
        os.truncate(target, int(size * media.keep))
    unfinished.rename(path.parent)
    return path
