#!/usr/bin/env bash
# Records what a build's conversion library does on a fixed set of moves, so
# that a restructuring can be shown to change nothing: for each move, gate
# (shut, open) and fault set, the final runtime store (dump --json), every
# platform call (journal), the conversion log, the statuses and the files on
# the standby. Compare two snapshots with diff -r.
#
#   scripts/behaviour-snapshot.sh BUILD_DIR OUT_DIR [RECORDS]
#
# Masked: source line numbers in log records ("func():123 "), which move with
# any edit; the time in the closing record; hub tokens and dynamic access
# points; node addresses in traces, numbered in order of first appearance.
set -euo pipefail
build=$(cd "$1" && pwd); out=$2; records=${3:-400}
tool=$build/bin/wayshunt-convert
mkdir -p "$out"; out=$(cd "$out" && pwd)
# The move alone: a tool that forecasts and audits each move runs the library
# on copies as well, which a snapshot of the move does not want.
alone=(); "$tool" run --help 2>/dev/null | grep -q -- --no-audit && alone=(--no-audit)
work=$(mktemp -d); trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT

mask() {
  W="$work" perl -pe 's/\Q$ENV{W}\E/WORK/g; s/\(\):[0-9]+ /():N /g; s/\) = 0 sap=[0-9]+/) = 0 sap=S/g;
    s/token=0x[0-9a-f]+/token=T/g; s/hub_rr_token_get\(state=1\) = 0x[0-9a-f]+/hub_rr_token_get(state=1) = T/;
    s/at [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} [0-9]{4}/at TIME/g;
    s/(Entry: )(0x[0-9a-f]+)/$1.($p{$2} \/\/= "P".++$n)/ge'
}

# portmap table: one slot out, one port moved, so some lookups fail or change
printf 'fc7/1 fail\nfc2/1 9\nfc3/12 fail\n' > "$work/portmap"

# name from-era from to faults
moves=(
  "up32 3.2 3.2(1) 4.2(1a)"
  "up32to41 3.2 3.2(1) 4.1(3)"
  "up41 4.1 4.1(3) 4.2(1)"
  "down42to41 4.2 4.2(1) 4.1(3)"
  "down42to32 4.2 4.2(1) 3.2(2)"
  "down41to32 4.1 4.1(3) 3.2(1)"
  "down42to31 4.2 4.2(1) 3.1(1)"
  "same 4.2 4.2(1) 4.2(3)"
)
faults=(
  ""
  "kvs_store:3"
  "kvs_delete:2"
  "kvs_delete:1+"
  "tk_hashtable_64_insert:5"
  "tk_cq_enqueue:2"
  "kvs_move2location:7=0x40480001"
  "portmap_get_slot:2-4"
  "kvs_open:1"
  "hub_send:1=ECONNREFUSED"
)

for m in "${moves[@]}"; do
  read -r name era from to <<<"$m"
  for gate in shut open; do
    for fi in "${!faults[@]}"; do
      f=${faults[$fi]}
      case=$name.$gate.f$fi; img=$work/$case; dst=$out/$case
      mkdir -p "$dst" "$img/mnt/kvs"
      "$tool" gen --era "$era" --records "$records" --seed 7 "$img/mnt/kvs" >/dev/null
      for s in oper_cfg target_config pending_del_config tgt_cfg_v2; do
        for e in dat kvs map; do echo "$s.$e" > "$img/mnt/kvs/wayshunt_$s.$e"; done
      done
      svc=""
      if [ "$name" = down42to31 ]; then
        "$tool" service --image "$img" --ready "$img/ready" >/dev/null 2>&1 & svc=$!
        for _ in $(seq 100); do [ -e "$img/ready" ] && break; sleep 0.05; done
      fi
      args=(run --from "$from" --to "$to" --image "$img" "${alone[@]}")
      [ $gate = open ] && args+=(--trace)
      rc=0
      PLAT_FAULTS="$f" PLAT_JOURNAL="$dst/journal" PLAT_PORTMAP_TABLE="$work/portmap" "$tool" "${args[@]}" \
        2>&1 | mask | grep -v '^move .* library ' > "$dst/run.out" || rc=$?
      echo "$rc" > "$dst/rc"
      [ -n "$svc" ] && { kill "$svc" 2>/dev/null; wait "$svc" 2>/dev/null || true; }
      mask < "$dst/journal" > "$dst/journal.m" 2>/dev/null && mv "$dst/journal.m" "$dst/journal" || true
      [ -f "$img/bootflash/wayshunt_cnv.log" ] && mask < "$img/bootflash/wayshunt_cnv.log" > "$dst/log"
      "$tool" dump --json "$img/mnt/kvs" > "$dst/store.json"
      (cd "$img" && find standby -type f 2>/dev/null | sort) > "$dst/standby"
      [ -f "$img/service-requests.txt" ] && sed -E 's/token=0x[0-9a-f]+/token=T/; s/from=[^ ]+/from=F/' "$img/service-requests.txt" > "$dst/requests"
      rm -rf "$img"
    done
  done
done
echo "snapshot: $(ls "$out" | wc -l) cases in $out"
