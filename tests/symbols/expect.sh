# Shared by the tests of the checks in this folder; sourced, not run.
# shellcheck shell=bash

# expect STATUS TEXT COMMAND...: the command must end like this and say this.
expect() {
  local status=$1 text=$2 output actual=0
  shift 2
  output=$("$@" 2>&1) || actual=$?
  if [[ $actual != "$status" || $output != *"$text"* ]]; then
    printf 'expected status %s and "%s", got status %s and:\n%s\n' "$status" "$text" "$actual" "$output"
    exit 1
  fi
}
