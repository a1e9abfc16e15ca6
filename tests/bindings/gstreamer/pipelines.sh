#!/bin/bash
# Real pipelines, as a user types them, on generated and on encoded video. GST_PLUGIN_PATH must name
# the folder of the built plugin, or the plugin be installed.
#   pipelines.sh SCRATCH_DIR [VORN_YCNR]      VORN_YCNR: the command-line tool, to compare bytes with
set -euo pipefail
mkdir -p "$1"
cd "$1"
tool=${2:-}
rm -f ./*.raw ./*.ogg ./*.mkv
export GST_REGISTRY=$PWD/registry.bin
launch() { timeout 120 gst-launch-1.0 -q "$@"; }
# Full-range snow has no two similar blocks; an eighth of its contrast is like a camera's noise.
noisy="videotestsrc pattern=snow num-buffers=8 ! videobalance contrast=0.12"
size() { stat -c %s "$1"; }
expect() { # WHAT WANTED GOT
  if [ "$2" != "$3" ]; then
    echo "WRONG $1: $3, wanted $2"
    exit 1
  fi
  echo "ok    $1"
}
# Sum of |differences| between neighbours in the first luma plane: what a filter brings down.
roughness() { # FILE WIDTH HEIGHT
  python3 - "$@" <<'PY'
import sys
name, width, height = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
luma = open(name, "rb").read()[: width * height]
print(100 * sum(abs(a - b) for a, b in zip(luma, luma[1:])) // len(luma))
PY
}

cat >strong.json <<'JSON'
{ "format": "vorn-ycnr tuning set", "version": 1, "entries": [
  { "gain": 8,
    "luma": { "enable": 1, "layer": 3, "pIntensity": [120, 80, 40, 0, 0], "pRadius": [7, 7, 7, 0, 0],
              "param0": 64, "param1": 0, "param2": 0 },
    "chroma": { "enable": 1, "range_factor": 16, "smooth_radius": 8, "scale": 2, "step": 1, "color_edge_u": 8,
                "color_edge_v": 8, "saturation": 0, "param0": 0, "param1": 0, "param2": 0 } } ] }
JSON

# shellcheck disable=SC2086
{
for format in NV12 I420 NV21; do
  caps="video/x-raw,format=$format,width=320,height=240"
  launch $noisy ! "$caps" ! tee name=t ! queue ! filesink location=$format.in.raw \
    t. ! queue ! vornycnr tuning-file=strong.json ! filesink location=$format.out.raw
  expect "$format: bytes out" "$((8 * 320 * 240 * 3 / 2))" "$(size $format.out.raw)"
  expect "$format: filtered" 1 "$(cmp -s $format.in.raw $format.out.raw; echo $?)"
done
before=$(roughness NV12.in.raw 320 240)
after=$(roughness NV12.out.raw 320 240)
expect "roughness $before -> $after, at least a third less" true "$([ $((after * 3)) -le $((before * 2)) ] && echo true)"
if [ -n "$tool" ]; then
  head -c $((320 * 240 * 3 / 2)) NV12.in.raw >first_320x240.nv12
  "$tool" denoise first_320x240.nv12 -o first.out.nv12 --tuning strong.json
  cmp -n $((320 * 240 * 3 / 2)) NV12.out.raw first.out.nv12
  echo "ok    the same bytes as the tool's"
fi

# Rows that lie further apart than they are wide, an odd size, a picture that begins inside a buffer.
launch $noisy ! video/x-raw,format=NV12,width=320,height=240 ! videocrop left=6 right=9 top=4 bottom=3 ! \
  vornycnr ! filesink location=crop.raw
launch $noisy ! video/x-raw,format=I420,width=321,height=241 ! vornycnr ! videoconvert ! \
  video/x-raw,format=GRAY8 ! filesink location=odd.raw
expect "cropped 305x233 frames" 8 "$(($(size crop.raw) / (308 * 233 + 308 * 117)))"
expect "odd 321x241 frames" 8 "$(($(size odd.raw) / (324 * 241)))"

# The size changes in the stream.
launch concat name=c ! vornycnr ! filesink location=sizes.raw \
  $noisy ! video/x-raw,format=NV12,width=320,height=240 ! c. \
  $noisy ! video/x-raw,format=NV12,width=128,height=256 ! c. \
  $noisy ! video/x-raw,format=I420,width=320,height=240 ! c.
expect "three sizes in one stream" "$((8 * (2 * 320 * 240 + 128 * 256) * 3 / 2))" "$(size sizes.raw)"

# Encoded video, decoded, filtered, encoded again; the container must hold every frame.
launch videotestsrc num-buffers=30 ! video/x-raw,width=352,height=288 ! videoconvert ! theoraenc ! oggmux ! \
  filesink location=clip.ogg
launch filesrc location=clip.ogg ! decodebin ! videoconvert ! vornycnr gain=4 ! videoconvert ! theoraenc ! \
  oggmux ! filesink location=clean.ogg
launch filesrc location=clean.ogg ! decodebin ! videoconvert ! video/x-raw,format=I420 ! filesink location=clean.raw
expect "frames through theora and back" 30 "$(($(size clean.raw) / (352 * 288 * 3 / 2)))"
launch videotestsrc num-buffers=30 ! video/x-raw,width=352,height=288 ! jpegenc ! matroskamux ! filesink location=clip.mkv
launch filesrc location=clip.mkv ! matroskademux ! jpegdec ! vornycnr ! jpegenc ! matroskamux ! filesink location=clean.mkv
expect "a motion JPEG file" true "$([ "$(size clean.mkv)" -gt 10000 ] && echo true)"

# Several instances side by side and behind each other: the parallel ones agree to the byte.
launch $noisy ! video/x-raw,format=NV12,width=640,height=480 ! tee name=t \
  t. ! queue ! vornycnr gain=16 ! filesink location=a.raw t. ! queue ! vornycnr gain=16 ! filesink location=b.raw \
  t. ! queue ! vornycnr chroma=false ! vornycnr luma=false ! filesink location=c.raw
cmp a.raw b.raw
echo "ok    two instances side by side, the same bytes"
expect "two behind each other: bytes" "$((8 * 640 * 480 * 3 / 2))" "$(size c.raw)"
}

# What cannot work ends with an error code and says why.
if launch videotestsrc num-buffers=1 ! vornycnr tuning-file=/nowhere.json ! fakesink 2>error.txt; then
  echo "WRONG a missing tuning file was taken"
  exit 1
fi
grep -q '/nowhere.json: ' error.txt
echo "ok    a missing tuning file is named"
