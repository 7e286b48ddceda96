#!/usr/bin/env bash
# Checks that each stand-in library has the platform's file name and soname
# and exports every platform symbol, so that the platform's own libraries can
# take their places at load time.   check_symbols.sh <lib dir>
set -euo pipefail
dir=$1
check() {
  local lib=$1; shift
  [ "$(readelf -d "$dir/$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" = "$lib" ] || { echo "$lib: wrong soname"; exit 1; }
  local syms; syms=$(nm -D --defined-only "$dir/$lib" | awk '{print $3}')
  for s in "$@"; do grep -qx "$s" <<<"$syms" || { echo "$lib: $s not exported"; exit 1; }; done
}
check libplatcore.so kvs_open kvs_close kvs_move2location kvs_getkey kvs_getvalue kvs_store kvs_delete \
  hub_bind hub_send hub_rr_token_get hub_drop hub_recv hub_unbind overseercmn_file_gsync \
  reldesc_sw_ver_file_get retcode2str plat_overseercb_no_overseer
check libportmap.so portmap_get_slot
check libtoolkit.so tk_cq_init tk_cq_enqueue_tail tk_cq_dequeue_head tk_cq_destroy tk_hashtable_64_init \
  tk_hashtable_64_find tk_hashtable_64_insert tk_hashtable_64_get_first tk_hashtable_64_traverse \
  tk_hashtable_64_destroy tk_hashtable_64_modulo_size_hash_fn
echo "stand-ins: ok"
