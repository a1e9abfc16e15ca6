#!/usr/bin/env bash
# program_test.sh PROGRAM DIRECTORY: the program as a user runs it: exit codes, messages, pipes, whole
# outputs or none.
. "$(dirname "$0")/program_checks.sh"

check "demo" "$program" demo -o demo --size 322x242 --noise 8 >demo.txt 2>demo_err.txt
check "without a log" [ ! -s demo_err.txt ]
check "luma improves by 3 dB or more" awk '/noisy/ { n = $2 } /denoised/ && $2 > n + 3 { ok = 1 } END { exit !ok }' demo.txt
check "chroma improves by 2 dB or more" awk '/noisy/ { u = $3; v = $4 } /denoised/ && $3 > u + 2 && $4 > v + 2 { ok = 1 } END { exit !ok }' demo.txt
noisy=demo/noisy_gain8.png

# One set of samples through every kind of file gives one result.
check "to y4m" "$program" denoise "$noisy" -o a.y4m --gain 8
check "to nv21" "$program" denoise "$noisy" -o a_322x242.nv21 --gain 8
check "kinds agree" "$program" compare a.y4m a_322x242.nv21 --json kinds.json >/dev/null
check "kinds are equal" grep -q '"y": "inf"' kinds.json
check "jpeg out" "$program" denoise "$noisy" -o a.jpg
check "jpeg in" "$program" denoise a.jpg -o b.png
check "pipes" bash -c '"$1" denoise - -o - <a.y4m | "$1" denoise - -o piped.y4m' - "$program"
check "quiet" bash -c '[ -z "$("$1" denoise a.jpg -o q.png --gain 8 2>&1)" ]' - "$program"
if command -v ffmpeg >/dev/null; then
  check "ffmpeg" bash -c 'ffmpeg -v error -f lavfi -i testsrc2=size=320x240:rate=10:duration=0.5 -pix_fmt yuv420p -f yuv4mpegpipe - | "$1" denoise - -o - | ffmpeg -v error -y -i - -c:v ffv1 v.mkv' - "$program"
  check "all frames pass" [ "$(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 v.mkv)" = 5 ]
fi

# Without a gain the noise is measured, said, and nothing done where there is none.
check "gain auto" "$program" denoise "$noisy" -o auto.png 2>auto.txt
check "says which" grep -qE 'gain auto: luma [0-9.]+ \(entry [0-9.]+\), chroma [0-9.]+ \(entry [0-9.]+\); noise' auto.txt
check "clean" "$program" denoise demo/clean.png -o untouched.png --gain auto 2>auto.txt
check "says why" grep -q 'no noise found, left as it is' auto.txt
check "left as it is" bash -c '"$1" compare demo/clean.png untouched.png --json same.json >/dev/null && grep -q "\"y\": \"inf\"" same.json' - "$program"

# Only what is asked for changes.
"$program" denoise "$noisy" -o n_322x242.nv12 --luma-intensity 0,0,0,0,0 --luma-only --gain 8
"$program" denoise "$noisy" -o c_322x242.nv12 --chroma-only --gain 8
check "fine mode is another result" bash -c '"$1" denoise "$2" -o f1.png --fine && "$1" denoise "$2" -o f2.png && ! cmp -s f1.png f2.png' - "$program" "$noisy"
"$program" denoise "$noisy" -o l_322x242.nv12 --luma-only --gain 8
luma=$((322 * 242))
check "chroma only leaves luma" cmp -s -n $luma n_322x242.nv12 c_322x242.nv12
check "luma only leaves chroma" cmp -s -i $luma n_322x242.nv12 l_322x242.nv12
check "luma changes" bash -c '! cmp -s -n '$luma' n_322x242.nv12 l_322x242.nv12'

