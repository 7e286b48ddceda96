#!/usr/bin/env bash
# The project's test command: installs what is missing, then builds and runs
# every test twice, plainly and under AddressSanitizer + UndefinedBehavior-
# Sanitizer, then runs the fuzzing harnesses for half a minute each. Any
# sanitizer report, also from a child process, fails the run.
#   scripts/test.sh            both builds
#   scripts/test.sh plain      one of them (plain | asan)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)
variants=("${@:-plain asan}")
read -r -a variants <<<"${variants[*]}"

for v in "${variants[@]}"; do
  build="build/$v"
  case "$v" in
    plain) flags=(-DWAYSHUNT_SANITIZE=OFF) ;;
    asan) flags=(-DWAYSHUNT_SANITIZE=ON -DWAYSHUNT_BUILD_BENCH=OFF) ;;  # benches build in the plain run
    *) echo "test.sh: unknown build '$v' (plain or asan)" >&2; exit 2 ;;
  esac
  echo "== $v build"
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${flags[@]}" >/dev/null
  cmake --build "$build" -j "$jobs"

  reports="$PWD/$build/sanitizer-reports"
  rm -rf "$reports" && mkdir -p "$reports"
  export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:log_path=$reports/asan"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:log_path=$reports/ubsan"
  echo "== $v tests"
  rc=0
  (cd "$build" && ctest --output-on-failure -j "$jobs" --timeout 300) || rc=$?
  if [ -n "$(ls -A "$reports")" ]; then
    echo "== sanitizer reports in the $v run:" >&2
    cat "$reports"/* >&2
    rc=1
  fi
  [ "$rc" -eq 0 ] || exit "$rc"
done

# The fuzzing harnesses, each for a bounded time, when the full run was asked.
if [ $# -eq 0 ]; then
  echo "== fuzz"
  bash tests/fuzz/run.sh 30
fi
