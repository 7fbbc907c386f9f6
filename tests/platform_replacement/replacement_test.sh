#!/usr/bin/env bash
# Builds the library with closed interfaces of another make, and a program that uses them:
#   replacement_test.sh SOURCE_DIR WORK_DIR CMAKE CXX
set -euo pipefail
source=$1 work=$2 cmake=$3 cxx=$4
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
prefix=$work/prefix
common=(-G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS=-O0 -DCMAKE_PREFIX_PATH="$prefix"
        -DCMAKE_INSTALL_PREFIX="$prefix")

# build SOURCE NAME OPTIONS...
build() {
    "$cmake" -S "$1" -B "$work/$2" "${common[@]}" "${@:3}"
    "$cmake" --build "$work/$2"
}

rm -rf "$prefix"
for package in device_logger device_objstream device_memory device_accelerator; do
    build "$here/$package" "$package"
    "$cmake" --install "$work/$package"
done
# The build folder of the library is kept from run to run, and follows changes as any does.
build "$source" library -DVIDORRA_LOGGER_PACKAGE=device_logger -DVIDORRA_OBJSTREAM_PACKAGE=device_objstream \
    -DVIDORRA_UDMABUF_PACKAGE=device_memory -DVIDORRA_Z5_HW_ACCEL_PACKAGE=device_accelerator
"$cmake" --install "$work/library"

library=$(find "$prefix" -name libvidorra.so)
if nm --dynamic --defined-only "$library" | grep -E ' [TW] _ZNK?(6logger|9objstream|7UdmaBuf|2z5)'; then
    echo "libvidorra.so still defines what was replaced" >&2
    exit 1
fi
if [ -n "$(find "$prefix/include/vidorra/platform" -path '*/logger/*' -o -path '*/objstream/*' -o -path '*/udmabuf/*')" ]; then
    echo "our headers are installed beside the other ones" >&2
    exit 1
fi

build "$here/program" program
ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi -i testsrc2=size=160x90:rate=25 -t 0.2 -c:v mpeg4 \
    "$work/clip.mp4"
# The libraries of a device lie where its loader looks.
LD_LIBRARY_PATH=$(dirname "$library") "$work/program/replacement_program" "$work/clip.mp4"
