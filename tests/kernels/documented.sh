#!/usr/bin/env bash
# documented.sh KERNEL_CHECK DOCUMENT : every kernel that the check knows stands in the document.
set -euo pipefail
missing=0
for kernel in $("$1" --list | awk '{ print $1 }' | sort -u); do
  if ! grep -qF "\`$kernel\`" "$2"; then
    echo "$kernel has no line in ${2##*/}"
    missing=1
  fi
done
exit $missing
