#!/bin/sh
# Builds a C and a C++ program against an installed tree, once with pkg-config, once with CMake's
# find_package, and runs them. The tree is moved after the install: nothing may name its old place.
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

if [ -e "$libdir/pkgconfig/vorn_tuning.pc" ]; then
  echo "== the program of the README"
  sed -n '/^```c$/,/^```$/{/^```/!p}' "$1/README.md" >"$scratch/readme.c"
  cat >>"$scratch/readme.c" <<'C'
static uint8_t noisy[128 * 96 * 3 / 2], clean[128 * 96 * 3 / 2];
int main(void) { return denoise(noisy, clean, 128, 96, 8) != 0 || denoise(noisy, clean, 128, 96, 0) != -1; }
C
  # shellcheck disable=SC2046
  ${CC:-cc} -std=c99 -Wall -Wextra -Werror "$scratch/readme.c" $(pkg-config --cflags --libs vornycnr vorn_tuning) \
    -o "$scratch/readme"
  LD_LIBRARY_PATH=$libdir "$scratch/readme"
fi

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
