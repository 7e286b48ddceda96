// The fleet's plan from its seed, and its images written one by one.
#include "device/fleet.h"

#include <filesystem>

#include "device/device_image.h"
#include "store/rng.h"
#include "store/store_io.h"
#include "store/synth.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

std::string image_name(size_t index, size_t count) {
  std::string number = std::to_string(index + 1);
  return "img-" + std::string(std::to_string(count).size() - number.size(), '0') + number;
}

// The shapes of an image that brings no new shape: each that fits its era
// at one chance in three, and one of them when none came up.
unsigned random_shapes(Rng &rng, Era era) {
  std::vector<unsigned> fitting;
  unsigned shapes = 0;
  for (unsigned i = 0; i < kShapeCount; ++i)
    if (shape_fits_era(static_cast<ShapeBit>(1u << i), era)) {
      fitting.push_back(1u << i);
      if (rng.chance(33)) shapes |= 1u << i;
    }
  return shapes ? shapes : fitting[rng.below(static_cast<uint32_t>(fitting.size()))];
}

// Empties or makes the fleet's folder; returns the folders it made,
// deepest first.
std::vector<fs::path> prepare_folder(const std::string &dir, bool force) {
  std::error_code ec;
  std::vector<fs::path> made;
  for (fs::path p = dir; !p.empty() && !fs::exists(p, ec); p = p.parent_path()) made.push_back(p);
  if (!made.empty()) {
    fs::create_directories(dir, ec);
    if (ec) throw ToolError("cannot create fleet folder " + dir + " (" + ec.message() + "); check the path and its permissions");
    return made;
  }
  if (!fs::is_directory(dir, ec)) throw ToolError("fleet folder " + dir + " is a file; give a new or empty folder");
  std::vector<fs::path> images;
  for (const fs::directory_entry &e : fs::directory_iterator(dir, ec)) {
    if (!e.is_directory(ec) || e.path().filename().string().rfind("img-", 0) != 0)
      throw ToolError("fleet folder " + dir + " holds " + e.path().filename().string() +
                      ", which is no fleet image; give a new or empty folder");
    images.push_back(e.path());
  }
  if (ec) throw ToolError("cannot read fleet folder " + dir + " (" + ec.message() + ")");
  if (!images.empty() && !force)
    throw ToolError("fleet folder " + dir + " holds a fleet; pass --force to replace it, or give a new or empty folder");
  for (const fs::path &p : images)
    if (fs::remove_all(p, ec); ec) throw ToolError("cannot remove " + p.string() + " (" + ec.message() + ")");
  return made;
}

}  // namespace

std::vector<FleetImage> plan_fleet(const FleetOrder &order) {
  Rng rng(order.seed);
  unsigned unshown = 0;  // the shapes some era of the fleet can have
  for (Era era : order.eras)
    for (unsigned i = 0; i < kShapeCount; ++i)
      if (shape_fits_era(static_cast<ShapeBit>(1u << i), era)) unshown |= 1u << i;
  std::vector<FleetImage> plan;
  for (size_t i = 0; i < order.images; ++i) {
    FleetImage img{image_name(i, order.images), order.eras[i % order.eras.size()], 0, 0, 0};
    img.records = order.min_records + rng.below(static_cast<uint32_t>(order.max_records - order.min_records + 1));
    img.seed = rng.next();
    for (unsigned b = 0; b < kShapeCount && !img.shapes; ++b)
      if ((unshown & (1u << b)) && shape_fits_era(static_cast<ShapeBit>(1u << b), img.era)) img.shapes = 1u << b;
    unshown &= ~img.shapes;
    if (!img.shapes) img.shapes = random_shapes(rng, img.era);
    plan.push_back(img);
  }
  return plan;
}

void make_fleet(const FleetOrder &order, const std::vector<FleetImage> &plan, bool force,
                const std::function<void(const FleetImage &)> &done) {
  std::vector<fs::path> made = prepare_folder(order.dir, force);
  std::vector<std::string> written;
  auto remove = [&] {
    std::error_code ec;
    for (const std::string &dir : written) fs::remove_all(dir, ec);
    for (const fs::path &dir : made) fs::remove(dir, ec);
  };
  try {
    for (const FleetImage &f : plan) {
      DeviceImage img{order.dir + "/" + f.name};
      written.push_back(img.dir);
      make_image_folders(img);
      write_store(img.store(), synthesize_store(f.era, f.records, f.seed, synth_shape(f.shapes, f.era, f.records)), false);
      done(f);
    }
  } catch (const ToolError &e) {
    remove();
    throw ToolError(fs::path(written.back()).filename().string() + " of the fleet not written, the images before it removed: " +
                        e.what(),
                    e.status());
  } catch (...) {
    remove();
    throw;
  }
}

}  // namespace wsc
