/* Which stored form a record of each key type has in each release era, with
 * the key and value sizes of that form. One table, read by the conversion
 * library's dump, the operator's tool (codec, generator, verifier, era
 * detection), the tests and the documentation's examples.
 *
 * Eras: 3.2; above 3.2 and below 4.2 ("4.1", the conversions' "4.1.3 or
 * lower"); 4.2 and above. The layouts themselves are in wayshunt.h; this
 * table only says which layout a type takes in which era. A form named NULL
 * is not interpreted: any size, bytes kept as they are. */
#ifndef WAYSHUNT_FORMS_H
#define WAYSHUNT_FORMS_H

#include <stddef.h>

#include "wayshunt.h"

typedef enum wayshunt_era_ {
  WAYSHUNT_ERA_32 = 0,  /* 3.2 */
  WAYSHUNT_ERA_413 = 1, /* above 3.2, below 4.2 */
  WAYSHUNT_ERA_42 = 2,  /* 4.2 and above */
} wayshunt_era_t;
#define WAYSHUNT_ERA_COUNT 3

/* Short names of the eras, indexed by wayshunt_era_t: what operators type. */
#define WAYSHUNT_ERA_NAMES {"3.2", "4.1", "4.2"}

/* Names of the stored forms (the tool's JSON calls a key or value by them). */
#define WAYSHUNT_FORM_FLOW_THRU_KEY "flow_thru_host"         /* 22 bytes */
#define WAYSHUNT_FORM_FLOW_THRU_KEY_413 "flow_thru_host_413" /* 18 bytes */
#define WAYSHUNT_FORM_RW_KEY "rw_acl"                        /* 10 bytes */
#define WAYSHUNT_FORM_FLOW_THRU_VALUE "flow_thru"            /* 4 bytes */
#define WAYSHUNT_FORM_RW_VALUE "rw_acl"                      /* 82 bytes */
#define WAYSHUNT_FORM_RW_VALUE_32 "rw_acl_32"                /* 84 bytes */
#define WAYSHUNT_FORM_ELS_VALUE "els_acl"                    /* 37 bytes */

/* The 4-byte value of a flow-thru record. */
#define WAYSHUNT_FLOW_THRU_VALUE_SIZE 4

typedef struct wayshunt_form_ {
  const char *name; /* NULL: not interpreted */
  uint32 size;      /* bytes; 0 with a NULL name */
} wayshunt_form_t;

typedef struct wayshunt_type_forms_ {
  uint8 kvs_type;
  const char *type_name; /* the WAYSHUNT_KVS_KEY_ name without its prefix */
  /* Whether the service stores records of this type in the era at all. */
  uint8 stored[WAYSHUNT_ERA_COUNT];
  wayshunt_form_t key[WAYSHUNT_ERA_COUNT];
  wayshunt_form_t value[WAYSHUNT_ERA_COUNT];
} wayshunt_type_forms_t;

#define WAYSHUNT_FORM_(name, type) {name, sizeof(type)}
#define WAYSHUNT_FORM_NONE_ {NULL, 0}
#define WAYSHUNT_FT_KEY_(era42) \
  {WAYSHUNT_FORM_(WAYSHUNT_FORM_FLOW_THRU_KEY_413, wayshunt_kvs_key_flow_thru_host_413_t), \
   WAYSHUNT_FORM_(WAYSHUNT_FORM_FLOW_THRU_KEY_413, wayshunt_kvs_key_flow_thru_host_413_t), era42}
#define WAYSHUNT_RW_KEY_ WAYSHUNT_FORM_(WAYSHUNT_FORM_RW_KEY, wayshunt_kvs_key_rw_acl_entry_t)
#define WAYSHUNT_RW_VALUE_ WAYSHUNT_FORM_(WAYSHUNT_FORM_RW_VALUE, wayshunt_kvs_data_rw_acl_entry_t)
#define WAYSHUNT_ELS_VALUE_ WAYSHUNT_FORM_(WAYSHUNT_FORM_ELS_VALUE, wayshunt_kvs_data_els_acl_entry_t)

/* Every key type the conversions know, in type order. Types 56 and 57 keep
 * the 82-byte RW value in every era; only type 55 has the 84-byte form in
 * 3.2. Runtime line card records (63) do not exist in 3.2. */
