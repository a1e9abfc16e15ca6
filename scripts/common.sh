# Shared by the scripts beside it; source it. Leaves the shell in the repository's root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# install_packages GROUP... : installs the missing packages of these groups of .ci/packages.txt, or
# of the file that packages_file names (a group begins with a line "# name: ..."). Does nothing, and needs no network, when all are there.
install_packages() {
  local wanted="" group missing=""
  for group in "$@"; do
    wanted+=" $(awk -v g="$group" '/^#/ { on = index($0, "# " g ":") == 1; next } on && NF' "${packages_file:-.ci/packages.txt}")"
  done
  for package in $wanted; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=" $package"
  done
  [ -n "$missing" ] || return 0
  local as_root=""
  [ "$(id -u)" = 0 ] || as_root=sudo
  echo "installing:$missing"
  $as_root apt-get update -qq
  # shellcheck disable=SC2086
  DEBIAN_FRONTEND=noninteractive $as_root apt-get install -y -qq --no-install-recommends $missing >/dev/null
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" ${@:+--target "$@"}
}
