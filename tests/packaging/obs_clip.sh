#!/bin/bash
# obs_clip.sh VORN_YCNR FILE.y4m: three seconds, 10 frames each, of the demo's chart under a camera's noise at gain 16.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1" demo -o "$work" --size 640x480 --noise 16 >/dev/null
for seed in 1 2 3 4 5 6; do "$1" noise "$work/clean.png" --add 16 --seed $seed -o "$work/$seed.png" >/dev/null; done
ffmpeg -v error -y -framerate 10 -loop 1 -i "$work/%d.png" -pix_fmt yuv420p -frames:v 30 "$2"
