#!/usr/bin/env bash
# One step of the consumer test: install, cmake or pkg_config. CTest sets PREFIX, BUILD, WORK, CXX, CMAKE, SANITIZE,
# VERSION and SOVERSION.
set -euo pipefail
project="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/project"

fail() {
    echo "consumer_test.sh: $*" >&2
    exit 1
}

# expect_equal WHAT ACTUAL EXPECTED
expect_equal() {
    [ "$2" = "$3" ] || fail "$1 is \"$2\", not \"$3\""
}

case $1 in
install)
    rm -rf "$PREFIX"
    "$CMAKE" --install "$BUILD" --prefix "$PREFIX" >"$WORK/install.log"
    library=$(find "$PREFIX" -name "libvidorra.so.$VERSION")
    [ -f "$library" ] || fail "libvidorra.so.$VERSION is not installed"
    soname=$(objdump -p "$library" | awk '$1 == "SONAME" {print $2}')
    expect_equal SONAME "$soname" "libvidorra.so.$SOVERSION"
    folder=$(dirname "$library")
    expect_equal "the target of libvidorra.so" "$(readlink -f "$folder/libvidorra.so")" "$(readlink -f "$library")"
    [ -f "$PREFIX/include/vidorra/vidorra.h" ] || fail "the headers are not installed"
    # Nothing that is installed may name the folders in which it was built.
    if grep -rlF --include='*.cmake' --include='*.pc' --include='*.h' "$BUILD" "$PREFIX"; then
        fail "the files above name the build folder"
    fi
    # One clip for both consumers, with B-frames, whose packets and frames differ in order.
    ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi -i testsrc2=size=160x90:rate=25 -t 1 \
        -c:v mpeg4 -bf 2 "$WORK/clip.mp4"
    ;;
cmake)
    rm -rf "$WORK/cmake"
    "$CMAKE" -G Ninja -S "$project" -B "$WORK/cmake" -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_CXX_FLAGS="${SANITIZE:+-fsanitize=$SANITIZE}" -DEXPECTED_VERSION="$VERSION"
    "$CMAKE" --build "$WORK/cmake"
    "$WORK/cmake/consumer" "$WORK/clip.mp4"
    ;;
pkg_config)
    PKG_CONFIG_PATH=$(dirname "$(find "$PREFIX" -name vidorra.pc)")
    export PKG_CONFIG_PATH
    expect_equal "the version for pkg-config" "$(pkg-config --modversion vidorra)" "$VERSION"
    libdir=$(pkg-config --variable=libdir vidorra)
    rm -f "$WORK/consumer"
    # shellcheck disable=SC2046 # The flags are words of their own.
    "$CXX" -Wall -Wextra -Wpedantic -Werror ${SANITIZE:+-fsanitize="$SANITIZE"} "$project/main.cpp" -o "$WORK/consumer" \
        $(pkg-config --cflags --libs vidorra)
    LD_LIBRARY_PATH="$libdir" "$WORK/consumer" "$WORK/clip.mp4"
    ;;
*)
    fail "unknown step $1"
    ;;
esac
