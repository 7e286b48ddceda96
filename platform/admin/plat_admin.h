/* The stand-ins' administrative interface in one include, for tests, tools
 * and benchmarks: calls the real platform does not offer the library.
 *   plat_ctl.h       fault rules and the call journal        (libplatctl)
 *   kvs_admin.h      creating, removing and locating stores  (libplatcore)
 *   hub_admin.h      what a received message carries          (libplatcore)
 *   portmap_admin.h  the interface-to-slot table file         (libportmap) */
#ifndef PLAT_ADMIN_H
#define PLAT_ADMIN_H

#include "hub_admin.h"
#include "kvs_admin.h"
#include "plat_ctl.h"
#include "portmap_admin.h"

#endif
