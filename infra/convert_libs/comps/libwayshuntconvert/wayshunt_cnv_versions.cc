// Resolution of the releases being left and entered, from the two release
// descriptor files named in the environment.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "reldesc.h"
#include "wayshunt_cnv_log.h"

#define WAYSHUNT_CNV_VER_LEN 512

extern "C" {

int32 from_major = 0, from_minor = 0, from_patch = 0;
int32 to_major = 0, to_minor = 0, to_patch = 0;

// Writes "<major>.<minor>(<patch>)" of the descriptor file into
// corrected_pkg_ver. A file the platform gives no version text for (variable
// unset, file missing, no version in it), or a text that does not parse,
// yields the empty string, which split_version then reads as no version at
// all: no number is ever taken from an unparsed text.
void get_corrected_pkg_ver(char *reldesc_file, char *corrected_pkg_ver) {
  int32 major = 0, minor = 0, patch = 0;
  const char *text = reldesc_file ? reldesc_sw_ver_file_get(reldesc_file) : NULL;
  corrected_pkg_ver[0] = '\0';
  if (text == NULL || sscanf(text, "%d.%d(%d%*s)", &major, &minor, &patch) < 3) return;
  snprintf(corrected_pkg_ver, WAYSHUNT_CNV_VER_LEN, "%d.%d(%d)", major, minor, patch);
}

int split_version(char *version, int32 *major, int32 *minor, int32 *patch) {
  return sscanf(version, "%d.%d(%d)", major, minor, patch);
}

// The name the reading's traces carry, also when an entry point asks
// whether both releases were found.
#define READ_STEP "wayshunt_cnv_read_versions"

wayshunt_bool_t wayshunt_cnv_read_releases(wayshunt_bool_t *resolved_p) {
  char to_ver[WAYSHUNT_CNV_VER_LEN], from_ver[WAYSHUNT_CNV_VER_LEN];
  int32 fmaj = 0, fmin = 0, fpat = 0, tmaj = 0, tmin = 0, tpat = 0;
  memset(to_ver, 0, sizeof to_ver);
  memset(from_ver, 0, sizeof from_ver);
  get_corrected_pkg_ver(getenv("OVERSEER_TO_RELDESC_PATH"), to_ver);
  get_corrected_pkg_ver(getenv("OVERSEER_FROM_RELDESC_PATH"), from_ver);
  WAYSHUNT_CNV_TRACE_AS(READ_STEP, "%s():%d to_ver = %s, from_ver = %s\n", to_ver, from_ver);
  int nfrom = split_version(from_ver, &fmaj, &fmin, &fpat);
  int nto = split_version(to_ver, &tmaj, &tmin, &tpat);
  // Either release unknown: every integer is 0, on which no step of any
  // entry point converts or decommissions, and the entry points report it.
  *resolved_p = nfrom == 3 && nto == 3;
  if (!*resolved_p) fmaj = fmin = fpat = tmaj = tmin = tpat = 0;
  from_major = fmaj, from_minor = fmin, from_patch = fpat;
  to_major = tmaj, to_minor = tmin, to_patch = tpat;
  WAYSHUNT_CNV_TRACE_AS(READ_STEP, "%s():%d from_major = %d, from_minor = %d, to_major = %d, to_minor = %d\n",
                        from_major, from_minor, to_major, to_minor);
  return strcmp(from_ver, to_ver) != 0;
}

wayshunt_bool_t wayshunt_cnv_read_versions(void) {
  wayshunt_bool_t resolved;
  return wayshunt_cnv_read_releases(&resolved);
}
}

// Every decision on the releases, one predicate each. Majors are compared
// first and minors only among equal majors, as signed integers; the patch
// never counts.
extern "C" {

WAYSHUNT_CNV_INLINE wayshunt_bool_t below(int32 major, int32 minor, int32 other_major, int32 other_minor) {
  return major < other_major || (major == other_major && minor < other_minor);
}

wayshunt_bool_t wayshunt_cnv_is_downgrade(void) { return below(to_major, to_minor, from_major, from_minor); }
wayshunt_bool_t wayshunt_cnv_is_upgrade(void) { return below(from_major, from_minor, to_major, to_minor); }
wayshunt_bool_t wayshunt_cnv_to_413_or_lower(void) { return below(to_major, to_minor, 4, 2); }
wayshunt_bool_t wayshunt_cnv_to_32(void) { return to_major == 3 && to_minor == 2; }
wayshunt_bool_t wayshunt_cnv_from_31_or_lower(void) { return below(from_major, from_minor, 3, 2); }
wayshunt_bool_t wayshunt_cnv_from_32(void) { return from_major == 3 && from_minor == 2; }
wayshunt_bool_t wayshunt_cnv_from_413_or_lower(void) { return below(from_major, from_minor, 4, 2); }
// Only releases 1 to 3.1 are decommissioned: a major of 0 or less is no
// release the service ever ran, and is left alone.
wayshunt_bool_t wayshunt_cnv_to_below_32(void) {
  return to_major == 1 || to_major == 2 || (to_major == 3 && to_minor <= 1);
}
}
