#!/usr/bin/env bash
# Builds the libFuzzer harnesses in a clang build (build/fuzz, with
# AddressSanitizer and UndefinedBehaviorSanitizer) and runs each for the
# given seconds, starting from its seed corpus: tests/fuzz/corpus-<harness>,
# or tests/fuzz/corpus for the conversion library's two. New inputs go to
# build/fuzz/corpus-<harness>; a crash leaves its input in
# build/fuzz/findings/, and the run fails once every harness has run.
#   tests/fuzz/run.sh [SECONDS-PER-HARNESS] [HARNESS...]   default: 30, all six
set -euo pipefail
cd "$(dirname "$0")/../.."
secs=${1:-30}; shift || true
all="fuzz_convert_shut fuzz_convert_open fuzz_store_file fuzz_store_json fuzz_reldesc fuzz_fault_rules"
harnesses=("${@:-$all}")
read -r -a harnesses <<<"${harnesses[*]}"
b=build/fuzz
cmake -S . -B $b -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DWAYSHUNT_SANITIZE=ON -DWAYSHUNT_FUZZ=ON -DWAYSHUNT_BUILD_TOOLS=ON -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link \
  -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build $b -j "$(nproc)" --target "${harnesses[@]}" >/dev/null
mkdir -p $b/findings
failed=()
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1" UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
for h in "${harnesses[@]}"; do
  seeds=tests/fuzz/corpus-$h
  [ -d $seeds ] || seeds=tests/fuzz/corpus
  # The longest input: an edit list of a store file is short, a store's
  # JSON seed is a few kilobytes.
  case $h in
    fuzz_store_json) max_len=8192 ;;
    fuzz_store_file | fuzz_fault_rules) max_len=512 ;;
    *) max_len=2048 ;;
  esac
  mkdir -p $b/corpus-$h
  echo "== $h for ${secs}s"
  rc=0
  $b/bin/$h -max_total_time="$secs" -max_len=$max_len -timeout=20 -print_final_stats=1 \
    -artifact_prefix=$b/findings/$h- $b/corpus-$h $seeds > $b/$h.log 2>&1 || rc=$?
  grep -E '^(stat::number_of_executed_units|SUMMARY|fuzz_)' $b/$h.log || true
  [ $rc -eq 0 ] || { tail -40 $b/$h.log >&2; echo "$h: failed; the input is in $b/findings" >&2; failed+=("$h"); }
done
# Every harness runs, so that one failing hides nothing of the others.
[ ${#failed[@]} -eq 0 ] || { echo "failed: ${failed[*]}" >&2; exit 1; }
