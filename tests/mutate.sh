#!/usr/bin/env bash
# Proof that the library tests find faults: plants one deliberate fault at a
# time in a scratch copy of the tree, rebuilds the library there, runs the
# library tests against it and counts the faults they caught. The tree
# itself is never touched. Needs the library tests of this tree (cnv_test,
# and cnv_differential where it exists).
#
#   tests/mutate.sh [-k] [-n NAME-PATTERN] [-j JOBS]
#     -k  keep the scratch copy (its path is printed)
#     -n  only the mutants whose name matches the pattern (grep -E)
#     -t  list the mutants and check that each one's text occurs exactly
#         once in the library, without building anything
#
# Each mutant is "name ~~ file ~~ text ~~ replacement": the text (a literal,
# "\n" for a line feed) must occur exactly once in the file, so that a
# mutant follows its code through edits. Exit status 1 when a mutant lives.
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd)
keep=0 only="" listonly=0 jobs=2
while getopts "kn:tj:" o; do
  case $o in k) keep=1 ;; n) only=$OPTARG ;; t) listonly=1 ;; j) jobs=$OPTARG ;; *) exit 2 ;; esac
done
lib=infra/convert_libs/comps/libwayshuntconvert
W=wayshunt_cnv

mutants=$(cat <<'EOF'
pgmdone-on-type-56 ~~ rw_repair ~~ key_type == WAYSHUNT_KVS_KEY_ACL_RW_1 && ~~ key_type != WAYSHUNT_KVS_KEY_ACL_RW_1 &&
pgmdone-mask-keeps-busy ~~ rw_repair ~~ ~(WAYSHUNT_ACL_FLAG_PGM_PENDING | WAYSHUNT_ACL_FLAG_PGM_BUSY | WAYSHUNT_ACL_FLAG_FO) ~~ ~(WAYSHUNT_ACL_FLAG_PGM_PENDING | WAYSHUNT_ACL_FLAG_FO)
dropall-tests-did ~~ rw_repair ~~ new_acl_rw_data.dst_sid_wwn.num != 0 ~~ new_acl_rw_data.dst_did_wwn.num != 0
fo-rule-needs-no-busy ~~ rw_repair ~~ if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_PGM_BUSY) && (new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_FO)) ~~ if (new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_FO)
vw-rule-ignores-busy ~~ rw_repair ~~ (WAYSHUNT_ACL_FLAG_VIRTUAL | WAYSHUNT_ACL_FLAG_PGM_BUSY))) { ~~ (WAYSHUNT_ACL_FLAG_VIRTUAL))) {
slot-after-store ~~ rw_repair ~~   new_acl_rw_data.slot_num = wayshunt_cnv_get_slot_no_from_if_index(new_acl_rw_data.if_index);\n ~~
rw-short-value-read ~~ rw_repair ~~ kvs_data_p->siz < sizeof new_acl_rw_data) return; ~~ kvs_data_p->siz < 2) return;
rw-stored-84 ~~ rw_repair ~~   kvs_data.siz = sizeof new_acl_rw_data; ~~   kvs_data.siz = sizeof new_acl_rw_data + 2;
rw-physical-not-tabled ~~ rw_repair ~~ if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL) && ~~ if ((new_acl_rw_data.acl_flags & WAYSHUNT_ACL_FLAG_VIRTUAL) &&
slot-invalid-is-0 ~~ rw_repair ~~     return WAYSHUNT_SLOT_INVALID;\n  }\n  WAYSHUNT_CNV_TRACE("%s():%d slot_num = %u\\n", slot_num); ~~     return 0;\n  }\n  WAYSHUNT_CNV_TRACE("%s():%d slot_num = %u\\n", slot_num);
els-no-slot-fill ~~ els_fill ~~   new_acl_els_data.slot_num = wayshunt_cnv_get_slot_no_from_if_index(new_acl_els_data.if_index); ~~
els-exact-size-skipped ~~ els_fill ~~ kvs_data_p->siz < sizeof new_acl_els_data ~~ kvs_data_p->siz <= sizeof new_acl_els_data
up32-tail-insertion ~~ upgrade_32 ~~       node_p->nxt_p = head_p->nxt_p;\n      head_p->nxt_p = node_p; ~~       for (wayshunt_cnv_32_acl_rw_node_t *t_p = head_p;; t_p = t_p->nxt_p) if (t_p->nxt_p == NULL) { t_p->nxt_p = node_p; break; }
widen-leak-on-enqueue-fail ~~ flow_thru_widen ~~     free(entry_421_p);\n ~~
widen-names-misplaced ~~ flow_thru_widen ~~ memcpy(entry_421_p + offsetof(wayshunt_kvs_key_flow_thru_host_t, host_pwwn), ~~ memcpy(entry_421_p + offsetof(wayshunt_kvs_key_flow_thru_host_t, host_pwwn) - 4,
widen-marks-unqueued ~~ flow_thru_widen ~~     free(entry_421_p);\n    return; ~~     free(entry_421_p);\n    *del_key_p = 1;\n    return;
table-isl-ignored ~~ tgt_table_413 ~~   if (!(acl_p->acl_flags & WAYSHUNT_ACL_FLAG_ISL)) return; ~~
table-chain-cut ~~ tgt_table_413 ~~     node_p->nxt_p = head_p->nxt_p;\n    head_p->nxt_p = node_p;\n    WAYSHUNT_CNV_TRACE("%s():%d Inserted after head\\n");\n    return; ~~     node_p->nxt_p = NULL;\n    head_p->nxt_p = node_p;\n    WAYSHUNT_CNV_TRACE("%s():%d Inserted after head\\n");\n    return;
save-under-type-56 ~~ tgt_table_413 ~~ kvs_key_acl_rw.key_type.kvs_type = WAYSHUNT_KVS_KEY_ACL_RW_1; ~~ kvs_key_acl_rw.key_type.kvs_type = WAYSHUNT_KVS_KEY_ACL_RW_2;
scan-ignores-slot ~~ tgt_table_413 ~~           if (virt_entry_p->slot_num != phy_entry_p->slot_num) continue;\n ~~
scan-no-break ~~ tgt_table_413 ~~           wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, phy_node_p->kvs_hash_key_lower, phy_entry_p);\n          break; ~~           wayshunt_cnv_upgrade_from_41_acl_rw_save_entry(service, phy_node_p->kvs_hash_key_lower, phy_entry_p);
index-plain-virtual-candidates ~~ trunk_index_413 ~~       if (!(virt_acl_flags & WAYSHUNT_ACL_FLAG_PHYSICAL)) continue; ~~
index-self-candidate ~~ trunk_index_413 ~~       if (j == i) continue; ~~
index-groups-ignore-did ~~ trunk_index_413 ~~ memcmp(&f->src_did_wwn, &e->src_did_wwn, sizeof(wwn_t)) == 0) { ~~ 1) {
index-end-keeps-virtual ~~ trunk_index_413 ~~     if (j == WAYSHUNT_CNV_IX_NONE) {\n      phy_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL; ~~     if (j == WAYSHUNT_CNV_IX_NONE) {\n      phy_entry_p->acl_flags &= ~WAYSHUNT_ACL_FLAG_PHYSICAL;
release-leaks-nodes ~~ upgrade_413 ~~       free(node_p);\n      node_p = nxt_p; ~~       node_p = nxt_p;
getkey-skipped-after-delete ~~ upgrade_413 ~~       pkey = wayshunt_cnv_key_after_delete(service, saved, siz, rc, &rc); ~~       pkey = kvs_move2location(service, KVS_LOC_NEXT, &rc);
type-58-repaired ~~ upgrade_413 ~~       case WAYSHUNT_KVS_KEY_ACL_ELS_1:\n ~~
no-fixup ~~ upgrade_413 ~~   wayshunt_cnv_upgrade_from_413_fix_trunk_entries(service, &tgt_ht); ~~
close-status-lost ~~ upgrade_413 ~~     WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\\n", retcode2str(rc));\n    return rc; ~~     WAYSHUNT_CNV_TRACE("%s():%d kvs_close error: %s\\n", retcode2str(rc));\n    return 0;
open-status-lost ~~ upgrade_413 ~~     tk_hashtable_64_destroy(&tgt_ht);\n    return rc; ~~     tk_hashtable_64_destroy(&tgt_ht);\n    return 0;
after-delete-spins ~~ walk ~~   return kvs_move2location(service, KVS_LOC_NEXT, rcode); ~~   return pkey;
after-delete-skips ~~ walk ~~   if (pkey == NULL || pkey->ptr == NULL) return pkey; ~~   if (pkey == NULL || pkey->ptr == NULL) return pkey;\n  pkey = kvs_move2location(service, KVS_LOC_NEXT, rcode);\n  if (pkey == NULL) return pkey;
up32-wrong-type ~~ upgrade_32 ~~ != WAYSHUNT_KVS_KEY_ACL_RW_1) goto next; ~~ != WAYSHUNT_KVS_KEY_ACL_RW_2) goto next;
up32-reads-84-of-82 ~~ upgrade_32 ~~ pkey->siz < sizeof acl_key || kvs_data_p->siz < sizeof acl_32) goto next; ~~ pkey->siz < sizeof acl_key) goto next;
up32-isl-ignored ~~ upgrade_32 ~~     if (!(acl_32.acl_flags & WAYSHUNT_ACL_FLAG_ISL)) goto next;\n ~~
up32-leak-refused-node ~~ upgrade_32 ~~       free(node_p);\n    }\n  next: ~~     }\n  next:
up32-close-before-fixup ~~ upgrade_32 ~~   wayshunt_cnv_upgrade_from_32_fix_trunk_entries(service, &tgt_ht);\n ~~
fix32-keeps-virtual ~~ tgt_table_32 ~~       virt_node_p->entry.acl_flags &= ~WAYSHUNT_ACL_FLAG_VIRTUAL;\n ~~
fix32-slot-255-goes-on ~~ tgt_table_32 ~~       if (rc != 0 || slot_num == WAYSHUNT_SLOT_INVALID) {\n        WAYSHUNT_CNV_TRACE("%s():%d Failed to get slot num: %s 0x%x\\n", retcode2str(rc), rc);\n        goto out; ~~       if (rc != 0) {\n        WAYSHUNT_CNV_TRACE("%s():%d Failed to get slot num: %s 0x%x\\n", retcode2str(rc), rc);\n        goto out;
fix32-partner-any-did ~~ tgt_table_32 ~~           if (memcmp(&phy_node_p->entry.src_did_wwn, &virt_node_p->entry.src_did_wwn, sizeof(wwn_t)) != 0) continue;\n ~~
fix32-stores-82 ~~ tgt_table_32 ~~   kvs_data.siz = sizeof kvs_acl_32_data; ~~   kvs_data.siz = sizeof kvs_acl_32_data - 2;
down413-key-22 ~~ downgrade_413 ~~     kvs_key.siz = sizeof(wayshunt_kvs_key_flow_thru_host_413_t); ~~     kvs_key.siz = sizeof(wayshunt_kvs_key_flow_thru_host_t);
down413-leak ~~ downgrade_413 ~~     free((void *)entry_413_p);\n ~~
down413-no-key-ok ~~ downgrade_413 ~~     kvs_close(service);\n    return KVS_ERR_NO_KEY; ~~     kvs_close(service);\n    return 0;
down32-deletes-all ~~ downgrade_32 ~~     if (key[0] != WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO) { ~~     if (key[0] == 0) {
dispatch-41-not-down ~~ versions ~~ wayshunt_cnv_to_413_or_lower(void) { return below(to_major, to_minor, 4, 2); } ~~ wayshunt_cnv_to_413_or_lower(void) { return below(to_major, to_minor, 4, 1); }
dispatch-32-status-lost ~~ dispatch ~~       WAYSHUNT_CNV_ERROR("%s():%d upgrade from 3.2 Failed");\n      return rc; ~~       WAYSHUNT_CNV_ERROR("%s():%d upgrade from 3.2 Failed");
dispatch-31-down-to-32 ~~ versions ~~ wayshunt_cnv_to_32(void) { return to_major == 3 && to_minor == 2; } ~~ wayshunt_cnv_to_32(void) { return to_major == 3 && to_minor <= 2; }
gsync-minor-ignored ~~ versions ~~ return major < other_major || (major == other_major && minor < other_minor); ~~ return major < other_major;
gsync-no-closing-record ~~ main ~~     rc = wayshunt_cnv_handle_upgrade_for_runtime_kvs(path);\n  wayshunt_cnv_log_cleanup(); ~~     rc = wayshunt_cnv_handle_upgrade_for_runtime_kvs(path);
versions-patch-as-minor ~~ versions ~~ from_minor = fmin, from_patch = fpat; ~~ from_minor = fpat, from_patch = fpat;
decom-31-spared ~~ versions ~~ (to_major == 3 && to_minor <= 1) ~~ (to_major == 3 && to_minor < 1)
decom-bind-status-lost ~~ decom ~~     return WAYSHUNT_CNV_HUB_BIND_FAILED; ~~     return 0;
decom-no-unbind ~~ decom ~~   hub_unbind(hub_q, 0);\n ~~
decom-no-drop ~~ decom ~~   hub_drop(hub_q, &send_ref);\n ~~
sync-skips-last ~~ standby_sync ~~ i < WAYSHUNT_STORED_FILE_COUNT; ~~ i + 1 < WAYSHUNT_STORED_FILE_COUNT;
log-unflushed ~~ log ~~   fflush(err_fp);\n ~~
EOF
)

# field LINE N: the Nth field of a mutant line (1 name, 2 file).
field() { MUT=$1 N=$2 perl -e '@f = split /\s~~(?:\s|$)/, $ENV{MUT}, 4; print $f[$ENV{N} - 1]'; }
# apply LINE ROOT: plants the mutant in its file under ROOT; fails unless its
# text occurs exactly once.
apply() {
  MUT=$1 ROOT=$2 LIB=$lib perl -e '
    ($name, $file, $f, $t) = map { s/\\(\\|n)/$1 eq "n" ? "\n" : "\\"/ger } split /\s~~(?:\s|$)/, $ENV{MUT}, 4;
    $path = "$ENV{ROOT}/$ENV{LIB}/wayshunt_cnv_$file.cc";
    open my $in, "<", $path or die "$path: $!\n"; local $/; $_ = <$in>; close $in;
    $n = () = /\Q$f\E/g; die "mutant $name: text found $n times in $path\n" unless $n == 1;
    s/\Q$f\E/$t/; open my $out, ">", $path or die; print $out $_;'
}
file_of() { echo "$work/$lib/${W}_$(field "$1" 2).cc"; }

work=$(mktemp -d "${TMPDIR:-/tmp}/mutate.XXXXXX")
[ $keep = 1 ] && echo "scratch copy: $work" || trap 'rm -rf "$work"' EXIT
(cd "$src" && git ls-files -z --cached --others --exclude-standard | grep -z -v '^build/' |
  xargs -0 cp --parents -t "$work")

while IFS= read -r m; do  # every mutant's text must be there exactly once
  [ -n "$m" ] || continue
  f=$(file_of "$m"); cp "$f" "$f.orig"; apply "$m" "$work" || exit 2; mv "$f.orig" "$f"
done <<<"$mutants"
[ $listonly = 1 ] && { grep -c . <<<"$mutants" | sed 's/$/ mutants, each text found once/'; exit 0; }

b=$work/build
targets=(cnv_test plat-hub-listener)
grep -q cnv_differential "$work/tests/library/CMakeLists.txt" && targets+=(cnv_differential)
cmake -S "$work" -B "$b" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWAYSHUNT_SANITIZE=OFF >/dev/null
LD_PRELOAD= cmake --build "$b" -j "$jobs" --target "${targets[@]}" >/dev/null
# The plain build's tests run with LeakSanitizer preloaded, which costs next
# to nothing and makes a missing free fail the run.
lsan=$(gcc -print-file-name=liblsan.so)
export LD_PRELOAD=$lsan LSAN_OPTIONS=exitcode=23
suite() {
  local g
  for g in shut open; do
    timeout 300 "$b/bin/cnv_test" --gate=$g --gtest_brief=1 >/dev/null 2>&1 || return 1
  done
  [ ! -x "$b/bin/cnv_differential" ] || timeout 300 "$b/bin/cnv_differential" --stores=60 >/dev/null 2>&1
}
suite || { echo "the suite fails on the unchanged library" >&2; exit 2; }

total=0 caught=0 lived=()

while IFS= read -r m; do
  [ -n "$m" ] || continue
  name=$(field "$m" 1)
  [ -z "$only" ] || grep -q -E "$only" <<<"$name" || continue
  file=$(file_of "$m")
  cp "$file" "$file.orig"
  apply "$m" "$work"
  total=$((total + 1))
  if ! LD_PRELOAD= cmake --build "$b" -j "$jobs" --target convertwayshunt_shut convertwayshunt_open >/dev/null 2>&1; then
    verdict="caught (does not build)"; caught=$((caught + 1))
  elif suite; then
    verdict="LIVED"; lived+=("$name")
  else
    verdict="caught"; caught=$((caught + 1))
  fi
  mv "$file.orig" "$file"
  touch "$file"
  printf '%-34s %s\n' "$name" "$verdict"
done <<<"$mutants"
LD_PRELOAD= cmake --build "$b" -j "$jobs" --target convertwayshunt_shut convertwayshunt_open >/dev/null 2>&1 || true
echo "mutants caught: $caught of $total"
[ ${#lived[@]} -eq 0 ]
