// Synthetic runtime stores. The shape, per era:
//   - records: about 25% flow-thru, 55% RW ACL (types 55-57), 20% ELS ACL
//     (types 58-60), and outside 3.2 one RUNTIME_LC_INFO record per
//     line-card slot (up to 8, one per 50 records);
//   - line cards in slots 1-4 and 7-10 (5 and 6 hold the supervisors);
//     interfaces fc<slot>/<1..48>, some port-channels and virtual ones;
//   - worldwide names as real vendors give them: hosts 20:00:00:25:b5:..
//     (UCS), 21:00:00:24:ff:.. (QLogic), 10:00:00:90:fa:.. (Emulex);
//     targets 50:06:01:6p:.. (EMC), 50:0a:09:8p:.. (NetApp),
//     52:4a:93:7p:.. (Pure), four ports per array; rewritten names
//     2f:ff:00:0d:ec:..;
//   - about a third of the RW entries sit on ISLs, in groups of one target,
//     one slot and one source pair whose PHYSICAL/VIRTUAL mix is typical of
//     the era: 3.2 has virtual entries with and without a physical partner,
//     4.1 has entries carrying both flags for the upgrade to resolve, 4.2
//     has them resolved. ISL entries use fc ports only: the 3.2 upgrade
//     stops at an ISL entry whose interface has no slot;
//   - 3.2 and 4.1 entries carry the stale programming flags the upgrade
//     repairs; 4.2 entries carry only combinations the repair leaves;
//   - slot_num follows the interface (255 without a slot); in 4.1 one
//     entry in ten has a stale 0, which the upgrade refills.
// A shape's entries come before the typical ones and take their place in
// the count: a chain is groups of the era's mixes with both flags, all of
// one target; a big group repeats the era's longest mix without them.
#include "store/synth.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_set>

#include "if_index.h"
#include "store/rng.h"
#include "wayshunt.h"

namespace wsc {

namespace {

constexpr uint8_t kLineCards[] = {1, 2, 3, 4, 7, 8, 9, 10};
constexpr int32_t kVsans[] = {1, 10, 20, 100, 200};

// The PHYSICAL/VIRTUAL mixes of the ISL groups typical of each era, by
// letter: P physical, V virtual, B both, N neither.
constexpr const char *kPatterns[3][9] = {
    {"P", "PV", "PVV", "V", "VV", "N", "BV", "PN", "V"},     // 3.2: partners to find or make
    {"B", "BP", "PB", "BB", "BBP", "BPB", "PV", "P", "V"},  // 4.1: both flags to resolve
    {"P", "PV", "PVV", "PP", "P", "PV", "V", "PV", "P"},    // 4.2: resolved
};

bool has_both(const char *pattern) { return std::strchr(pattern, 'B') != nullptr; }

// The era's mixes with both flags (none in 4.2).
std::vector<const char *> chain_patterns(Era era) {
  std::vector<const char *> out;
  for (const char *p : kPatterns[static_cast<int>(era)])
    if (has_both(p)) out.push_back(p);
  return out;
}

// The era's longest mix without both flags, which a big group repeats.
std::string big_group_pattern(Era era) {
  std::string best;
  for (const char *p : kPatterns[static_cast<int>(era)])
    if (!has_both(p) && std::strlen(p) > best.size()) best = p;
  return best;
}

wwn_t make_wwn(const uint8_t (&prefix)[4], uint8_t b4, uint32_t serial) {
  wwn_t w;
  std::memcpy(w.str, prefix, 4);
  w.str[4] = b4;
  w.str[5] = static_cast<uint8_t>(serial >> 16);
  w.str[6] = static_cast<uint8_t>(serial >> 8);
  w.str[7] = static_cast<uint8_t>(serial);
  return w;
}

fcid_t make_fcid(Rng &rng) {
  fcid_t f;
  f.fcid = {0, static_cast<uint8_t>(0x0a + rng.below(0x70)), static_cast<uint8_t>(rng.below(256)),
            static_cast<uint8_t>(rng.below(256))};
  return f;
}

template <typename T>
Bytes bytes_of(const T &t) {
  const auto *p = reinterpret_cast<const uint8_t *>(&t);
  return Bytes(p, p + sizeof t);
}

struct Host {
  wwn_t pwwn;
  int32_t vsan;
};

class Synth {
 public:
  Synth(Era era, uint64_t seed, const SynthShape &shape) : era_(era), rng_(seed), shape_(shape) {}

