# Sourced by tests of the program, with PROGRAM DIRECTORY as arguments: goes into the emptied directory;
# `faults` counts what failed.
set -uo pipefail
program=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work" || exit 1
faults=0

# check WHAT COMMAND...: the command must succeed.
check() {
  local what=$1
  shift
  if ! "$@"; then
    echo "FAILED: $what"
    faults=$((faults + 1))
  fi
}
# says PART FILE: the file holds the text.
says() {
  check "$2 says \"$1\"" grep -qF -- "$1" "$2"
}
# refuses MESSAGE-PART ARGUMENT...: exit code 2, one line on standard error that holds the part.
refuses() {
  local part=$1 code
  shift
  "$program" "$@" >out.txt 2>err.txt
  code=$?
  if [ $code != 2 ] || [ "$(wc -l <err.txt)" != 1 ] || ! grep -qF -- "$part" err.txt; then
    echo "FAILED: vorn-ycnr $* -> code $code: $(cat err.txt)"
    faults=$((faults + 1))
  fi
}
