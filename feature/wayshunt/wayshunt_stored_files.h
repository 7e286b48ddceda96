/* The service's stored files beside its runtime store: four configuration
 * stores of three files each. No conversion opens them; on a move below 3.2
 * the library copies all twelve to the standby supervisor, in this order. */
#ifndef WAYSHUNT_STORED_FILES_H
#define WAYSHUNT_STORED_FILES_H

/* The folder of the service's stores on a supervisor. */
#define WAYSHUNT_STORED_FILE_DIR "/mnt/kvs/"

#define WAYSHUNT_STORED_FILE_COUNT 12

/* Full paths, in the order of the copy to the standby. */
static const char *const wayshunt_stored_files[WAYSHUNT_STORED_FILE_COUNT] = {
    "/mnt/kvs/wayshunt_oper_cfg.dat",           "/mnt/kvs/wayshunt_oper_cfg.kvs",
    "/mnt/kvs/wayshunt_oper_cfg.map",           "/mnt/kvs/wayshunt_target_config.dat",
    "/mnt/kvs/wayshunt_target_config.kvs",      "/mnt/kvs/wayshunt_target_config.map",
    "/mnt/kvs/wayshunt_pending_del_config.dat", "/mnt/kvs/wayshunt_pending_del_config.kvs",
    "/mnt/kvs/wayshunt_pending_del_config.map", "/mnt/kvs/wayshunt_tgt_cfg_v2.dat",
    "/mnt/kvs/wayshunt_tgt_cfg_v2.kvs",         "/mnt/kvs/wayshunt_tgt_cfg_v2.map",
};

#endif