static const wayshunt_type_forms_t wayshunt_type_forms[] = {
    {WAYSHUNT_KVS_KEY_FLOW_THRU_HOST,
     "FLOW_THRU_HOST",
     {1, 1, 1},
     WAYSHUNT_FT_KEY_(WAYSHUNT_FORM_(WAYSHUNT_FORM_FLOW_THRU_KEY, wayshunt_kvs_key_flow_thru_host_t)),
     {{WAYSHUNT_FORM_FLOW_THRU_VALUE, WAYSHUNT_FLOW_THRU_VALUE_SIZE},
      {WAYSHUNT_FORM_FLOW_THRU_VALUE, WAYSHUNT_FLOW_THRU_VALUE_SIZE},
      {WAYSHUNT_FORM_FLOW_THRU_VALUE, WAYSHUNT_FLOW_THRU_VALUE_SIZE}}},
    {WAYSHUNT_KVS_KEY_ACL_RW_1,
     "ACL_RW_1",
     {1, 1, 1},
     {WAYSHUNT_RW_KEY_, WAYSHUNT_RW_KEY_, WAYSHUNT_RW_KEY_},
     {WAYSHUNT_FORM_(WAYSHUNT_FORM_RW_VALUE_32, wayshunt_kvs_data_rw_acl_entry_32_t), WAYSHUNT_RW_VALUE_,
      WAYSHUNT_RW_VALUE_}},
    {WAYSHUNT_KVS_KEY_ACL_RW_2,
     "ACL_RW_2",
     {1, 1, 1},
     {WAYSHUNT_RW_KEY_, WAYSHUNT_RW_KEY_, WAYSHUNT_RW_KEY_},
     {WAYSHUNT_RW_VALUE_, WAYSHUNT_RW_VALUE_, WAYSHUNT_RW_VALUE_}},
    {WAYSHUNT_KVS_KEY_ACL_RW_3,
     "ACL_RW_3",
     {1, 1, 1},
     {WAYSHUNT_RW_KEY_, WAYSHUNT_RW_KEY_, WAYSHUNT_RW_KEY_},
     {WAYSHUNT_RW_VALUE_, WAYSHUNT_RW_VALUE_, WAYSHUNT_RW_VALUE_}},
    {WAYSHUNT_KVS_KEY_ACL_ELS_1,
     "ACL_ELS_1",
     {1, 1, 1},
     {WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_},
     {WAYSHUNT_ELS_VALUE_, WAYSHUNT_ELS_VALUE_, WAYSHUNT_ELS_VALUE_}},
    {WAYSHUNT_KVS_KEY_ACL_ELS_2,
     "ACL_ELS_2",
     {1, 1, 1},
     {WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_},
     {WAYSHUNT_ELS_VALUE_, WAYSHUNT_ELS_VALUE_, WAYSHUNT_ELS_VALUE_}},
    {WAYSHUNT_KVS_KEY_ACL_ELS_3,
     "ACL_ELS_3",
     {1, 1, 1},
     {WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_},
     {WAYSHUNT_ELS_VALUE_, WAYSHUNT_ELS_VALUE_, WAYSHUNT_ELS_VALUE_}},
    {WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO,
     "RUNTIME_LC_INFO",
     {0, 1, 1},
     {WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_},
     {WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_, WAYSHUNT_FORM_NONE_}},
};

#undef WAYSHUNT_FORM_
#undef WAYSHUNT_FORM_NONE_
#undef WAYSHUNT_FT_KEY_
#undef WAYSHUNT_RW_KEY_
#undef WAYSHUNT_RW_VALUE_
#undef WAYSHUNT_ELS_VALUE_

#define WAYSHUNT_TYPE_FORMS_COUNT (sizeof wayshunt_type_forms / sizeof wayshunt_type_forms[0])

/* The forms of a key type, or NULL for a type no conversion knows. */
static inline const wayshunt_type_forms_t *wayshunt_forms_of(uint8 kvs_type) {
  size_t i;
  for (i = 0; i < WAYSHUNT_TYPE_FORMS_COUNT; i++)
    if (wayshunt_type_forms[i].kvs_type == kvs_type) return &wayshunt_type_forms[i];
  return NULL;
}

/* Size of the flow-thru key in an era: the one size that tells the eras apart. */
static inline uint32 wayshunt_flow_thru_key_size(wayshunt_era_t era) {
  return wayshunt_type_forms[0].key[era].size;
}

#endif
