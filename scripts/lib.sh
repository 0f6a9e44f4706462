# Shared by the scripts in this folder; sourced, not run. The caller has set the shell's options.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# The servers that are started here and in the tests live where only the administrator's shell looks.
export PATH=$PATH:/usr/local/sbin:/usr/sbin:/sbin

# A compiler cache makes rebuilding in a fresh checkout quick; without one everything works the same.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
fi

# build_preset PRESET [cmake --build options]
build_preset() {
  local preset=$1
  shift
  (cd "$root" && cmake --preset "$preset" && cmake --build --preset "$preset" --parallel "$(nproc)" "$@")
}

# test_preset PRESET [ctest options]: runs the tests and ends with ctest's closing line, whatever else was printed.
test_preset() {
  local preset=$1 log status=0
  shift
  log=$root/build/$preset/ctest.log
  export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL-$(nproc)}
  (cd "$root" && ctest --preset "$preset" "$@") </dev/null 2>&1 | tee "$log" || status=$?
  echo
  echo "$preset: $(grep --extended-regexp '^[0-9]+% tests passed' "$log" || echo 'ctest ran no test')"
  return "$status"
}
