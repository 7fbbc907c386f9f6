#!/usr/bin/env bash
# Makes sure that the packages of one or more purposes are installed:
#   tools/install_packages.sh build test demo bench style
# Missing packages are installed with apt-get, as root or through sudo. On a system without dpkg nothing is
# installed; the build then reports what it does not find.
set -euo pipefail

# purpose  package  what it is needed for
readonly packages='
build  g++                compiles the library, C++20
build  cmake              describes the build
build  ninja-build        runs the build
build  pkg-config         finds FFmpeg
build  libavcodec-dev     FFmpeg: decoders and encoders
build  libavfilter-dev    FFmpeg: filter graphs
build  libavformat-dev    FFmpeg: files and streams
build  libavutil-dev      FFmpeg: buffers, formats, errors
build  libswresample-dev  FFmpeg: sample rates and formats
build  libswscale-dev     FFmpeg: scaling and conversion of pictures
build  libfreetype-dev    loads fonts and renders glyphs
build  libfmt-dev         formats messages
build  libboost-dev       converts configuration values
build  nlohmann-json3-dev reads and writes configurations as JSON
build  libexpected-dev    results that are a value or an error
test   libgtest-dev       GoogleTest, runs the tests
test   libgmock-dev       GoogleTest, matchers of the tests
test   ffmpeg             makes the media that the tests read
test   fonts-dejavu-core  TrueType fonts that texts are drawn with
test   fonts-inconsolata  a font with OpenType CFF outlines
test   fonts-terminus-otb a font of bitmaps
test   python3            checks the sources against the project rules
demo   ffmpeg             makes the sample file
demo   fonts-dejavu-core  the font of the texts in its recording
bench  libyuv-dev         a peer: blending of planes and packed pixels
bench  libpixman-1-dev    a peer: blending of packed pixels
bench  libzimg-dev        a peer: colour ranges
bench  libopencv-dev      a peer: blending, and reading of files
bench  fonts-dejavu-core  the font of the captions
style  clang-format-14    checks the layout of the sources
style  clang-tidy-14      looks for defects in the sources
style  python3            runs clang-tidy on many files
'

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

if ! command -v dpkg-query >/dev/null; then
    echo "install_packages.sh: no dpkg here, so missing packages are not installed" >&2
    exit 0
fi

missing=()
while read -r purpose package reason; do
    if [[ " $* " == *" $purpose "* && " ${missing[*]-} " != *" $package "* ]] && ! is_installed "$package"; then
        echo "missing: $package ($reason)"
        missing+=("$package")
    fi
done < <(grep . <<<"$packages")
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "install_packages.sh: not root and no sudo; please run: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update --quiet
"${as_root[@]}" apt-get install --quiet --yes --no-install-recommends "${missing[@]}"
