#!/usr/bin/env bash
# Runs the example programs on good and bad files:
#   examples_test.sh EXAMPLES_DIR DEMO WORK_DIR
set -euo pipefail
examples=$1 demo=$2 work=$3
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

output=$("$examples/read_frames" "$work/clip.mp4")
expect "read_frames" '^video frame 320x180, yuv420p .*, pts 0\.0+,' "$output"
expect_equal "pictures that read_frames prints" "$(grep -c '^video frame' <<<"$output")" 25
expect "the sound that read_frames prints" '^audio frame .*48000' "$output"
expect_failure "read_frames without a file" 1 'No such file' "$examples/read_frames" "$work/missing.mp4"

# facts FILE: its streams with codec, duration and number of packets.
facts() {
    ffprobe -v error -count_packets -show_entries stream=codec_name,duration,nb_read_packets -of csv=p=0 "$1" | paste -sd' '
}
"$examples/record" "$work/record.mp4" 2>/dev/null >/dev/null
expect_equal "what record records" "$(facts "$work/record.mp4")" "mpeg4,10.000000,250 aac,10.000000,432"
"$examples/transcode" "$work/clip.mp4" "$work/transcoded.mp4" 2>/dev/null >/dev/null
# All frames, those that the decoder holds back included.
expect "what transcode makes" '^h264,1\.000000,25 aac,1\.' "$(facts "$work/transcoded.mp4")"
"$examples/remux" "$work/record.mp4" "$work/remuxed.mkv" >/dev/null
expect_equal "what remux copies" \
    "$(ffmpeg -v error -i "$work/remuxed.mkv" -c copy -f streamhash - | cut -d= -f2 | paste -sd' ')" \
    "$(ffmpeg -v error -i "$work/record.mp4" -c copy -f streamhash - | cut -d= -f2 | paste -sd' ')"
expect_equal "the segments" "$("$examples/segments" "$work/record.mp4" "$work/segments" 2>/dev/null | wc -l)" 5
expect_equal "what the playlist plays" \
    "$(ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 "$work/segments/index.m3u8" |
        grep . | sort -u | paste -sd' ')" "mpeg4,250"
for example in remux transcode segments; do
    expect_failure "$example without files" 2 "^usage: $example " "$examples/$example"
    expect_failure "$example without input" 1 'No such file' "$examples/$example" "$work/missing.mp4" "$work/none.mkv"
done
expect_equal "what failed examples leave" "$(find "$work" -name 'none.mkv*' -type f | wc -l)" 0

# The sums of the ffmpeg program.
decoded() {
    ffmpeg -v error -nostdin -i "$work/clip.mp4" "$@" - | md5sum | cut -d' ' -f1
}
output=$("$examples/count_frames" "$work/clip.mp4")
expect "the pictures of count_frames" "^25 pictures $(decoded -map 0:v -f rawvideo)\$" "$output"
expect "the sound of count_frames" "^[0-9]+ samples $(decoded -map 0:a -f f32le)\$" "$output"
expect_failure "count_frames of a text" 1 '^count_frames: .*Invalid data' "$examples/count_frames" "$work/text.mp4"

"$examples/contact_sheet" "$work/clip.mp4" "$work/clips.png"
expect_equal "the contact sheet" \
    "$(ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 "$work/clips.png")" "png,1320,572"
# Twelve different pictures; four times a picture would be four a row that are equal.
tiles=$(for i in $(seq 0 11); do
    ffmpeg -v error -nostdin -i "$work/clips.png" -vf "crop=320:180:$((8 + i % 4 * 328)):$((8 + i / 4 * 188))" -f framemd5 - |
        sed -n 's/^0,.*, //p'
done)
expect_equal "different pictures of the sheet" "$(sort -u <<<"$tiles" | wc -l)" 12
expect_failure "a contact sheet of sound" 1 'no track to decode' "$examples/contact_sheet" "$work/sound.wav" "$work/none.png"

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

# What it plays it records: 90 frames, of which those from second 2 on carry the mark of a lost signal.
cat >"$work/encoders.json" <<'JSON'
{
    "video": [
        {"codec": "no-such-encoder"},
        {"codec": "mpeg4", "width": 160, "height": 90, "timebase_den": 30, "options": {"b": 400000}}
    ],
    "audio": {"codec": "aac", "options": {"ar": 44100, "ac": 2}}
}
JSON
recording=(-o "$work/out.mp4" --config "$work/encoders.json" --sheet "$work/sheet.png")
output=$("$demo" "$work/clip.mp4" --seconds 3 "${recording[@]}")
expect "the recording" '^recorded .*out\.mp4: 90 frames of 160x90, timecodes from 00:00:00:00 ' "$output"
expect "the recorded video" '^  video: mpeg4, 90 packets,' "$output"
expect "the lost signal" '^    30 of them marked as without signal: 2\.000 s to 3\.000 s$' "$output"
expect_equal "frames that can be decoded" \
    "$(ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames,width,height,r_frame_rate \
        -of csv=p=0 "$work/out.mp4")" "160,90,30/1,90"
# The last picture lasts as long as the others, or players would drop it.
expect_equal "how long the recorded pictures last" \
    "$(ffprobe -v error -select_streams v -show_entries stream=duration -of csv=p=0 "$work/out.mp4")" "3.000000"
expect_equal "the recorded sound" \
    "$(ffprobe -v error -select_streams a -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 \
        "$work/out.mp4")" "aac,44100,2"
expect_equal "the sheet" \
    "$(ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 "$work/sheet.png")" "png,1320,572"
# Before the loss the picture is bright, during it black: by the mean luma.
luma() {
    ffmpeg -v error -ss "$1" -i "$work/out.mp4" -frames:v 1 -vf scale=1:1:flags=area,format=gray -f rawvideo - |
        od -An -tu1 | tr -d ' '
}
expect_equal "luma before the loss above 40" "$(($(luma 1.0) > 40))" 1
expect_equal "luma during the loss below 3" "$(($(luma 2.5) < 3))" 1
# The road of the accelerator gives the same programme.
output=$("$demo" "$work/clip.mp4" --seconds 3 -o "$work/accelerated.mp4" --config "$work/encoders.json" --accelerator)
expect "the accelerated recording" '^recorded .*accelerated\.mp4: 90 frames of 160x90' "$output"
expect_equal "frames that can be decoded" \
    "$(ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 \
        "$work/accelerated.mp4")" "90"
expect_equal "files that stood for devices" "$(find "$work" -name '*.memory' -o -name '*.device' | wc -l)" 0
echo '{"video": [' >"$work/broken.json"
expect_failure "a broken configuration" 1 'broken\.json' \
    "$demo" "$work/clip.mp4" -o "$work/out.mp4" --config "$work/broken.json"
expect_failure "a recording without configuration" 2 '^demo: a recording needs' "$demo" "$work/clip.mp4" -o "$work/out.mp4"

expect "help" '^usage: demo FILE' "$("$demo" -h)"

expect_failure "a missing file" 1 '^demo: .*No such file' "$demo" "$work/missing.mp4"
expect_failure "a text" 1 '^demo: .*Invalid data' "$demo" "$work/text.mp4"
expect_failure "no file" 2 '^demo: which file' "$demo"
expect_failure "an unknown option" 2 '^demo: unknown option -x' "$demo" -x "$work/clip.mp4"

exit $((failures > 0))
