# shellcheck shell=bash
# Sourced by every script here: goes to the project's root and has what they share.
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

say() { printf '== %s\n' "$*"; }
fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# The pinned tools come before those of the machine, and nothing else decides what is imported.
use_venv() {
  export PATH="$PWD/.venv/bin:$PATH"
  unset PYTHONPATH PYTHONHOME
}