# What the library dumps, replay repeats.
mkdir dumps
for p in ynr2.input ynr2.output cnr4.input cnr4.output; do echo "persist.vendor.cam.$p=yes"; done >props
printf 'persist.vendor.cam.%s.save_path=%s/dumps/\n' ynr2 "$work" cnr4 "$work" >>props
echo "persist.vendor.cam.nr_api.log=1" >>props
VORN_PROPERTIES=props "$program" denoise "$noisy" -o x.png --saturation 2
check "replay" "$program" replay dumps -o replayed >replay.txt
check "both identical" grep -q '2 replayed: 2 identical, 0 different' replay.txt
check "results written" [ "$(find replayed -name '*_output_322x242_*.yuv' | wc -l)" = 2 ]
printf '\377\377' | dd of="$(echo dumps/cnr4_output*)" bs=1 seek=80000 conv=notrunc 2>/dev/null
"$program" replay dumps >replay.txt
check "a difference is exit code 1" [ $? = 1 ]
check "a difference is told" grep -q 'of 116886 bytes differ (0 luma' replay.txt
truncate -s 100 dumps/ynr2_input*
"$program" replay dumps >replay.txt 2>err.txt
check "a bad file is told" grep -q '100 bytes, but a frame of its size has 116886' err.txt
check "and the other is replayed" grep -q '1 replayed: 0 identical, 1 different, 0 not compared; 1 failed' replay.txt

check "tuning to text" "$program" tuning to-dump --gain 8 -o t
check "and back" "$program" tuning from-dump t_*_turning_param.txt --gain 8 -o t.json
check "the same result" "$program" denoise "$noisy" -o t_322x242.nv21 --tuning t.json --gain 8
check "byte for byte" cmp -s a_322x242.nv21 t_322x242.nv21

# Many files, one of them bad.
mkdir many
cp "$noisy" many/1.png
cp a.jpg many/2.jpg
check "many" "$program" denoise many -o done/ -j 2
check "many, out" [ "$(ls done | tr '\n' ' ')" = "1.png 2.jpg " ]
echo no >many/3.png
refuses "many/3.png: not a readable PNG file" denoise many -o done2
check "the others are done" [ "$(ls done2 | tr '\n' ' ')" = "1.png 2.jpg " ]
rm many/3.png
mkdir -p many/deep
cp "$noisy" many/deep/4.png
touch many/notes.txt
"$program" denoise many -o done3 2>err.txt
check "what is passed over is told" grep -q '1 file that is no picture or video (.txt), 1 folder' err.txt
check "deeper, and only what is missing" "$program" denoise many -o done3 -r --skip-existing 2>err.txt
check "the rest is told" grep -q 'already there: 2' err.txt
check "folders keep their place" [ -f done3/deep/4.png ]
refuses "would replace it" denoise many -o many

# One result for many, or for standard output, is no directory's name.
refuses "standard output takes the result of one file" denoise many -o -
refuses "is a file's name, but there are several inputs" denoise many -o x1.jpg
cp "$noisy" own.png
refuses "would replace the input" denoise own.png -o own.png
refuses "would replace the input" compare demo/clean.png own.png --diff own.png
check "unless that is wanted" "$program" denoise own.png -o own.png --force
# A file that is replaced keeps its mode, a link its target; names may be as long as they can.
chmod 600 own.png
ln -s own.png link.png
check "through a link" "$program" denoise "$noisy" -o link.png
check "it stays a link" [ -L link.png ]
check "and the mode" [ "$(stat -c %a own.png)" = 600 ]
long=$(printf 'x%.0s' $(seq 251)).png
check "a long name" "$program" denoise "$noisy" -o "$long"
check "without leftovers" [ -z "$(find . -name '.vorn-*')" ]

# Results that cannot be written are faults, text as well as pictures.
for arguments in "tuning show" "compare a.y4m a.y4m" "info" "--help" "denoise a.y4m -o -"; do
  for place in '>/dev/full' '>&-'; do
    # shellcheck disable=SC2086
    eval '"$program" $arguments 2>err.txt' "$place"
    check "$arguments $place" [ $? = 2 ]
    check "$arguments $place is told" grep -q 'standard output: cannot be written' err.txt
  done
done
(ulimit -f 8; "$program" denoise "$noisy" -o x1.png 2>err.txt)
check "a file that grows too large" grep -q 'x1.png: cannot be written: File too large' err.txt

# Video: figures per frame, the same bytes for any number of denoisers.
if command -v ffmpeg >/dev/null; then
  ffmpeg -v error -y -f lavfi -i testsrc2=size=160x120:rate=10:duration=1.2 -vf noise=alls=12:allf=t -pix_fmt yuv420p v.y4m
  "$program" denoise v.y4m -o v1.y4m -j 1
  "$program" denoise - -o - -j 5 <v.y4m >v5.y4m
  check "frames in their order" cmp -s v1.y4m v5.y4m
  "$program" compare v.y4m v1.y4m --json video.json >/dev/null
  check "every frame" [ "$(grep -c flicker_y video.json)" = 11 ]
  check "the worst one" grep -q '"worst"' video.json
