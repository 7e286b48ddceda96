// kvs_probe <url> <file>: opens the store (waiting for any other writer),
// writes the value of its first key to file and closes it. Used by the tests
// to look at a store from a second process.
#include <cstdio>

#include "kvs_defs.h"

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: kvs_probe <url> <file>\n");
    return 2;
  }
  retcode_t st = 0;
  kvs_service_t s = kvs_open(argv[1], &st);
  if (st) {
    std::fprintf(stderr, "kvs_probe: %s\n", retcode2str(st));
    return 1;
  }
  const kvs_datum_t *k = kvs_move2location(s, KVS_LOC_FIRST, &st);
  const kvs_datum_t *v = k ? kvs_getvalue(s, &st) : nullptr;
  FILE *f = std::fopen(argv[2], "w");
  if (f && v) std::fwrite(v->ptr, 1, v->siz, f);
  if (f) std::fclose(f);
  return kvs_close(s) == 0 && v ? 0 : 1;
}
