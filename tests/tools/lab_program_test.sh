#!/usr/bin/env bash
# lab_program_test.sh PROGRAM DIRECTORY: the measuring commands as a user runs them.
. "$(dirname "$0")/program_checks.sh"

# Flats of another sensor at two gains: a profile, and what uses it.
for level in 030 070 150; do
  { head -c 36864 /dev/zero | tr '\0' "\\$level"; head -c 18432 /dev/zero | tr '\0' '\200'; } >clean_192x192.nv12
  for gain in 4 16; do
    check "flat" "$program" noise clean_192x192.nv12 --add $gain --full-well 9000 --luma-blur 0.5 \
      --chroma-blur 0.8 --seed "$((8#$level))" -o "flat_${gain}_${level}_192x192.nv12"
  done
done
check "fit" "$program" noise flat_4_* flat_16_* --gain 4,4,4,16,16,16 --fit --name cam -o sensor.json >fit.txt
says "the model describes this sensor" fit.txt
check "full well" awk '/^full well/ && $3 > 8500 && $3 < 9500 { ok = 1 } END { exit !ok }' fit.txt
check "demo" "$program" demo -o demo --size 320x240 --noise 16 --sensor sensor.json >/dev/null
check "noise" "$program" noise demo/noisy_gain16.png --sensor sensor.json >noise.txt
says "of sensor.json" noise.txt
# The default set counts other gains than this sensor, a set of its own the sensor's.
check "own entry" "$program" denoise demo/noisy_gain16.png -o a.png --gain 16 --sensor sensor.json
check "default entry" "$program" denoise demo/noisy_gain16.png -o b.png --gain 16
check "another entry" bash -c '! cmp -s a.png b.png'
check "auto" "$program" denoise demo/noisy_gain16.png -o c.png --sensor sensor.json 2>auto.txt
says "gain auto: luma" auto.txt
check "tune" "$program" tune demo/clean.png --sensor sensor.json --rounds 1 --luma-only -o own.json >tune.txt
check "its gains" grep -qE '^ +16 ' tune.txt
check "auto, own set" "$program" denoise demo/noisy_gain16.png -o d.png --sensor sensor.json --tuning own.json 2>auto.txt
says "(entry 16)" auto.txt
# A set by formula, also for gains between and beyond those that were measured.
check "from profile" "$program" tuning from-profile sensor.json --gains 2,4,8,16,32 -o formula.json
"$program" tuning show formula.json >formula.txt
check "its strengths rise" awk '/^luma 0pIntensity/ { ok = NF == 7; for (i = 4; i <= NF; i++) ok = ok && $i > $(i - 1) } END { exit !ok }' formula.txt
check "the measured gains" "$program" tuning from-profile sensor.json -o formula.json
check "two entries" [ "$(grep -c '"gain"' formula.json)" = 2 ]
refuses "is no JSON text" tuning from-profile demo/clean.png -o x.json

# Two shots of a scene without a clean one; the gain that is not told comes from their noise.
for seed in 1 2; do
  check "shot" "$program" noise demo/clean.png --add 8 --seed $seed -o shot_$seed.png
done
check "burst" "$program" tune --burst shot_1.png shot_2.png --luma-only --rounds 1 -o burst.json >burst.txt 2>gain.txt
says "shots held against each other" burst.json
check "gain of the noise" grep -qE 'shot_1.png: gain ([789]|[789]\.[0-9]),' gain.txt
refuses "are the same picture" tune --burst 8 shot_1.png shot_1.png --force -o x.json
refuses "much the noisier" tune --burst 8 shot_1.png demo/clean.png -o x.json
refuses "has psnr alone" tune --burst 8 shot_1.png shot_2.png --objective mix -o x.json
refuses "clean pictures stand before it" tune --burst shot_1.png shot_2.png demo/clean.png -o x.json
refuses "its size differs" tune --burst 8 shot_1.png clean_192x192.nv12 -o x.json
refuses "tells no ISO" noise demo/clean.png --fit -o x.json
refuses "2 gains for 1 files" noise demo/clean.png --fit --gain 1,2 -o x.json
refuses "no evenly lit surface" noise demo/noisy_gain16.png --fit --gain 16 -o x.json
refuses "goes with" noise demo/clean.png --gain 2
refuses "is no JSON text" denoise demo/clean.png -o x.png --sensor demo/clean.png
check "nothing written" [ ! -e x.json ]

# Patches, and two sets side by side.
check "patches" "$program" compare clean_192x192.nv12 flat_16_150_192x192.nv12 --patch 32,32,64x64 --json patch.json >patch.txt
says "patch 32,32,64x64" patch.txt
check "a clean patch" grep -qE '^clean_192x192.nv12 +104\.00 +0\.00 +0\.00' patch.txt
says '"spectrum"' patch.json
refuses "lies outside" compare demo/clean.png demo/clean.png --patch 300,0,21x8
refuses "is not of the form" compare demo/clean.png demo/clean.png --patch 3,0
check "two sets" "$program" report demo/noisy_gain16.png demo/denoised_gain16.png --clean demo/clean.png --gain 16 \
  --tuning own.json --against own.json --patch 0,0,64x64 -o page.html
says '"against":{' page.html
refuses "clean pictures for" report a.png b.png c.png --clean a.png --clean b.png -o page2.html

# Two sets as a table.
"$program" tuning diff own.json own.json >diff.txt
check "the same" [ $? = 0 ]
sed 's/"layer": [0-9]/"layer": 5/; s/"gain": 4,/"gain": 5,/' own.json >other.json
"$program" tuning diff own.json other.json >diff.txt
check "another one" [ $? = 1 ]
check "only one has it" grep -q '^gain 4: only in own.json' diff.txt

[ $faults = 0 ] && echo "all passed"
exit $((faults > 0))
