// Table keyed by uint64: separate chaining in a bucket array that grows as
// the table fills.
//
// Memory layout: the struct has no field for the item count, so one
// allocation holds a small Header (item count, bucket count) followed by the
// bucket array, and ht->hash_array points just past the Header. Callers
// never read the fields, so the block travels with the buckets unseen.
//
// Growth: when the table holds more than 2 items per bucket, it rehashes
// into the next prime >= 2 * size buckets and updates ht->size, so hash_fn
// (usually key % ht->size) keeps working. With a prime bucket count, key %
// size depends on every bit of the key; worldwide names read as
// little-endian numbers differ only in their high bytes, which a power of
// two would throw away. The first growth step may come from a power of two
// asked for by the caller; then at most 2 * size items share the buckets.
//
// Walk order: bucket by bucket, chain by chain. A step looks the given key
// up and moves on from its node, so it never reads an item's data, and a
// caller may free the data of items already visited.
//
// Lookups: the caller's hash decides the buckets and so the walk order, but
// keys that differ only in bits the hash throws away (names of one maker
// under key % 256, say) would all share a bucket. So beside the buckets an
// index of its own, open addressing on a mixed key, finds a key's node in a
// step or two; the buckets are only walked. Without memory for the index
// the table goes on with the bucket chains alone.
#include <cstdlib>

#include "tk_fault.h"
#include "toolkit.h"

namespace {

using Node = tk_hashtable_64_node_t;

// Open-addressing index from key to node: a power of two of slots, at most
// half of them used. A slot holds the key and the data beside the node (an
// item's data never changes), so a find reads no node at all.
struct Slot {
  uint64 key;
  void *data;
  Node *node;  // null: the slot is free
};

struct Index {
  uint64 slots;
  Slot *slot;
};

struct Header {
  uint64 count;    // items in the table
  uint64 buckets;  // length of the bucket array that follows
  Index *index;    // null when there was no memory for it
};
static_assert(sizeof(Header) % alignof(Node *) == 0, "buckets must stay pointer-aligned");

Header *header(const tk_hashtable_64_t *ht) { return reinterpret_cast<Header *>(ht->hash_array) - 1; }

// A bucket array of n empty buckets after a Header, or null.
Node **alloc_buckets(uint32 n, uint64 count) {
  void *block = std::calloc(1, sizeof(Header) + static_cast<size_t>(n) * sizeof(Node *));
  if (!block) return nullptr;
  auto *h = static_cast<Header *>(block);
  h->count = count;
  h->buckets = n;
  return reinterpret_cast<Node **>(h + 1);
}

void free_buckets(Node **buckets) { std::free(reinterpret_cast<Header *>(buckets) - 1); }

uint64 mix(uint64 key) {
  key ^= key >> 33;
  key *= 0xff51afd7ed558ccdull;
  key ^= key >> 33;
  return key;
}

Slot *index_slot(const Index *ix, uint64 key) {
  uint64 mask = ix->slots - 1;
  for (uint64 i = mix(key) & mask;; i = (i + 1) & mask)
    if (!ix->slot[i].node || ix->slot[i].key == key) return &ix->slot[i];
}

void drop_index(Header *h) {
  if (!h->index) return;
  std::free(h->index->slot);
  std::free(h->index);
  h->index = nullptr;
}

// Adds n, doubling the index first when it would be more than half full. A
// failed allocation drops the index for good.
void index_add(Header *h, Node *n) {
  Index *ix = h->index;
  if (!ix) return;
  if (2 * (h->count + 1) > ix->slots) {
    uint64 slots = ix->slots * 2;
    auto *fresh = static_cast<Slot *>(std::calloc(slots, sizeof(Slot)));
    if (!fresh) return drop_index(h);
    Index bigger{slots, fresh};
    for (uint64 i = 0; i < ix->slots; i++)
      if (ix->slot[i].node) *index_slot(&bigger, ix->slot[i].key) = ix->slot[i];
    std::free(ix->slot);
    *ix = bigger;
  }
  *index_slot(ix, n->key) = Slot{n->key, n->data, n};
}

Index *new_index() {
  auto *ix = static_cast<Index *>(std::malloc(sizeof(Index)));
  if (!ix) return nullptr;
  ix->slots = 64;
  ix->slot = static_cast<Slot *>(std::calloc(ix->slots, sizeof(Slot)));
  if (!ix->slot) {
    std::free(ix);
    return nullptr;
  }
  return ix;
}

// True for a table set up by init and not yet destroyed. A zeroed struct (a
// failed init, a destroyed table) is not one.
bool valid(const tk_hashtable_64_t *ht) {
  return ht && ht->hash_array && ht->size != 0 && ht->hash_fn && header(ht)->buckets == ht->size;
}

// The caller's hash folded into range, whatever it returns.
uint32 bucket_of(tk_hashtable_64_t *ht, uint64 key) { return ht->hash_fn(ht, key) % ht->size; }

Node *find_node(tk_hashtable_64_t *ht, uint64 key) {
  if (const Index *ix = header(ht)->index) return index_slot(ix, key)->node;
  for (Node *n = ht->hash_array[bucket_of(ht, key)]; n; n = n->p_next)
    if (n->key == key) return n;
  return nullptr;
}

// The data of key, or false when key is not in the table.
bool find_data(tk_hashtable_64_t *ht, uint64 key, void **data) {
  if (const Index *ix = header(ht)->index) {
    const Slot *s = index_slot(ix, key);
    if (s->node) *data = s->data;
    return s->node != nullptr;
  }
  Node *n = find_node(ht, key);
  if (n) *data = n->data;
  return n != nullptr;
}

// First node in buckets from..size-1, or null.
Node *first_from(const tk_hashtable_64_t *ht, uint64 from) {
  for (uint64 b = from; b < ht->size; b++)
    if (ht->hash_array[b]) return ht->hash_array[b];
  return nullptr;
}

void link_front(tk_hashtable_64_t *ht, Node *n) {
  Node **head = &ht->hash_array[bucket_of(ht, n->key)];
  n->p_prev = nullptr;
  n->p_next = *head;
  if (*head) (*head)->p_prev = n;
  *head = n;
}

bool is_prime(uint64 n) {
  if (n < 2) return false;
  if (n % 2 == 0) return n == 2;
  for (uint64 d = 3; d * d <= n; d += 2)
    if (n % d == 0) return false;
  return true;
}

uint64 next_prime(uint64 n) {
  while (!is_prime(n)) n++;
  return n;
}

// Rehashes into the next prime >= 2 * size buckets. Growth is best effort:
// without memory, or past the largest uint32 bucket count, the table keeps
// its buckets and only gets slower.
void grow(tk_hashtable_64_t *ht) {
  uint64 want = next_prime(uint64{ht->size} * 2);
  if (want > UINT32_MAX) return;
  Node **fresh = alloc_buckets(static_cast<uint32>(want), header(ht)->count);
  if (!fresh) return;
  reinterpret_cast<Header *>(fresh)[-1].index = header(ht)->index;
  Node **old = ht->hash_array;
  uint32 old_size = ht->size;
  ht->hash_array = fresh;
  ht->size = static_cast<uint32>(want);
  for (uint32 b = 0; b < old_size; b++) {
    for (Node *n = old[b]; n;) {
      Node *next = n->p_next;
      link_front(ht, n);
      n = next;
    }
  }
  free_buckets(old);
}

}  // namespace