  Records run(size_t count) {
    size_t lc = era_ == Era::v32 ? 0 : std::min<size_t>(std::size(kLineCards), count / 50);
    if (era_ != Era::v32 && lc == 0 && count >= 8) lc = 1;
    size_t rest = count - lc, ft = rest * 25 / 100, els = rest * 20 / 100, rw = rest - ft - els;
    size_t targets = std::max<size_t>(2, count / 50), hosts = std::max<size_t>(2, count / 12);
    for (size_t i = 0; i < targets; ++i) add_target();
    for (size_t i = 0; i < hosts; ++i) add_host();
    for (size_t i = 0; i < lc; ++i) add_line_card(kLineCards[i]);
    for (size_t i = 0; i < ft; ++i) add_flow_thru();
    add_shaped_rw(rw);
    while (rw_made_ < rw) add_rw_group(rw - rw_made_);
    for (size_t i = 0; i < els; ++i) add_els();
    return std::move(out_);
  }

 private:
  void add_target() {
    static const uint8_t kVendors[3][4] = {{0x50, 0x06, 0x01, 0x60}, {0x50, 0x0a, 0x09, 0x80}, {0x52, 0x4a, 0x93, 0x70}};
    uint32_t array = static_cast<uint32_t>(targets_.size() / 4), port = static_cast<uint32_t>(targets_.size() % 4);
    uint8_t prefix[4];
    std::memcpy(prefix, kVendors[array % 3], 4);
    prefix[3] = static_cast<uint8_t>(prefix[3] | port);
    const uint8_t(&p)[4] = prefix;
    targets_.push_back(make_wwn(p, static_cast<uint8_t>(0x30 + array % 0x40), array + 1));
  }

  void add_host() {
    static const uint8_t kVendors[3][4] = {{0x20, 0x00, 0x00, 0x25}, {0x21, 0x00, 0x00, 0x24}, {0x10, 0x00, 0x00, 0x90}};
    static const uint8_t kByte4[3] = {0xb5, 0xff, 0xfa};
    uint32_t n = static_cast<uint32_t>(hosts_.size()), vendor = n % 3;
    hosts_.push_back({make_wwn(kVendors[vendor], kByte4[vendor], n / 3 + 1), kVsans[n % std::size(kVsans)]});
  }

  const wwn_t &target() { return targets_[rng_.below(static_cast<uint32_t>(targets_.size()))]; }
  const Host &host() { return hosts_[rng_.below(static_cast<uint32_t>(hosts_.size()))]; }
  wwn_t rewritten_name() {
    static const uint8_t kPrefix[4] = {0x2f, 0xff, 0x00, 0x0d};
    return make_wwn(kPrefix, 0xec, ++rewritten_);
  }
  uint64_t unique_hash() {
    for (;;)
      if (uint64_t h = rng_.next(); hashes_.insert(h).second) return h;
  }

  void add_line_card(uint8_t slot) {
    static const char kModel[] = "DS-X9648-1536K9";
    Bytes key = {WAYSHUNT_KVS_KEY_RUNTIME_LC_INFO, 0, slot};
    Bytes value = {slot, 1 /* online */, 48, 0};
    value.insert(value.end(), kModel, kModel + sizeof kModel);
    out_.push_back({key, value});
  }

