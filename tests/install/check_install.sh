#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds two consumers of the
# library there, one through find_package and one through pkg-config, and
# runs both. A sanitized build's library needs consumers built the same way.
#   check_install.sh <build dir> <source dir of this test> [compiler flags]
set -euo pipefail
build=$1 here=$2 flags=${3:-}
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
for f in lib/libconvertwayshunt.so lib/convertwayshunt-trace/libconvertwayshunt.so lib/libplatcore.so \
         lib/libportmap.so lib/libtoolkit.so include/wayshunt/wayshunt_cnv.h include/wayshunt/kvs_defs.h; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
# The tool's manual pages are installed, each command's, and render within
# 80 columns with every section an operator looks for.
pages=("$prefix"/share/man/man1/wayshunt-convert*.1)
[ ${#pages[@]} -ge 12 ] || { echo "manual pages missing: ${pages[*]}"; exit 1; }
for page in "${pages[@]}"; do
  text=$(groff -man -Tascii -rLL=80n "$page" 2>/dev/null | col -bx)
  wide=$(printf '%s\n' "$text" | awk 'length > 80' | wc -l)
  [ "$wide" -eq 0 ] || { echo "$page: $wide lines over 80 columns"; exit 1; }
  for section in NAME SYNOPSIS DESCRIPTION OPTIONS "EXIT STATUS" FILES "SEE ALSO"; do
    grep -q "^$section" <<<"$text" || { echo "$page: no $section section"; exit 1; }
  done
done
# A C compiler reads the library's headers as C, too.
cmake -S "$here/consumer" -B "$prefix/consumer" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="$flags" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
# The entry points write their log to /bootflash: where the host has that
# folder (or /mnt/kvs), the consumers run in a mount namespace of their own
# that shows both as empty and read-only, so the host keeps what it had.
private() {
  if [ ! -e /bootflash ] && [ ! -e /mnt/kvs ]; then "$@"; return; fi
  unshare --mount --map-root-user --propagation private true 2>/dev/null ||
    { echo "the host has /bootflash or /mnt/kvs and no private mount namespace can hide them"; exit 77; }
  unshare --mount --map-root-user --propagation private sh -c \
    'for d in /bootflash /mnt/kvs; do [ ! -d $d ] || mount -t tmpfs -o ro none $d || exit 1; done; exec "$@"' sh "$@"
}
private "$prefix/consumer/consumer"
private "$prefix/consumer/entry_points"
# Only public headers are installed: none of the stand-ins' or the library's own.
for f in plat_hooks.h fault_rules.h kvs_handle.h hub_internal.h portmap_table.h tk_fault.h wayshunt_cnv_int.h \
         wayshunt_cnv_log.h wayshunt_cnv_upgrade_413.h; do
  [ ! -e "$prefix/include/wayshunt/$f" ] || { echo "private header installed: $f"; exit 1; }
done
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" cc $flags -o "$prefix/pc-consumer" "$here/consumer/main.c" \
  $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs convertwayshunt) -Wl,-rpath,"$prefix/lib"
private "$prefix/pc-consumer"