// Not fault-checked: it is the table's own hash, not a call that can fail.
extern "C" uint32 tk_hashtable_64_modulo_size_hash_fn(tk_hashtable_64_t *ht, uint64 key) {
  return (ht && ht->size) ? static_cast<uint32>(key % ht->size) : 0;
}

extern "C" tk_err_t tk_hashtable_64_init(tk_hashtable_64_t *ht, uint32 size, tk_hashtable_64_hash_fn_t hash_fn) {
  tk_err_t rc;
  bool fault = TK_FAULT_HIT("tk_hashtable_64_init", &rc);
  if (!ht) return fault ? rc : TK_ERR_INVALID;
  *ht = tk_hashtable_64_t{};  // a failed init leaves a zeroed struct, safe to destroy
  if (fault) return rc;
  if (size == 0 || !hash_fn) return TK_ERR_INVALID;
  Node **buckets = alloc_buckets(size, 0);
  if (!buckets) return TK_ERR_NO_MEMORY;
  reinterpret_cast<Header *>(buckets)[-1].index = new_index();
  ht->size = size;
  ht->hash_array = buckets;
  ht->hash_fn = hash_fn;
  return TK_OK;
}

extern "C" tk_err_t tk_hashtable_64_find(tk_hashtable_64_t *ht, uint64 key, void **data) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_hashtable_64_find", &rc)) return rc;
  if (!valid(ht) || !data) return TK_ERR_INVALID;
  return find_data(ht, key, data) ? TK_OK : TK_ERR_NOT_FOUND;
}

extern "C" tk_err_t tk_hashtable_64_insert(tk_hashtable_64_t *ht, uint64 key, void *data) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_hashtable_64_insert", &rc)) return rc;
  if (!valid(ht)) return TK_ERR_INVALID;
  if (find_node(ht, key)) return TK_ERR_EXISTS;
  auto *n = static_cast<Node *>(std::malloc(sizeof(Node)));
  if (!n) return TK_ERR_NO_MEMORY;
  n->key = key;
  n->data = data;
  if (header(ht)->count + 1 > uint64{ht->size} * 2) grow(ht);
  link_front(ht, n);
  index_add(header(ht), n);
  header(ht)->count++;
  return TK_OK;
}

extern "C" tk_err_t tk_hashtable_64_get_first(tk_hashtable_64_t *ht, uint64 *key, void **data) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_hashtable_64_get_first", &rc)) return rc;
  if (!valid(ht) || !key || !data) return TK_ERR_INVALID;
  Node *n = header(ht)->count ? first_from(ht, 0) : nullptr;
  if (!n) return TK_HASHTABLE_END;
  *key = n->key;
  *data = n->data;
  return TK_OK;
}

extern "C" tk_err_t tk_hashtable_64_traverse(tk_hashtable_64_t *ht, uint64 key, uint64 *next_key, void **data) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_hashtable_64_traverse", &rc)) return rc;
  if (!valid(ht) || !next_key || !data) return TK_ERR_INVALID;
  Node *n = find_node(ht, key);
  if (!n) return TK_ERR_NOT_FOUND;
  Node *next = n->p_next ? n->p_next : first_from(ht, uint64{bucket_of(ht, key)} + 1);
  if (!next) return TK_HASHTABLE_END;
  *next_key = next->key;
  *data = next->data;
  return TK_OK;
}

// Frees the nodes and the buckets, never the data, and zeroes the struct so
// that any later call on it reports TK_ERR_INVALID.
extern "C" tk_err_t tk_hashtable_64_destroy(tk_hashtable_64_t *ht) {
  tk_err_t rc;
  if (TK_FAULT_HIT("tk_hashtable_64_destroy", &rc)) return rc;
  if (!valid(ht)) return TK_ERR_INVALID;
  for (uint32 b = 0; b < ht->size; b++) {
    for (Node *n = ht->hash_array[b]; n;) {
      Node *next = n->p_next;
      std::free(n);
      n = next;
    }
  }
  drop_index(header(ht));
  free_buckets(ht->hash_array);
  *ht = tk_hashtable_64_t{};
  return TK_OK;
}