fi

# A clean picture from a burst: whole displacements are taken back, an odd frame is left out.
for i in 1 2 3 4 5 6; do "$program" noise demo/clean.png --add 8 --seed $i -o burst_$i.png; done
cp demo/denoised_gain8.png burst_7.png
check "mean" "$program" mean burst_?.png -o mean.png >mean.txt
"$program" compare demo/clean.png burst_1.png mean.png >mean_quality.txt
check "less noise" awk '/^burst_1/ { n = $2 } /^mean/ && $2 > n + 6 { ok = 1 } END { exit !ok }' mean_quality.txt
refuses "two frames or more" mean burst_1.png -o x1.png

# A search that would learn from the wrong thing, or end in nothing, does not begin.
refuses "are they swapped" tune --pair 8 demo/clean.png "$noisy" -o x1.json
if command -v ffmpeg >/dev/null; then
  ffmpeg -v error -y -i "$noisy" -vf crop=300:220:3:2 shifted.png
  ffmpeg -v error -y -i demo/clean.png -vf crop=300:220:2:2 straight.png
  refuses "lies -1.0" tune --pair 8 shifted.png straight.png -o x1.json
fi
refuses "none.png: cannot be read" tune --pair 8 "$noisy" demo/clean.png --pair 16 none.png demo/clean.png -o x1.json
refuses "none/x1.json: cannot be written" tune demo/clean.png --gains 8 -o none/x1.json
refuses "none/x1.json: cannot be written" bench --sizes 64x64 -o none/x1.json
refuses "is no printable UTF-8 text" tune demo/clean.png --gains 8 -o x1.json --name $'\xff'
refuses "needs all of GAIN NOISY CLEAN" tune --pair 8 "$noisy" -o x1.json
for gain in nan inf -1 1e9 0x10 8x ""; do refuses "--gain" denoise "$noisy" -o x1.png --gain "$gain"; done
refuses "--add" noise demo/clean.png --add nan -o x1.png
refuses "--full-well" report "$noisy" -o x1.html --full-well nan
refuses "--gains" tune demo/clean.png --gains 8,inf -o x1.json
refuses "--pair" tune --pair inf "$noisy" demo/clean.png -o x1.json
refuses "--stride" denoise a_322x242.nv21 -o x1.png --stride 2147483647
refuses "--tuning" denoise "$noisy" -o x1.png --tuning ""
printf '[%.0s' $(seq 1000) >deep.json
refuses "not a result of vorn-ycnr bench" bench --compare deep.json deep.json
refuses '\x1b[31m' denoise $'\x1b[31m.png' -o x1.png

check "noise is added" "$program" noise demo/clean.png --add 8 -o added_322x242.nv12
check "and measured" "$program" noise added_322x242.nv12 --json added.json >/dev/null
check "and found near that gain" awk -F': ' '/model_gain/ { ok = $2 + 0 > 5 && $2 + 0 < 13 } END { exit !ok }' added.json
refuses "needs --output" noise demo/clean.png --add 8
check "crop sheet" "$program" compare demo/clean.png "$noisy" --sheet sheet.png --diff diff.png >/dev/null
check "bench" "$program" bench --sizes 128x96 -n 2 -o bench.json >/dev/null
check "bench compares" "$program" bench --compare bench.json bench.json >bench.txt
check "no change is 1.00x" grep -q ' 1.00x' bench.txt
check "info" "$program" info --size 64x64 >info.txt
check "capability" grep -q 'CAM_ALGO_CV_YCNR 1.0.1.2.2768825' info.txt

# Frames below the library's least size.
head -c 96 /dev/urandom >small_8x8.nv12
check "few pixels for the layers" "$program" denoise small_8x8.nv12 -o small.png --luma-layers 5
head -c 6 /dev/urandom >tiny_2x2.nv12
check "tiny" "$program" denoise tiny_2x2.nv12 -o tiny_2x2.i420
check "tiny, out" [ "$(stat -c %s tiny_2x2.i420)" = 6 ]
check "tiny report" "$program" report tiny_2x2.nv12 -o tiny.html --no-sweeps

