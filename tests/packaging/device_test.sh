#!/bin/bash
# Cross-builds the library as an Android device takes it, with the device's platform file and the
# real <android/log.h>, looks at the result as a loader would, and runs it under qemu. The C library
# is Debian's, not the device's; docs/android.md says what that leaves open.
#   device_test.sh SOURCE_DIR SCRATCH_DIR [COMPILER]     COMPILER: gcc (default) or clang
set -euo pipefail
source=$(realpath "$1")
mkdir -p "$2"
scratch=$(realpath "$2")
compiler=${3:-gcc}
here=$source/tests/packaging
library=$scratch/build/libvornynr2cnr4.so

mkdir -p "$scratch/include"
ln -sfn /usr/include/android/android "$scratch/include/android"
includes="-I$scratch/include -I$here/device"
# shellcheck disable=SC2086
aarch64-linux-gnu-gcc -shared -fPIC -O2 -Wall -Wextra -Werror $includes -Wl,-soname,liblog.so \
  "$here/device/liblog.c" -o "$scratch/liblog.so"

options=(-DCMAKE_TOOLCHAIN_FILE="$source/cmake/aarch64-linux-gnu.cmake")
if [ "$compiler" = clang ]; then
  options=(-DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14
    -DCMAKE_C_COMPILER_TARGET=aarch64-linux-gnu -DCMAKE_CXX_COMPILER_TARGET=aarch64-linux-gnu)
fi
cmake -S "$source" -B "$scratch/build" -G Ninja "${options[@]}" -DCMAKE_BUILD_TYPE=Release \
  -DANDROID=ON -DVORN_DEVICE_LIBRARY=ON -DVORN_WARNINGS_AS_ERRORS=ON \
  -DCMAKE_CXX_FLAGS="-D__ANDROID__ $includes" -DCMAKE_SHARED_LINKER_FLAGS="-L$scratch" >"$scratch/cmake.log"
cmake --build "$scratch/build" --target vornynr2cnr4 -j 2 >"$scratch/build.log" || { cat "$scratch/build.log"; exit 1; }

failed=0
check() { # NAME WANTED GOT
  if [ "$2" = "$3" ]; then
    echo "ok    $1: $3"
  else
    echo "WRONG $1: $3, wanted $2"
    failed=1
  fi
}

check "a plain file" "regular file" "$(stat -c %F "$library")"
check "machine" AArch64 "$(readelf -h "$library" | sed -n 's/ *Machine: *//p')"
check "soname" libvornynr2cnr4.so "$(readelf -d "$library" | sed -n 's/.*soname: \[\(.*\)\]/\1/p')"
# ld-linux is glibc's own loader; bionic has its part of libc instead.
check "needed" "libc liblog libm" "$(readelf -d "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' |
  grep -v '^ld-linux' | sed 's/\.so.*//' | sort | xargs)"
check "segment alignment" 0x4000 "$(readelf -lW "$library" | awk '$1 == "LOAD" { print $NF }' | sort -u | xargs)"
check "stays mapped" true "$(readelf -d "$library" | grep -q NODELETE && echo true)"
check "text relocations" 0 "$(readelf -d "$library" | grep -cE 'TEXTREL' || true)"
check "executable stack" RW "$(readelf -lW "$library" | awk '$1 == "GNU_STACK" { print $7 }')"
check "run path" "" "$(readelf -d "$library" | grep -E 'RPATH|RUNPATH' || true)"
check "entry points" "vorn_ycnr_capability vorn_ycnr_deinit vorn_ycnr_init vorn_ycnr_process" "$(nm -D --defined-only "$library" |
  awk '$3 ~ /^vorn_ycnr_(init|process|capability|deinit)$/ { print $3 }' | sort | xargs)"
check "exported names of the C++ runtime" "" "$(nm -DC --defined-only "$library" |
  grep -E ' (std::|operator (new|delete)|__cxa|__gxx|__cxxabiv1|__gnu_cxx|_Unwind|typeinfo|vtable)' || true)"
if [ -f "$source/tests/abi/exports.txt" ]; then
  # The same names as everywhere else, down to the last one.
  check "exported names differing from the reviewed list" "" "$(NM=nm "$source/scripts/exports" --check "$library" |
    grep '^[+-][^+-]' | head -5 || true)"
fi
check "undefined names outside libc, libm, liblog" "" "$(nm -D --undefined-only "$library" |
  awk '{ print $2 }' | grep -E '@(CXXABI|GLIBCXX|GCC_)|^_Z|^__cxa_(throw|guard|begin)' || true)"

aarch64-linux-gnu-gcc -O2 -I"$source/include" "$here/consumer/denoise.c" -L"$scratch/build" -L"$scratch" \
  -lvornynr2cnr4 -Wl,-rpath-link,"$scratch" -o "$scratch/denoise"
run() { # CPU OPTION...
  qemu-aarch64 -cpu "$1" -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH="$scratch:$scratch/build" "${@:2}" "$scratch/denoise"
}
# A processor of the first generation, and one with everything.
for cpu in cortex-a53 max; do
  check "a frame on $cpu" "$(run max 2>/dev/null)" "$(run $cpu 2>/dev/null)"
done
lines=$(run max -E ro_debuggable=1 -E persist_vendor_cam_nr_api_log=4 2>&1 >/dev/null)
check "log lines through the device's log" true "$(grep -q '^3 YCNR_LOG: L [0-9]*, vorn_ycnr_process:' <<<"$lines" && echo true)"
# The sample of docs/android.md, with a tuning header as `vorn-ycnr tuning to-c` writes it.
cat >"$scratch/my_sensor.h" <<'H'
#include "vorn_ycnr.h"
typedef struct { double gain; ycnr_ynr_tuning_param luma; ycnr_cnr_tuning_param chroma; } my_sensor_entry;
const my_sensor_entry* my_sensor_nearest(double gain);
H
sed -n '/^```c$/,/^```$/p' "$source/docs/android.md" | sed '1d;$d' >"$scratch/sample.c"
aarch64-linux-gnu-gcc -std=c99 -Wall -Wextra -Werror -pedantic -fsyntax-only -I"$here/device" \
  -I"$source/include" -I"$scratch" "$scratch/sample.c" && sample=compiles
check "the sample of docs/android.md" compiles "${sample:-}"
size=$(stat -c %s "$library")
aarch64-linux-gnu-strip -o "$scratch/stripped.so" "$library"
echo "size: $size bytes, $(stat -c %s "$scratch/stripped.so") stripped"
exit $failed