  void add_flow_thru() {
    // A fresh host when a drawn pair is taken, so that small stores still get
    // the requested count.
    for (int attempt = 0;; ++attempt) {
      const Host &h = attempt < 8 ? host() : (add_host(), hosts_.back());
      const wwn_t &t = target();
      Bytes key;
      if (era_ == Era::v42) {
        wayshunt_kvs_key_flow_thru_host_t k = {{WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, 0}, h.vsan, h.pwwn, t};
        key = bytes_of(k);
      } else {
        wayshunt_kvs_key_flow_thru_host_413_t k = {{WAYSHUNT_KVS_KEY_FLOW_THRU_HOST, 0}, h.pwwn, t};
        key = bytes_of(k);
      }
      if (!flow_keys_.insert(std::string(key.begin(), key.end())).second) continue;
      out_.push_back({key, Bytes(4, 0)});
      return;
    }
  }

  // The interface of a non-ISL entry: mostly a port, some port-channels,
  // a few virtual interfaces.
  if_index_t any_interface(uint8_t slot) {
    uint32_t r = rng_.below(100);
    if (r < shape_.port_channel_percent) return IF_INDEX_PORT_CHANNEL(1 + rng_.below(32));
    if (r < shape_.port_channel_percent + 3) return IF_INDEX_VIRTUAL(1 + rng_.below(64));
    return IF_INDEX_FC(slot, 1 + rng_.below(48));
  }

  uint8_t slot_num_for(if_index_t i) {
    uint8_t slot = IF_INDEX_IS_FC(i) ? static_cast<uint8_t>(IF_INDEX_FC_SLOT(i)) : WAYSHUNT_SLOT_INVALID;
    return era_ == Era::v41 && rng_.chance(10) ? 0 : slot;
  }

  // Programming-state flags: stale ones in 3.2 and 4.1, and in 4.2 only
  // what the upgrade's repair rules leave.
  uint32_t state_flags(uint8_t type, uint32_t side, bool dst_sid_zero) {
    uint32_t f = 0;
    if (rng_.chance(10)) f |= WAYSHUNT_ACL_FLAG_PGM_PENDING;
    if (rng_.chance(8)) f |= WAYSHUNT_ACL_FLAG_PGM_BUSY;
    if (rng_.chance(6)) f |= WAYSHUNT_ACL_FLAG_FO;
    if (rng_.chance(8)) f |= WAYSHUNT_ACL_FLAG_VW;
    if (rng_.chance(5)) f |= WAYSHUNT_ACL_FLAG_DROP_ALL;
    if (era_ != Era::v42) return f;
    bool virt = side & WAYSHUNT_ACL_FLAG_VIRTUAL;
    if (type == WAYSHUNT_KVS_KEY_ACL_RW_1 && virt) f &= ~WAYSHUNT_ACL_FLAG_PGM_PENDING;
    if (f & WAYSHUNT_ACL_FLAG_PGM_BUSY) f &= ~WAYSHUNT_ACL_FLAG_FO;
    if (virt || (f & WAYSHUNT_ACL_FLAG_PGM_BUSY)) f &= ~WAYSHUNT_ACL_FLAG_VW;
    if (!dst_sid_zero) f &= ~WAYSHUNT_ACL_FLAG_DROP_ALL;
    return f;
  }

  uint8_t rw_type(bool isl) {
    if (era_ == Era::v32 && isl) return WAYSHUNT_KVS_KEY_ACL_RW_1;
    uint32_t r = rng_.below(100);
    return r < (isl ? 80u : 70u) ? WAYSHUNT_KVS_KEY_ACL_RW_1 : r < 90 ? WAYSHUNT_KVS_KEY_ACL_RW_2 : WAYSHUNT_KVS_KEY_ACL_RW_3;
  }

