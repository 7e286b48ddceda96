/* Calls the installed library: convert_running needs no store and returns 0. */
#include <stdio.h>

#include "wayshunt_cnv.h"

int main(void) {
  char pkg[] = "wayshunt", from[] = "4.2(1)", to[] = "4.2(1)";
  retcode_t rc = convert_running(pkg, from, to);
  printf("convert_running = %u, record size %zu\n", rc, sizeof(wayshunt_kvs_data_rw_acl_entry_t));
  return rc == 0 && sizeof(wayshunt_kvs_data_rw_acl_entry_t) == 82 ? 0 : 1;
}