# Ctrl-C within the second of two gains: the set so far, and the exit code that says so.
"$program" tune demo/clean.png --gains 8,16 --rounds 10 --luma-only -o stopped.json >tune.txt 2>tune_err.txt &
tuning=$!
for _ in $(seq 600); do
  grep -q '^ *8 ' tune.txt && break
  kill -0 $tuning || break
  sleep 0.1
done
kill -INT $tuning
wait $tuning
check "an interrupt is exit code 130" [ $? = 130 ]
check "an interrupt is told" grep -q 'stopped; stopped.json holds the best so far, up to gain 16' tune_err.txt
check "the set so far is whole" "$program" tuning check stopped.json >/dev/null
check "both gains are there" [ "$(grep -c '"gain"' stopped.json)" = 2 ]
check "the set so far works" "$program" denoise "$noisy" -o after_stop.png --tuning stopped.json --gain 8
"$program" compare demo/clean.png "$noisy" after_stop.png --json stopped_quality.json >stopped_quality.txt
check "and helps" awk '/noisy_gain8/ { n = $2 } /after_stop/ && $2 > n + 3 { ok = 1 } END { exit !ok }' stopped_quality.txt

refuses "none.png: cannot be read: No such file" denoise none.png -o x1.png
refuses "cannot be written" denoise "$noisy" -o none/x1.png
refuses "unknown kind of file" denoise "$noisy" -o x1.xyz
refuses "no command \"frobnicate\"" frobnicate
refuses "no command \"tuning chek\"; see vorn-ycnr tuning --help" tuning chek
refuses "a command is missing" tuning
refuses "--compare: needs BEFORE AFTER" bench --compare bench.json
refuses "--gain: takes 1, but 2 were given" denoise "$noisy" -o x1.png --gain 8 --gain 9
refuses "--gain" denoise "$noisy" -o x1.png --gain -1
refuses "not of the form 1920x1080" denoise "$noisy" -o x1.png --size 7
refuses '"luma.layer" must be a whole number from 2 to 5, not 9' denoise "$noisy" -o x1.png --luma-layers 9
head -c 30000 a.y4m >cut.y4m
refuses "ends within frame 0" denoise cut.y4m -o x1.y4m
refuses "not a result of vorn-ycnr bench" bench --compare kinds.json kinds.json
check "nothing half written" [ -z "$(find . -name 'x1*' -o -name '.vorn-*')" ]

# Few threads, and a program with another user's rights; root alone can try both.
few() { setpriv --reuid=64321 --regid=65534 --clear-groups bash -c 'ulimit -u "$1"; shift; exec "$@"' - "$@"; }
# Not where a sanitizer wants a thread, or rights, of its own.
if ! grep -q __asan_init "$program" && few 20 "$program" --version >/dev/null 2>&1; then
  mkdir -m 777 few
  check "a thread beside its own" few 2 "$program" denoise many -o few/done -j 8 --gain 8
  check "that file as well" few 3 "$program" denoise a.y4m -o few/a.y4m -j 8 --gain 8
  check "a search" few 3 "$program" tune demo/clean.png --gains 8 --rounds 1 --threads 8 --luma-only -o few/t.json >/dev/null
  refused=$(few 1 "$program" denoise a.jpg -o few/x1.png --gain 8 2>&1)
  check "none" [ "$refused" = "vorn-ycnr: denoiser: no thread is to be had" ]
  refused=$(few 6 timeout 20 "$program" workbench a.jpg --no-open 2>&1)
  check "a workbench" grep -q 'needs 13 threads' <<<"$refused"
fi
if ! grep -q __asan_init "$program" && install -o nobody -m 4755 "$(command -v id)" raised_id 2>/dev/null && [ "$(./raised_id -u)" != 0 ]; then
  install -o nobody -m 4755 "$program" raised
  check "raised rights" bash -c 'VORN_KERNELS=scalar ./raised info >info.txt && ! grep -q "kernels *scalar" info.txt'
fi

for command in $("$program" --help | awk '/^Commands:/ { on = 1; next } on && /^  [a-z]/ { print $1 }'); do
  check "$command has an example" bash -c '"$1" "$2" --help | grep -q Example' - "$program" "$command"
done
[ $faults = 0 ] && echo "all as expected"
exit $((faults != 0))
