#!/bin/sh
# Installs Debian packages in a clean root, runs what they bring, removes them, and looks for what
# stayed behind. scripts/clean-root runs it.
#   deb_test.sh SOURCE_DIR PACKAGES_DIR [COMMAND...]     COMMAND: what to run instead of what they all bring
set -eu
source=$1
list_files() { find /usr /etc /opt /var/lib -xdev \( -path /var/lib/dpkg -o -path /var/lib/apt \) -prune -o -print | sort; }
run_all() {
  # shellcheck disable=SC2046
  cc -std=c99 "$source/tests/packaging/consumer/denoise.c" $(pkg-config --cflags --libs vornycnr) -o /tmp/denoise
  /tmp/denoise 2>/dev/null
  vorn-ycnr info
  [ -s /usr/share/man/man1/vorn-ycnr.1.gz ]
  bash -euc '. /usr/share/bash-completion/completions/vorn-ycnr; complete -p vorn-ycnr'
  # Switched by gain means that the default set was found.
  gst-inspect-1.0 vornycnr | grep -q 'tuning-file'
  for gain in 1 64; do
    gst-launch-1.0 -q videotestsrc num-buffers=1 pattern=snow ! video/x-raw,format=NV12,width=128,height=96 ! \
      vornycnr gain=$gain ! filesink location=/tmp/gain-$gain
  done
  if cmp -s /tmp/gain-1 /tmp/gain-64; then exit 1; fi
  python3 - <<'PY'
import numpy, vornycnr
frame = numpy.random.default_rng(1).integers(0, 256, (96, 64), numpy.uint8)
with vornycnr.Denoiser(64, 64) as denoiser:
    weak, strong = (denoiser.nv12(frame, vornycnr.default_tuning_set().nearest(g)) for g in (1, 64))
assert strong.std() < weak.std() <= frame.std(), (strong.std(), weak.std(), frame.std())
PY
}
packages=$(find "$2" -maxdepth 1 -name '*.deb')
names=$(for p in $packages; do dpkg-deb -f "$p" Package; done)
# What dpkg and ldconfig write for themselves is there before.
ldconfig
list_files >/tmp/files-before

echo "== install" $names
# shellcheck disable=SC2086
dpkg -i $packages >/tmp/dpkg.log 2>&1 || { cat /tmp/dpkg.log; exit 1; }
for name in $names; do
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$name")" = installed ]
done

echo "== run"
shift 2
if [ $# -gt 0 ]; then "$@"; else run_all; fi

echo "== remove"
# shellcheck disable=SC2086
dpkg -P $names >/tmp/dpkg.log 2>&1 || { cat /tmp/dpkg.log; exit 1; }
if grep warning /tmp/dpkg.log; then exit 1; fi
list_files >/tmp/files-after
diff /tmp/files-before /tmp/files-after
if ldconfig -p | grep vorn; then exit 1; fi
echo "nothing stayed behind"
