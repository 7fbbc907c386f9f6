#!/usr/bin/env python3
"""Looks at what libvidorra.so defines for its callers.

Symbols that bear names of FFmpeg or FreeType would take the place of theirs in the caller's process, and a symbol
outside our namespaces is a promise that nobody meant to make. Mangled names are compared, since they begin with the
namespace of what is defined, whatever its arguments are.
"""
import argparse
import re
import subprocess
import sys

# C symbols of the libraries that we build on, whoever defines them.
FOREIGN = re.compile(r"(av|avcodec|avformat|avfilter|avio|avpriv|avutil|sws|swr|swresample|swscale|ff|FT)_")

# Members of our namespaces and of the closed interface UdmaBuf, which has none, with their type information, thunks and
# local statics.
OURS = re.compile(r"_Z(T[VTIS]|T[hv][n\d_]*_|TC|GV|GR)?Z?N[KVRO]*(7vidorra|6logger|9objstream|2vx|7UdmaBuf)|_ZT[VTIS]7UdmaBuf$")

GLOBALS = {
    "_Z21ffmpeg_enable_loggingv",
    "_Z20tryConvertColorRangePN7vidorra16PictureAllocatorERKNS_7PictureE13AVPixelFormat12AVColorRange",
    # The text forms of FFmpeg's enumerations, which themselves live in the global namespace.
    *(f"_ZlsRSo{name}" for name in ("13AVPixelFormat", "12AVColorRange", "14AVSampleFormat", "9AVCodecID")),
    *(f"_ZrsRSiR{name}" for name in ("13AVPixelFormat", "12AVColorRange", "14AVSampleFormat", "9AVCodecID")),
}

# Instances of other libraries' templates, and the type information of FFmpeg's enumerations, which the linker folds with
# the caller's own.
TEMPLATES = re.compile(r"_Z(T[VTIS]|GV)?Z?(N[KVRO]*)?(S[tabsiod]|3fmt|2tl|5boost|9__gnu_cxx)|_ZT[IS]\d+AV[A-Z]\w+$")
FOLDED_TYPES = "WVu"


def problem(symbol, kind):
    """What is wrong with a symbol, or None."""
    if FOREIGN.match(symbol):
        return "belongs to another library"
    if OURS.match(symbol) or symbol in GLOBALS or (kind in FOLDED_TYPES and TEMPLATES.match(symbol)):
        return None
    return "lies outside our namespaces"


def check_problem():
    """Shows that problem() tells good from bad."""
    good = [("_ZN7vidorra7PictureC1Ev", "T"), ("_ZTVN7vidorra5FrameE", "V"), ("_ZNK2vx3vdr5utils8BadAlloc4whatEv", "W"),
            ("_ZThn16_N7vidorra1A1fEv", "T"), ("_ZlsRSo9AVCodecID", "T"),
            ("_ZNK9objstream6object5emptyEv", "T"), ("_ZNSt6vectorIiE4pushEi", "W"), ("_ZTI9AVCodecID", "V")]
    bad = [("av_buffer_is_dma", "T"), ("ff_draw_init", "T"), ("sws_scale", "W"), ("FT_New_Face", "T"),
           ("_Z4fillRN7vidorra7PictureE", "T"), ("_Z4fillSt6vectorIN7vidorra7PictureEE", "T"), ("gDepth", "D"),
           ("_ZN12_GLOBAL__N_14fillEv", "T"), ("_ZN2z52hw5accel6ScalerC1Ei", "T"),
           ("_ZNSt6vectorIiE4pushEi", "T"), ("_ZN3foo3barEv", "W"),
           ("_ZTI9AVCodecID", "T"), ("_ZTV9AVCodecID", "V")]
    for symbol, kind in good:
        assert problem(symbol, kind) is None, symbol
    for symbol, kind in bad:
        assert problem(symbol, kind) is not None, symbol


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("library")
    arguments = parser.parse_args()
    check_problem()

    command = ["nm", "--dynamic", "--defined-only", "--format=posix", arguments.library]
    lines = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    symbols = [line.split()[:2] for line in lines]
    failures = [f"{symbol} ({kind}) {text}" for symbol, kind in symbols if (text := problem(symbol, kind))]
    if GLOBALS - {symbol for symbol, _ in symbols}:
        failures.append(f"not exported: {' '.join(sorted(GLOBALS - {symbol for symbol, _ in symbols}))}")
    if failures:
        print(subprocess.run(["c++filt"], input="\n".join(failures), capture_output=True, text=True,
                             check=True).stdout, file=sys.stderr)
    print(f"{len(symbols)} symbols, {len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
