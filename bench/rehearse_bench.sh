#!/usr/bin/env bash
# What rehearsing a fleet in parallel costs against running its moves one
# by one: a fleet of IMAGES images of RECORDS records (eras 3.2, 4.1, 4.2),
# 'rehearse --ladder -j JOBS' timed; then every cell it ran, run again as
# 'run' on a fresh copy of its image (each leg of a round trip in turn),
# timed one after another. Printed: the rehearsal's wall time W, the sum S
# of the single runs (wall and CPU), W / (S / JOBS) (1.0: the cores fully
# shared, no cost of its own) and W / (S's CPU / JOBS) (a single run already
# keeps more than one core busy part of the time), and the peak memory of
# the rehearsal's process tree against JOBS times the largest single run's.
#   bench/rehearse_bench.sh [IMAGES] [RECORDS] [JOBS]     (default 20 20000 2)
set -euo pipefail
cd "$(dirname "$0")/.."
images=${1:-20}; records=${2:-20000}; jobs=${3:-2}
tool=$(realpath "${WAYSHUNT_TOOL:-build/plain/bin/wayshunt-convert}")
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT

now() { date +%s.%N; }
# Peak proportional memory (PSS, KiB: pages shared by forked processes
# counted once) of a process and its descendants, sampled every 20 ms until
# it ends; the command's output is dropped.
peak_tree_kib() {
  "$@" >/dev/null 2>&1 & local pid=$! peak=0 kib
  while kill -0 "$pid" 2>/dev/null; do
    kib=$(ps -e -o pid=,ppid= | awk -v root="$pid" '
      {parent[$1] = $2}
      END {for (p in parent) {q = p; while (q != "" && q != 0 && q != root) q = parent[q]; if (q == root) print p}}' |
      while read -r p; do awk '/^Pss:/ {print $2}' "/proc/$p/smaps_rollup" 2>/dev/null; done | awk '{s += $1} END {print s + 0}')
    [ "$kib" -gt "$peak" ] && peak=$kib
    sleep 0.02
  done
  wait "$pid" || true
  echo "$peak"
}

seconds() {  # wall seconds of a command, its output dropped
  local t0; t0=$(now); "$@" >/dev/null 2>&1 || true; awk -v a="$t0" -v b="$(now)" 'BEGIN {print b - a}'
}

"$tool" gen --fleet "$work/fleet" --images "$images" --records "$records" --eras 3.2,4.1,4.2 --seed 1 >/dev/null
# Each timed phase starts with nothing left to write back: the fleet just
# written would otherwise be flushed to disk while the first phase syncs.
sync
wall=$(seconds "$tool" rehearse --ladder --quiet -j "$jobs" --out "$work/out" "$work/fleet")

# The cells as the rehearsal ran them: image, then the releases of its path.
python3 - "$work/out/rehearsal.json" >"$work/cells" <<'PY'
import json, sys
doc = json.load(open(sys.argv[1]))
for c in doc["cells"]:
    print(c["image"], *c["path"])
PY
# Runs a cell's legs with 'run' on a fresh copy of its image; with a first
# argument "peak", prints the largest memory of a leg instead of nothing.
cell_runs() {
  local measure=$1 image=$2 kib peak=0; shift 2
  local releases=("$@")
  rm -rf "$work/img"; cp -a "$work/fleet/$image" "$work/img"
  for ((i = 0; i + 1 < ${#releases[@]}; i++)); do
    # --force: a round trip's way back, or a store of no one era, as the rehearsal takes them
    local leg=("$tool" run --from "${releases[i]}" --to "${releases[i + 1]}" --image "$work/img" --quiet --force)
    if [ "$measure" = peak ]; then
      kib=$(peak_tree_kib "${leg[@]}"); [ "$kib" -gt "$peak" ] && peak=$kib
    else
      "${leg[@]}" >/dev/null 2>&1 || true
    fi
  done
  [ "$measure" = peak ] && echo "$peak" || true
}
sync
cells=$(wc -l <"$work/cells")
# Wall and CPU seconds (user + system, the runs' processes included) of the
# single runs, one after another.
TIMEFORMAT='%R %U %S'
read -r sum user sys < <({ time while read -r -a cell; do cell_runs time "${cell[@]}"; done <"$work/cells"; } 2>&1)
cpu=$(awk -v u="$user" -v s="$sys" 'BEGIN {print u + s}')

# Memory, apart from the timings (sampling takes a core's share): the
# rehearsal again, and every single run.
rehearse_kib=$(peak_tree_kib "$tool" rehearse --ladder --quiet -j "$jobs" --out "$work/out2" "$work/fleet")
single_kib=0
while read -r -a cell; do
  kib=$(cell_runs peak "${cell[@]}"); [ "$kib" -gt "$single_kib" ] && single_kib=$kib
done <"$work/cells"

printf 'fleet: %d images of %d records, %d cells, -j %d on %d cores\n' "$images" "$records" "$cells" "$jobs" "$(nproc)"
printf 'rehearse wall W        %8.2f s\n' "$wall"
printf 'single runs, sum S     %8.2f s wall, %.2f s CPU (a run converts its copies side by side)\n' "$sum" "$cpu"
printf 'W / (S / %d)            %8.2f   (target <= 1.2)\n' "$jobs" "$(awk -v w="$wall" -v s="$sum" -v j="$jobs" 'BEGIN {print w / (s / j)}')"
printf 'W / (S CPU / %d)        %8.2f   (the single runs'"'"' work spread evenly over the cores)\n' "$jobs" \
  "$(awk -v w="$wall" -v s="$cpu" -v j="$jobs" 'BEGIN {print w / (s / j)}')"
printf 'peak memory (PSS): rehearse %d KiB, largest single run %d KiB, %d x that %d KiB\n' \
  "$rehearse_kib" "$single_kib" "$jobs" "$((jobs * single_kib))"
