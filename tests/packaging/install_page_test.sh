#!/bin/sh
# Runs the commands of docs/install.md as they are printed there, in the source folder that is the
# current one, and looks for files that stay behind. scripts/clean-root runs it in a clean root.
set -eu
awk '/^```/ { on = ($0 == "```sh run"); next } on' docs/install.md >/tmp/commands
[ -s /tmp/commands ]
find /usr/local ! -type d | sort >/tmp/files-before
bash -euo pipefail -x /tmp/commands
find /usr/local ! -type d | sort >/tmp/files-after
diff /tmp/files-before /tmp/files-after
