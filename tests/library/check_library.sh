#!/usr/bin/env bash
# Checks the shape of a built libconvertwayshunt.so: every function exported
# but wayshunt_cnv_uri_complete, the version integers exported and the log's
# state not, exactly the three platform libraries needed (beside the C/C++
# runtime), no thread created, and no load-time code of its own.
#   check_library.sh <libconvertwayshunt.so> <sanitized: ON|OFF>
set -euo pipefail
lib=$1 sanitized=$2
fail() { echo "$lib: $*"; exit 1; }

# Functions defined but not exported, less the C runtime's own and the
# compiler's (names beginning with _, cold-path parts, the tm-clone helpers).
local_fns=$(nm --defined-only "$lib" | awk '$2 == "t" {print $3}' |
  grep -v -E '^_|[.]cold$|^(deregister_tm_clones|register_tm_clones|frame_dummy)$' | sort | tr '\n' ' ')
[ "$local_fns" = "wayshunt_cnv_uri_complete " ] || fail "functions not exported: $local_fns"

dyn=$(nm -D --defined-only "$lib" | awk '{print $3}')
for v in from_major from_minor from_patch to_major to_minor to_patch convert_running convert_startup \
         convert_gsync convert_running_fs_upg overseercb_no_overseer wayshunt_cnv_strerror; do
  grep -qx "$v" <<<"$dyn" || fail "$v is not exported"
done
for v in err_fp debug wayshunt_cnv_uri_complete; do
  ! grep -qx "$v" <<<"$dyn" || fail "$v must not be exported"
done

needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
  grep -v -E '^lib(stdc\+\+|m|gcc_s|c)\.so|^lib(asan|ubsan)\.so' | sort | tr '\n' ' ')
[ "$needed" = "libplatcore.so libportmap.so libtoolkit.so " ] || fail "needs $needed"

! nm -D --undefined-only "$lib" | grep -q -E ' (pthread_create|thrd_create)' || fail "creates threads"

if [ "$sanitized" != "ON" ]; then  # the sanitizers add constructors of their own
  init=$(readelf -S -W "$lib" | awk '{for (i = 1; i < NF; i++) if ($i == ".init_array") print $(i + 4)}')
  [ "$((16#${init:-0}))" -le 8 ] || fail "has load-time code (.init_array of 0x$init bytes)"
fi
echo "$lib: ok"
