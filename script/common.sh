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

# show_steps LOG: copies standard input to the file LOG, and shows the steps of ninja in it: in place in
# a terminal, elsewhere every five seconds.
show_steps() {
  local line shown=0 begun=$SECONDS pattern='^ *\[([0-9]+)/([0-9]+)\] (.*)'
  : >"$1"
  while IFS= read -r line; do
    printf '%s\n' "$line" >>"$1"
    [[ $line =~ $pattern ]] || continue
    if [[ -t 1 ]]; then
      printf '\r   step %d of %d, %d s \e[K' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}" $((SECONDS - begun))
    elif ((SECONDS - shown >= 5)); then
      printf '   step %d of %d, %d s\n' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}" $((SECONDS - begun))
      shown=$SECONDS
    fi
  done
  if [[ -t 1 ]]; then
    printf '\r\e[K'
  fi
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
