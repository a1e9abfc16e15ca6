#!/bin/sh
# Builds C and C++ programs against an installed tree, with pkg-config and with CMake's find_package,
# and runs them; one is the README's, as printed. The tree is moved after the install: nothing may name its old place.
#   install_test.sh SOURCE_DIR BUILD_DIR
set -eu
source=$1/tests/packaging/consumer
build=$2
scratch=$build/install-test
rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$scratch/first" >"$scratch/install.log"
mv "$scratch/first" "$scratch/moved"
prefix=$scratch/moved
libdir=$(dirname "$(find "$prefix" -name 'libvornynr2cnr4.so' -print | head -n 1)")

if grep -rIl "$scratch/first" "$prefix"; then
  echo "the files above name the folder they were installed to"
  exit 1
fi

echo "== headers"
for header in "$prefix"/include/*.h "$prefix"/usr/include/*.h; do
  [ -e "$header" ] || continue
  basename "$header"
  ${CC:-cc} -std=c99 -Wall -Wextra -Werror -pedantic -fsyntax-only -x c "$header"
  ${CXX:-c++} -std=c++11 -Wall -Wextra -Werror -pedantic -fsyntax-only -x c++ "$header"
done

echo "== pkg-config"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
flags=$(pkg-config --cflags --libs vornycnr)
# shellcheck disable=SC2086
${CC:-cc} -std=c99 -Wall -Wextra -Werror -pedantic "$source/denoise.c" $flags -o "$scratch/denoise"
# shellcheck disable=SC2086
${CXX:-c++} -std=c++11 -Wall -Wextra -Werror "$source/capability.cpp" $flags -o "$scratch/capability"
LD_LIBRARY_PATH=$libdir "$scratch/denoise"
LD_LIBRARY_PATH=$libdir "$scratch/capability"

echo "== the README's program"
export LD_LIBRARY_PATH="$libdir"
sed -n '/^```c$/,/^```$/p' "$1/README.md" | sed '1d;$d' >"$scratch/readme.c"
# shellcheck disable=SC2046
${CC:-cc} -std=c99 -Wall -Wextra -Werror -pedantic "$scratch/readme.c" \
  $(pkg-config --cflags --libs vornycnr vorn_tuning) -o "$scratch/readme"
# Two frames of a size that no other test has; the tool must make the same bytes of them.
yes 'a picture of letters' | head -c 184320 >"$scratch/in_320x192.nv12"
"$scratch/readme" 320 192 <"$scratch/in_320x192.nv12" >"$scratch/out.nv12" 2>"$scratch/readme.log"
[ ! -s "$scratch/readme.log" ] # its log is silenced
[ "$(stat -c %s "$scratch/out.nv12")" = 184320 ]
if [ -x "$prefix/bin/vorn-ycnr" ]; then
  env -u LD_LIBRARY_PATH "$prefix/bin/vorn-ycnr" denoise "$scratch/in_320x192.nv12" --gain 8 \
    -o "$scratch/tool_320x192.nv12" 2>"$scratch/tool.log"
  cmp "$scratch/out.nv12" "$scratch/tool_320x192.nv12"
fi
unset LD_LIBRARY_PATH

echo "== find_package"
cmake -S "$source" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" >"$scratch/cmake.log"
cmake --build "$scratch/cmake" >>"$scratch/cmake.log"
"$scratch/cmake/denoise"
"$scratch/cmake/capability"
grep -q "^vornycnr_DIR:PATH=$prefix/" "$scratch/cmake/CMakeCache.txt"

echo "== a version that is not there is refused"
if cmake -S "$source" -B "$scratch/refused" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_PROJECT_INCLUDE="$1/tests/packaging/next_major.cmake" >"$scratch/refused.log" 2>&1; then
  echo "find_package took version 2"
  exit 1
fi
grep -q 'compatible with requested version "2' "$scratch/refused.log"

echo "== add_subdirectory"
cmake -S "$source" -B "$scratch/subproject" -DVORNYCNR_SOURCE="$1" >"$scratch/subproject.log"

echo "== without SIMDe"
case $(uname -m) in
  x86_64)
    if cmake -S "$1" -B "$scratch/no-simde" -DCMAKE_SYSTEM_IGNORE_PATH=/usr/include \
      >"$scratch/no-simde.log" 2>&1; then
      echo "configured without SIMDe"
      exit 1
    fi
    grep -q 'libsimde-dev' "$scratch/no-simde.log"
    ;;
esac

echo "== without the NDK"
if env -u ANDROID_NDK_HOME cmake -S "$1" -B "$scratch/android" \
  -DCMAKE_TOOLCHAIN_FILE="$1/cmake/android-ndk.cmake" >"$scratch/android.log" 2>&1; then
  exit 1
fi
# CMake breaks the lines of a message.
tr -s ' \n' ' ' <"$scratch/android.log" | grep -q 'set ANDROID_NDK_HOME'
