#!/bin/sh
# run.sh LUMIVERT FOLDER: converts the demo clip and a test frame, draws the curves, and tells what it did.
set -eu
tool=$(realpath "$1")
scripts=$(dirname "$(realpath "$0")")
clip=$scripts/demo.mp4
export PYTHONDONTWRITEBYTECODE=1
mkdir -p "$2"
cd "$2"

say() { printf '\n%s\n' "$*"; }
# Runs the tool with the arguments after the first, a word that its lines get in place of its name. The lines come
# from its standard error; a failure ends the demo.
tell() {
    word=$1
    shift
    lines=$("$tool" "$@" 2>&1) || { echo "$lines" >&2; exit 1; }
    echo "$lines" | sed "s/^lumivert: [a-z]*: /  $word  /"
}
# The same without its lines.
quietly() { tell "" "$@" >/dev/null; }

say "The device that converts (marked with *):"
"$tool" devices

say "1. A clip with HDR10+: three scenes of a second each, a new record nearly every frame."
"$tool" probe "$clip" | sed '1d'
tell "converted" convert "$clip" -o clip-sdr.mp4
tell "metadata " metadata "$clip" -o clip-hdr10plus.json
for scene in 6:room 36:sky 60:night; do
    frame=${scene%:*} name=${scene#*:}
    quietly convert "$clip" --frames "$frame" --mode none -o "clip-$name-before.png"
    quietly convert "$clip" --frames "$frame" --mode hdr10plus -o "clip-$name-after.png"
done
"$tool" curve "$clip" --frame 36 -o clip-curve.png
"$tool" curve "$clip" --all -o clip-curves-over-time.png
# Status 1: the page has warnings, which the clip deserves.
"$tool" report "$clip" -o clip-report.html 2>/dev/null || [ $? -eq 1 ]

say "2. A PQ test frame through the fixed table for masters up to 1000 cd/m2, 24 times over
through each of the library's entry points."
python3 "$scripts/test_frame.py" frame-pq.p010
tell "before   " convert frame-pq.p010 --size 1920x1080 --mode none -o frame-before.png
for output in frame-sdr.p010 frame-after.png; do
    quietly convert frame-pq.p010 --size 1920x1080 --mode static -o $output
done
i=0
while [ $i -lt 24 ]; do cat frame-pq.p010; i=$((i + 1)); done >frames-pq.p010
for entry in pool retained; do
    tell "$(printf '%-9s' $entry)" convert frames-pq.p010 --size 1920x1080 --mode static --entry $entry --as p010 -o /dev/null
done
rm frames-pq.p010

say "The results lie in $PWD:"
cat <<'END'
  clip-sdr.mp4                                the clip in SDR, for any player
  clip-{room,sky,night}-{before,after}.png    a frame of each scene: the PQ signal as it is, and converted
  clip-curve.png                              the tone curve of frame 36, the sun at its highest
  clip-curves-over-time.png                   how the curve follows the scenes
  clip-report.html                            all about the clip in one page, for a browser
  clip-hdr10plus.json                         the records, as other HDR10+ tools read them
  frame-before.png, frame-after.png           the test frame: flat as PQ, with contrast and colour as SDR
  frame-pq.p010, frame-sdr.p010               its samples, raw P010
END
