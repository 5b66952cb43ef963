# shellcheck shell=bash
# Sourced by scripts that run several checks: a failure does not stop the checks after it.

failed=()
# check NAME COMMAND...: one step.
check() {
  local name=$1
  shift
  if "$@"; then
    say "$name: clean"
  else
    say "$name: FAILED"
    failed+=("$name")
  fi
}

fail_if_any_failed() {
  if ((${#failed[@]})); then
    fail "failed: ${failed[*]}"
  fi
}
