// 'gen --fleet' in-process: each image's store, read back with the tool's
// reader and profile, has its era and a record count in range and shows
// exactly the shapes the plan gave it; the first images show every shape
// their eras can have; the same seed gives the same stores, another not.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "compare/store_profile.h"
#include "device/device_image.h"
#include "device/fleet.h"
#include "if_index.h"
#include "records/form_tables.h"
#include "store/store_io.h"
#include "store/synth.h"
#include "test_support.h"
#include "wayshunt.h"

namespace {

using wsc::Era;

// What tells a shape from the typical store, with room on both sides.
constexpr size_t kChainAtLeast = 24;      // ISL entries with both flags of one target
constexpr size_t kGroupAtLeast = 40;      // entries of one ISL group
constexpr size_t kPortChannelShare = 35;  // percent of the interfaces off the ISLs

std::string bytes(const wwn_t &w) { return std::string(reinterpret_cast<const char *>(w.str), sizeof w.str); }

// The shapes a store shows, measured on its records and profile.
unsigned shapes_found(const wsc::Records &records, const wsc::StoreProfile &p) {
  std::map<std::string, size_t> both_per_target, group;
  size_t off_isl = 0, port_channels = 0;
  bool unused = false;
  for (const wsc::Record &r : records) {
    uint32_t if_index = 0;
    if (wsc::is_rw(r.type())) {
      wayshunt_kvs_data_rw_acl_entry_t e{};
      std::memcpy(&e, r.value.data(), offsetof(wayshunt_kvs_data_rw_acl_entry_t, slot_num));
      const uint32_t both = WAYSHUNT_ACL_FLAG_PHYSICAL | WAYSHUNT_ACL_FLAG_VIRTUAL;
      if (r.value.size() == sizeof(wayshunt_kvs_data_rw_acl_entry_32_t))
        unused |= std::any_of(r.value.begin() + offsetof(wayshunt_kvs_data_rw_acl_entry_32_t, unused), r.value.end(),
                              [](uint8_t b) { return b != 0; });
      if (e.acl_flags & WAYSHUNT_ACL_FLAG_ISL) {
        if ((e.acl_flags & both) == both) ++both_per_target[bytes(e.tgt_pwwn)];
        ++group[bytes(e.tgt_pwwn) + bytes(e.src_sid_wwn) + bytes(e.src_did_wwn) + std::to_string(IF_INDEX_FC_SLOT(e.if_index))];
        continue;
      }
      if_index = e.if_index;
    } else if (wsc::is_els(r.type())) {
      wayshunt_kvs_data_els_acl_entry_t e{};
      std::memcpy(&e, r.value.data(), sizeof e);
      if_index = e.if_index;
    } else {
      continue;
    }
    ++off_isl;
    port_channels += IF_INDEX_IS_PORT_CHANNEL(if_index);
  }
  auto most = [](const std::map<std::string, size_t> &m) {
    size_t n = 0;
    for (const auto &[k, v] : m) n = std::max(n, v);
    return n;
  };
  const auto &rw1 = p.types.at(WAYSHUNT_KVS_KEY_ACL_RW_1).key_sizes;
  unsigned found = 0;
  if (most(both_per_target) >= kChainAtLeast) found |= wsc::kLongChains;
  if (most(group) >= kGroupAtLeast) found |= wsc::kBigGroup;
  if (rw1.count(11) && rw1.count(9)) found |= wsc::kOffLayoutKeys;
  if (unused) found |= wsc::kUnusedBytes;
  if (port_channels * 100 >= off_isl * kPortChannelShare) found |= wsc::kPortChannels;
  return found;
}

std::vector<wsc::Records> stores_of(const wsc::FleetOrder &order, const std::vector<wsc::FleetImage> &plan) {
  std::vector<wsc::Records> out;
  for (const wsc::FleetImage &f : plan) out.push_back(wsc::read_store(wsc::image_at(order.dir + "/" + f.name, true).store()));
  return out;
}

std::vector<wsc::Records> make(wsc::FleetOrder order, const std::string &dir) {
  order.dir = dir;
  auto plan = wsc::plan_fleet(order);
  wsc::make_fleet(order, plan, false, [](const wsc::FleetImage &) {});
  return stores_of(order, plan);
}

struct FleetCase {
  const char *name;
  wsc::FleetOrder order;  // dir left empty
  unsigned shown;       // the shapes the first images show between them
  size_t first;         // in so many images
};

constexpr unsigned kAll = wsc::kLongChains | wsc::kBigGroup | wsc::kOffLayoutKeys | wsc::kUnusedBytes | wsc::kPortChannels;

const FleetCase kFleets[] = {
    {"EveryEra", {"", 6, 300, 800, {Era::v32, Era::v41, Era::v42}, 7}, kAll, 5},
    // 4.2 stores hold no entries with both flags and no unused bytes.
    {"Only42", {"", 4, 500, 500, {Era::v42}, 9}, wsc::kBigGroup | wsc::kOffLayoutKeys | wsc::kPortChannels, 3},
    {"Only32", {"", 7, 300, 400, {Era::v32}, 1}, kAll, 5},
};

void PrintTo(const FleetCase &c, std::ostream *os) { *os << c.name; }

class Fleet : public ::testing::TestWithParam<FleetCase> {};

TEST_P(Fleet, ImagesAreWhatThePlanSays) {
  const FleetCase &c = GetParam();
  testsupport::TempDir tmp;
  wsc::FleetOrder order = c.order;
  order.dir = tmp / "fleet";
  auto plan = wsc::plan_fleet(order);
  std::vector<std::string> names;
  wsc::make_fleet(order, plan, false, [&](const wsc::FleetImage &f) { names.push_back(f.name); });
  ASSERT_EQ(plan.size(), order.images);
  EXPECT_EQ(names.size(), order.images);
  auto stores = stores_of(order, plan);
  unsigned shown = 0;
  for (size_t i = 0; i < plan.size(); ++i) {
    const wsc::FleetImage &f = plan[i];
    SCOPED_TRACE(f.name + " " + wsc::shape_list(f.shapes));
    EXPECT_EQ(f.name, "img-" + std::to_string(i + 1));
    EXPECT_EQ(f.era, order.eras[i % order.eras.size()]);
    wsc::StoreProfile p = wsc::profile_store(stores[i]);
    EXPECT_EQ(p.records, f.records);
    EXPECT_GE(p.records, order.min_records);
    EXPECT_LE(p.records, order.max_records);
    const unsigned era = 1u << wsc::era_index(f.era);
    if (f.shapes & wsc::kOffLayoutKeys)
      EXPECT_TRUE(p.fits == 0 && p.majority == era) << wsc::era_verdict(p);
    else
      EXPECT_EQ(p.fits, era) << wsc::era_verdict(p);
    EXPECT_NE(f.shapes, 0u);
    EXPECT_EQ(shapes_found(stores[i], p), f.shapes);
    if (i < c.first) shown |= f.shapes;
  }
  EXPECT_EQ(shown, c.shown);
}

TEST_P(Fleet, SeedMakesTheStores) {
  testsupport::TempDir tmp;
  wsc::FleetOrder other = GetParam().order;
  ++other.seed;
  auto first = make(GetParam().order, tmp / "a");
  EXPECT_EQ(make(GetParam().order, tmp / "b"), first);
  auto different = make(other, tmp / "c");
  for (size_t i = 0; i < first.size(); ++i) EXPECT_NE(different[i], first[i]) << "image " << i + 1;
}

INSTANTIATE_TEST_SUITE_P(Cases, Fleet, ::testing::ValuesIn(kFleets), [](const auto &info) { return std::string(info.param.name); });

}  // namespace