  void add_rw(uint8_t type, const wwn_t &tgt, const Host &src, uint32_t flags, if_index_t ifx) {
    wayshunt_kvs_data_rw_acl_entry_t e;
    std::memset(&e, 0, sizeof e);
    e.tgt_pwwn = tgt;
    e.src_sid_wwn = src.pwwn;
    e.src_did_wwn = tgt;
    bool dst_sid_zero = rng_.chance(10);
    if (!dst_sid_zero) e.dst_sid_wwn = rewritten_name();
    e.dst_did_wwn = rewritten_name();
    e.acl_flags = flags | state_flags(type, flags, dst_sid_zero);
    e.if_index = ifx;
    e.rw_key.vsan = src.vsan;
    e.rw_key.sid = make_fcid(rng_);
    e.rw_key.did = make_fcid(rng_);
    e.rw_key.num_luns = static_cast<uint8>(rng_.below(5));
    e.rw_info.vsan = src.vsan + 1000;
    e.rw_info.sid = make_fcid(rng_);
    e.rw_info.did = make_fcid(rng_);
    e.rw_info.up = 1;
    e.rw_info.up_valid = 1;
    e.rw_info.flags = rng_.below(4);
    wayshunt_kvs_key_rw_acl_entry_t k = {{type, 0}, unique_hash()};
    Bytes value;
    if (era_ == Era::v32 && type == WAYSHUNT_KVS_KEY_ACL_RW_1) {
      wayshunt_kvs_data_rw_acl_entry_32_t e32;
      std::memset(&e32, 0, sizeof e32);
      std::memcpy(&e32, &e, offsetof(wayshunt_kvs_data_rw_acl_entry_t, slot_num));
      if (shape_.unused_percent && rng_.chance(shape_.unused_percent))
        for (uint8 &b : e32.unused) b = static_cast<uint8>(1 + rng_.below(255));
      value = bytes_of(e32);
    } else {
      e.slot_num = slot_num_for(ifx);
      value = bytes_of(e);
    }
    out_.push_back({bytes_of(k), value});
    ++rw_made_;
  }

  // One group of entries of one target, or one entry off the ISLs.
  void add_rw_group(size_t room) {
    const wwn_t &tgt = target();
    const Host &src = host();
    uint8_t slot = kLineCards[rng_.below(std::size(kLineCards))];
    if (!rng_.chance(33)) {
      uint32_t r = rng_.below(100);
      uint32_t side = r < 60 ? WAYSHUNT_ACL_FLAG_PHYSICAL
                      : r < 90 ? WAYSHUNT_ACL_FLAG_VIRTUAL
                               : WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL;
      add_rw(rw_type(false), tgt, src, side, any_interface(slot));
      return;
    }
    add_isl_group(tgt, src, slot, kPatterns[static_cast<int>(era_)][rng_.below(9)], room);
  }

  // Entries on ISLs of one target, slot and source pair, one per letter of
  // pattern, at most room of them.
  void add_isl_group(const wwn_t &tgt, const Host &src, uint8_t slot, const char *pattern, size_t room) {
    for (size_t i = 0; pattern[i] && i < room; ++i) {
      uint32_t side = pattern[i] == 'P' ? WAYSHUNT_ACL_FLAG_PHYSICAL
                      : pattern[i] == 'V' ? WAYSHUNT_ACL_FLAG_VIRTUAL
                      : pattern[i] == 'B' ? WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL
                                          : 0;
      add_rw(rw_type(true), tgt, src, WAYSHUNT_ACL_FLAG_ISL | side, IF_INDEX_FC(slot, 1 + rng_.below(48)));
    }
  }

  uint8_t any_slot() { return kLineCards[rng_.below(std::size(kLineCards))]; }

  // The shape's RW entries, within the rw entries of the store.
  void add_shaped_rw(size_t rw) {
    if (std::vector<const char *> mixes = chain_patterns(era_); shape_.chain && !mixes.empty()) {
      const wwn_t tgt = target();
      for (size_t both = 0; both < shape_.chain && rw_made_ < rw;) {
        const char *pattern = mixes[rng_.below(static_cast<uint32_t>(mixes.size()))];
        const Host src = host();
        uint8_t slot = any_slot();
        size_t before = rw_made_;
        add_isl_group(tgt, src, slot, pattern, rw - rw_made_);
        both += std::count(pattern, pattern + (rw_made_ - before), 'B');
      }
    }
    if (shape_.big_group && rw_made_ < rw) {
      std::string mix = big_group_pattern(era_), pattern;
      while (pattern.size() < shape_.big_group) pattern += mix;
      pattern.resize(shape_.big_group);
      const wwn_t tgt = target();
      const Host src = host();
      add_isl_group(tgt, src, any_slot(), pattern.c_str(), rw - rw_made_);
    }
    for (size_t i = 0; i < shape_.off_layout_keys && rw_made_ < rw; ++i) add_off_layout(i);
  }

