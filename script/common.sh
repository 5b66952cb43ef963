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
