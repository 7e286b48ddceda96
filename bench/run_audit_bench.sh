#!/usr/bin/env bash
# What the forecast and the audit cost: for each move of the ladder, 'run'
# (forecast, move, audit) against 'run --no-audit' (the move alone) on
# copies of one generated store, timed in the same run; the median of the
# runs' ratios is printed with both times.
#   bench/run_audit_bench.sh [RECORDS] [RUNS]     (default 1000000 and 3)
set -euo pipefail
cd "$(dirname "$0")/.."
records=${1:-1000000}; runs=${2:-3}
tool=${WAYSHUNT_TOOL:-build/plain/bin/wayshunt-convert}
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT

seconds() {  # seconds of a command, its output dropped
  local t0 t1; t0=$(date +%s.%N); "$@" >/dev/null || true; t1=$(date +%s.%N)
  awk -v a="$t0" -v b="$t1" 'BEGIN {print b - a}'
}
median() { sort -g | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

printf '%-12s %10s %12s %8s\n' move "no-audit s" "audited s" ratio
for m in "3.2 3.2(1) 4.2(1)" "4.1 4.1(3) 4.2(1)" "4.2 4.2(1) 4.1(3)" "4.2 4.2(1) 3.2(1)" "4.1 4.1(3) 3.2(1)"; do
  read -r era from to <<<"$m"
  [ -d "$work/s$era" ] || "$tool" gen --era "$era" --records "$records" --seed 5 "$work/s$era/mnt/kvs" >/dev/null
  plain=(); audited=(); ratios=()
  for _ in $(seq "$runs"); do
    rm -rf "$work/img"; cp -a "$work/s$era" "$work/img"
    p=$(seconds "$tool" run --from "$from" --to "$to" --image "$work/img" --no-audit --quiet)
    rm -rf "$work/img"; cp -a "$work/s$era" "$work/img"
    a=$(seconds "$tool" run --from "$from" --to "$to" --image "$work/img" --quiet)
    plain+=("$p"); audited+=("$a"); ratios+=("$(awk -v a="$a" -v p="$p" 'BEGIN {print a / p}')")
  done
  printf '%-12s %10.2f %12.2f %7.2fx\n' "$from->$to" "$(printf '%s\n' "${plain[@]}" | median)" \
    "$(printf '%s\n' "${audited[@]}" | median)" "$(printf '%s\n' "${ratios[@]}" | median)"
done
