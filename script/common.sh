# shellcheck shell=bash
# Sourced by the other scripts: changes to the root of the project and defines shared functions.
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

say() { printf '== %s\n' "$*"; }
fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# Puts the pinned tools first on PATH and unsets variables that change what Python imports.
use_venv() {
  export PATH="$PWD/.venv/bin:$PATH"
  unset PYTHONPATH PYTHONHOME
}

# install_packages [OPTION...] PACKAGE...: installs Debian packages on this computer.
install_packages() {
  local as_root=()
  if ! command -v apt-get >/dev/null; then
    fail "please install the equivalents of these Debian packages, then run this again: $*"
  fi
  if ((EUID != 0)); then
    if ! sudo -n true 2>/dev/null; then
      fail "please run 'sudo apt-get install $*', then run this again"
    fi
    as_root=(sudo -n)
  fi
  say "installing Debian packages: $*"
  "${as_root[@]}" apt-get update -qq </dev/null
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$@" </dev/null
}
