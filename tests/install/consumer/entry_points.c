/* A C program on the installed header: calls every entry point once on its
 * good path and on each of its error paths, with release descriptors and a
 * store of its own, and checks each status and the texts of two. Exit 0
 * when all are as the header says. */
#define _XOPEN_SOURCE 700
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kvs_admin.h"
#include "wayshunt_cnv.h"

static char dir[] = "/tmp/wayshunt-entry-XXXXXX";
static int failures;

/* Writes a release descriptor for version and names it in variable var. */
static void release(const char *var, const char *version) {
  char path[256];
  snprintf(path, sizeof path, "%s/%s", dir, var);
  FILE *f = fopen(path, "w");
  if (f == NULL) exit(2);
  fprintf(f, "NAME=wayshunt\nSW_VERSION=%s\n", version);
  fclose(f);
  setenv(var, path, 1);
}

static void move(const char *from, const char *to) {
  release("OVERSEER_FROM_RELDESC_PATH", from);
  release("OVERSEER_TO_RELDESC_PATH", to);
}

static void expect(const char *what, retcode_t got, retcode_t want) {
  printf("%-44s %#x\n", what, got);
  if (got != want) {
    printf("  expected %#x\n", want);
    failures++;
  }
}

/* Checks that text holds want (is want, when whole). */
static void expect_text(const char *what, const char *text, const char *want, int whole) {
  printf("%-44s %s\n", what, text ? text : "(null)");
  if (text == NULL || (whole ? strcmp(text, want) != 0 : strstr(text, want) == NULL)) {
    printf("  expected %s\"%s\"\n", whole ? "" : "a text with ", want);
    failures++;
  }
}

int main(void) {
  char pkg[] = "wayshunt", v[] = "ignored", nostore[] = "/nonexistent", store[256], url[300];
  if (mkdtemp(dir) == NULL) return 2;
  snprintf(store, sizeof store, "%s", dir);
  snprintf(url, sizeof url, "nonvolatile:%s/%s", dir, WAYSHUNT_CNV_RUNTIME_KVS);
  setenv("PLAT_HUB_DIR", "/proc/no-hub-here", 1); /* no queue can be bound */

  /* No release descriptors: every entry point but convert_running says so. */
  unsetenv("OVERSEER_FROM_RELDESC_PATH");
  unsetenv("OVERSEER_TO_RELDESC_PATH");
  expect("convert_running, no releases", convert_running(pkg, v, v), 0);
  expect("convert_startup, no releases", convert_startup(store, pkg, v, v), WAYSHUNT_CNV_ERR_VERSION);
  expect("convert_gsync, no releases", convert_gsync(store, pkg, v, v), WAYSHUNT_CNV_ERR_VERSION);
  expect("convert_running_fs_upg, no releases", convert_running_fs_upg(store, pkg), WAYSHUNT_CNV_ERR_VERSION);

  /* Same major and minor: nothing to do, not even a store. */
  move("4.2(1)", "4.2(3)");
  expect("convert_gsync, same release", convert_gsync(nostore, pkg, v, v), 0);

  /* Up without a store: the store's status goes up unchanged. */
  move("4.1(3)", "4.2(1)");
  expect("convert_startup, upgrade", convert_startup(store, pkg, v, v), 0);
  expect("convert_gsync, upgrade, no store", convert_gsync(nostore, pkg, v, v), KVS_ERR_NO_STORE);
  expect("convert_running_fs_upg, upgrade, no store", convert_running_fs_upg(nostore, pkg), KVS_ERR_NO_STORE);

  /* An empty store: up converts it, down finds no key. */
  expect("kvs_create", kvs_create(url), 0);
  expect("convert_running_fs_upg, upgrade", convert_running_fs_upg(store, pkg), 0);
  move("4.2(1)", "4.1(3)");
  expect("convert_gsync, downgrade, empty store", convert_gsync(store, pkg, v, v), KVS_ERR_NO_KEY);

  /* Below 3.2 without a hub: the decommission cannot start. */
  move("4.2(1)", "3.1(1)");
  expect("convert_startup, below 3.2, no hub", convert_startup(store, pkg, v, v), WAYSHUNT_CNV_HUB_BIND_FAILED);

  /* Status texts: the library's own for its codes, the platform's for others. */
  expect_text("wayshunt_cnv_strerror, own code", wayshunt_cnv_strerror(WAYSHUNT_CNV_HUB_BIND_FAILED), "no hub queue", 0);
  expect_text("wayshunt_cnv_strerror, platform code", wayshunt_cnv_strerror(KVS_ERR_NO_KEY), retcode2str(KVS_ERR_NO_KEY),
              1);

  overseercb_no_overseer();
  kvs_remove(url);
  char cmd[300];
  snprintf(cmd, sizeof cmd, "rm -rf '%s'", dir);
  if (system(cmd) != 0) failures++;
  printf("%d failure(s)\n", failures);
  return failures != 0;
}
