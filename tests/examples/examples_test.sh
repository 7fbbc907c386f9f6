#!/usr/bin/env bash
# Runs the example programs on good and bad files:
#   examples_test.sh READ_FRAMES DEMO WORK_DIR
set -euo pipefail
read_frames=$1 demo=$2 work=$3
failures=0

# expect WHAT PATTERN TEXT: a line of the text matches the extended regular expression.
expect() {
    if ! grep -qE -- "$2" <<<"$3"; then
        printf '%s: nothing matches "%s" in:\n%s\n' "$1" "$2" "$3" >&2
        failures=$((failures + 1))
    fi
}

# expect_equal WHAT ACTUAL EXPECTED
expect_equal() {
    if [ "$2" != "$3" ]; then
        echo "$1: $2, expected $3" >&2
        failures=$((failures + 1))
    fi
}

# expect_failure WHAT STATUS PATTERN COMMAND...: the command exits with the status and complains.
expect_failure() {
    local status=0 errors
    errors=$("${@:4}" 2>&1 >/dev/null) || status=$?
    expect_equal "exit status of $1" "$status" "$2"
    expect "$1" "$3" "$errors"
}

# A second of video with B-frames, of which the decoder holds some back at the end.
ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi -i testsrc2=size=320x180:rate=25 \
    -f lavfi -i sine=sample_rate=48000 -t 1 -c:v mpeg4 -bf 2 -c:a aac "$work/clip.mp4"
echo "no media at all" >"$work/text.mp4"
ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi -i sine -t 0.2 "$work/sound.wav"

output=$("$read_frames" "$work/clip.mp4")
expect "read_frames" '^video frame 320x180, yuv420p .*, pts 0\.0+,' "$output"
expect_failure "read_frames without a file" 1 'No such file' "$read_frames" "$work/missing.mp4"

output=$("$demo" "$work/clip.mp4")
expect "the demo's head" 'clip\.mp4: QuickTime / MOV, 1\.[0-9]+ s$' "$output"
expect "the demo's video stream" '^  stream 0: Video: mpeg4 .*320x180' "$output"
expect "the demo's audio stream" '^  stream 1: Audio: aac .*48000 Hz' "$output"
expect "the demo's count" '^  stream 0: 25 packets, .* 25 frames, from 0\.000000 s to 0\.960000 s$' "$output"
expect "the demo's speed" '^25 frames in [0-9.]+ s, [0-9]+ a second$' "$output"
expect_equal "control characters where no terminal is" "$(grep -c $'\r\|\033' <<<"$output")" 0
output=$("$demo" -v "$work/clip.mp4")
expect_equal "frames that -v describes" "$(grep -c '^video frame 320x180' <<<"$output")" 25
output=$("$demo" "$work/sound.wav")
expect "a file without video" '^0 frames in' "$output"
expect "help" '^usage: demo FILE' "$("$demo" -h)"

expect_failure "a missing file" 1 '^demo: .*No such file' "$demo" "$work/missing.mp4"
expect_failure "a text" 1 '^demo: .*Invalid data' "$demo" "$work/text.mp4"
expect_failure "no file" 2 '^demo: which file' "$demo"
expect_failure "an unknown option" 2 '^demo: unknown option -x' "$demo" -x "$work/clip.mp4"

exit $((failures > 0))