  // An ACL_RW_1 entry under a key of 11 bytes (even i) or 9 (odd i), every
  // other pair on an ISL.
  void add_off_layout(size_t i) {
    bool isl = i / 2 % 2 == 0;
    const wwn_t tgt = target();
    const Host src = host();
    uint8_t slot = any_slot();
    if_index_t ifx = isl ? IF_INDEX_FC(slot, 1 + rng_.below(48)) : any_interface(slot);
    add_rw(WAYSHUNT_KVS_KEY_ACL_RW_1, tgt, src, WAYSHUNT_ACL_FLAG_PHYSICAL | (isl ? WAYSHUNT_ACL_FLAG_ISL : 0), ifx);
    Bytes &key = out_.back().key;
    if (i % 2 == 0)
      key.push_back(static_cast<uint8_t>(rng_.next()));
    else
      key.pop_back();
  }

  void add_els() {
    uint32_t r = rng_.below(100);
    uint8_t type = r < 60 ? WAYSHUNT_KVS_KEY_ACL_ELS_1 : r < 80 ? WAYSHUNT_KVS_KEY_ACL_ELS_2 : WAYSHUNT_KVS_KEY_ACL_ELS_3;
    const Host &src = host();
    wayshunt_kvs_data_els_acl_entry_t e;
    std::memset(&e, 0, sizeof e);
    e.tgt_pwwn = target();
    e.src_pwwn = src.pwwn;
    e.src_vsan = src.vsan;
    e.src_fcid = make_fcid(rng_);
    e.dst_fcid = make_fcid(rng_);
    e.if_index = any_interface(kLineCards[rng_.below(std::size(kLineCards))]);
    e.flags = rng_.below(256);
    e.slot_num = slot_num_for(e.if_index);
    // The service does not interpret ELS keys beyond the type; they are
    // shaped like RW keys here.
    wayshunt_kvs_key_rw_acl_entry_t k = {{type, 0}, unique_hash()};
    out_.push_back({bytes_of(k), bytes_of(e)});
  }

  Era era_;
  Rng rng_;
  SynthShape shape_;
  std::vector<wwn_t> targets_;
  std::vector<Host> hosts_;
  std::unordered_set<std::string> flow_keys_;
  std::unordered_set<uint64_t> hashes_;
  uint32_t rewritten_ = 0;
  size_t rw_made_ = 0;
  Records out_;
};

}  // namespace

Records synthesize_store(Era era, size_t count, uint64_t seed, const SynthShape &shape) {
  return Synth(era, seed, shape).run(count);
}

bool shape_fits_era(ShapeBit shape, Era era) {
  if (shape == kLongChains) return !chain_patterns(era).empty();
  if (shape == kUnusedBytes) return era == Era::v32;
  return true;
}

SynthShape synth_shape(unsigned shapes, Era era, size_t count) {
  SynthShape s;
  const size_t rw = count * 55 / 100;  // about the RW entries of run()
  auto has = [&](ShapeBit b) { return (shapes & b) && shape_fits_era(b, era); };
  if (has(kLongChains)) s.chain = std::min(rw / 4, std::clamp<size_t>(rw / 5, 24, 300));
  if (has(kBigGroup)) s.big_group = std::min(rw / 3, std::clamp<size_t>(rw / 8, 200, 800));
  if (has(kOffLayoutKeys)) s.off_layout_keys = std::min<size_t>(rw / 4, 8);
  if (has(kUnusedBytes)) s.unused_percent = 20;
  if (has(kPortChannels)) s.port_channel_percent = 60;
  return s;
}

std::string shape_list(unsigned shapes) {
  std::string out;
  for (unsigned i = 0; i < kShapeCount; ++i)
    if (shapes & (1u << i)) out += (out.empty() ? "" : ",") + std::string(kShapeNames[i]);
  return out.empty() ? "typical" : out;
}

}  // namespace wsc
