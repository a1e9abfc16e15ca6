#!/usr/bin/env bash
# The corpus of whole frames with every compiler, build type, processor and kernel form at hand:
# g++ release and debug, clang, the sanitizers, and AArch64 under emulation with several processors.
# corpus_everywhere.sh [PRESET...] runs the named presets only. Ends with one line per preset.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
[ $# -gt 0 ] || set -- host debug clang asan tsan aarch64

summary=""
failed=0
for preset in "$@"; do
  dir=build/corpus-$preset
  cmake --preset "$preset" -B "$dir" -DVORN_BUILD_TOOLS=OFF -DVORN_BUILD_BENCH=OFF >/dev/null
  if ! cmake --build "$dir" --target corpus; then
    summary+="$preset: the build failed"$'\n'
    failed=1
    continue
  fi
  log=$dir/corpus.log
  ctest --test-dir "$dir" -R '^corpus\.' --verbose -j2 >"$log" || failed=1
  cases=$(grep -Eo '[0-9]+ of [0-9]+ cases agree' "$log" |
    awk '{ good += $1; all += $3 } END { printf "%d of %d frames agree", good, all }')
  tests=$(grep -E 'tests? (passed|failed).* out of' "$log")
  summary+="$preset: $cases; $tests"$'\n'
done
printf '\n%s' "$summary"
exit $failed
