// The platform calls that consult the fault rules: every name a stand-in
// passes to plat_fault_hit() or PLAT_FAULT_SITE(), and no other. A stand-in
// that starts to consult the rules under a new name adds it here.
#include "plat_ctl.h"

namespace {

const char *const kFaultPoints[] = {
    // the runtime store (platcore/kvs)
    "kvs_open", "kvs_close", "kvs_move2location", "kvs_getkey", "kvs_getvalue", "kvs_store", "kvs_delete",
    // the toolkit's containers (toolkit)
    "tk_cq_init", "tk_cq_destroy", "tk_cq_enqueue_tail", "tk_cq_dequeue_head", "tk_hashtable_64_init",
    "tk_hashtable_64_destroy", "tk_hashtable_64_insert", "tk_hashtable_64_find", "tk_hashtable_64_get_first",
    "tk_hashtable_64_traverse",
    // the hub (platcore/hub)
    "hub_bind", "hub_send", "hub_rr_token_get", "hub_drop", "hub_recv", "hub_unbind",
    // the standby copy, the release descriptors, the overseer callback (platcore)
    "overseercmn_file_gsync", "reldesc_sw_ver_file_get", "plat_overseercb_no_overseer",
    // the interface-to-slot map (portmap)
    "portmap_get_slot",
    nullptr,
};

}  // namespace

extern "C" const char *const *plat_fault_points(void) { return kFaultPoints; }
