#!/bin/sh
# Makes the Debian packages, installs them with dpkg, runs what they bring, removes them, and looks
# for what stayed behind. All of it happens in a throw-away overlay over this machine's root file
# system, so that nothing of the machine changes. Needs root.
#   deb_test.sh SOURCE_DIR BUILD_DIR
set -eu
source=$(realpath "$1")
build=$(realpath "$2")

if [ "${3:-}" != inside ]; then
  rm -rf "$build/packages"
  (cd "$build" && cpack -G DEB >"$build/cpack.log" 2>&1) || { cat "$build/cpack.log"; exit 1; }
  overlay=$(mktemp -d)
  trap 'rm -rf "$overlay"' EXIT
  # An overlay cannot lie on another overlay, which a container's root often is; memory can.
  exec_inside='mount -t tmpfs tmpfs "$1" && mkdir "$1/upper" "$1/work" "$1/root" &&
    mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/root" &&
    mount -t proc proc "$1/root/proc" && mount --rbind /dev "$1/root/dev" &&
    mkdir -p "$1/root$3" "$1/root$4" && mount --rbind "$3" "$1/root$3" && mount --rbind "$4" "$1/root$4" &&
    exec chroot "$1/root" sh "$2" "$3" "$4" inside'
  unshare --mount --pid --fork sh -ec "$exec_inside" sh "$overlay" \
    "$source/tests/packaging/deb_test.sh" "$source" "$build"
  exit
fi

export DEBIAN_FRONTEND=noninteractive
cd /
list_files() { find /usr /etc /opt /var/lib -xdev \( -path /var/lib/dpkg -o -path /var/lib/apt \) -prune -o -print | sort; }
packages=$(find "$build/packages" -maxdepth 1 -name '*.deb')
names=$(for p in $packages; do dpkg-deb -f "$p" Package; done)
list_files >/tmp/files-before

echo "== install" $names
# shellcheck disable=SC2086
dpkg -i $packages >/tmp/dpkg.log 2>&1 || { cat /tmp/dpkg.log; exit 1; }
for name in $names; do
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$name")" = installed ]
  dpkg -V "$name"
  [ -s "/usr/share/doc/$name/copyright" ] || { echo "$name has no copyright file"; exit 1; }
done

echo "== run"
flags=$(pkg-config --cflags --libs vornycnr)
# shellcheck disable=SC2086
cc -std=c99 "$source/tests/packaging/consumer/denoise.c" $flags -o /tmp/denoise
/tmp/denoise 2>/dev/null
ldconfig -p | grep -q 'libvornynr2cnr4\.so\.1 '
if [ -x /usr/bin/vorn-ycnr ]; then
  vorn-ycnr info
  man -w vorn-ycnr
  bash -ic 'complete -p vorn-ycnr >/dev/null 2>&1 || { . /usr/share/bash-completion/bash_completion; _completion_loader vorn-ycnr; complete -p vorn-ycnr; }' 2>/dev/null
fi
case $names in *gstreamer*) gst-inspect-1.0 vornycnr | grep -q 'tuning-file' ;; esac
case $names in *python*) env -u PYTHONPATH /usr/bin/python3 -c 'import vornycnr; print(vornycnr.Denoiser(64, 64).capability()["library"]["version"])' ;; esac

echo "== remove"
# shellcheck disable=SC2086
dpkg -P $names >/tmp/dpkg.log 2>&1 || { cat /tmp/dpkg.log; exit 1; }
if [ "$(grep -c warning /tmp/dpkg.log)" != 0 ]; then cat /tmp/dpkg.log; exit 1; fi
list_files >/tmp/files-after
diff /tmp/files-before /tmp/files-after
ldconfig -p | grep vornynr2cnr4 && exit 1
echo "nothing stayed behind"
