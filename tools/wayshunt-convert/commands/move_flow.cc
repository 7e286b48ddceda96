// The forecast, the move and the audit of 'run', each conversion in a child
// process of its own (device/conversion_run.h).
#include "commands/move_flow.h"

#include <bit>
#include <csignal>
#include <cstring>
#include <memory>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>

#include "compare/audit.h"
#include "compare/classify.h"
#include "compare/store_compare.h"
#include "compare/store_profile.h"
#include "device/conversion_run.h"
#include "device/history.h"
#include "device/move_marker.h"
#include "records/formats.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace wsc {

namespace fs = std::filesystem;

namespace {

// Lost items and audit findings printed; --json has them all.
constexpr size_t kShown = 10;

using Clock = std::chrono::steady_clock;
double since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

bool rules_in_force(const MoveOptions &o) {
  const char *env = std::getenv("PLAT_FAULTS");
  return !o.faults.empty() || (env && *env);
}

std::string move_word(Direction d) { return d == Direction::up ? "upgrade" : d == Direction::down ? "downgrade" : "move"; }

Records store_of(const DeviceImage &img) { return read_store(img.store()); }

std::string file_text(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

// The files a conversion's steps brought to the standby, by path below it.
std::set<std::string> arrived(const std::vector<StepResult> &steps) {
  std::set<std::string> out;
  for (const StepResult &s : steps)
    for (const std::string &line : s.standby)
      if (line.size() > 2 && (line[0] == '+' || line[0] == '~')) out.insert(line.substr(2, line.rfind(" (") - 2));
  return out;
}

Json statuses_json(const std::vector<StepResult> &steps) {
  Json j = Json::array();
  for (const StepResult &s : steps)
    j.push_back({{"call", s.call}, {"status", s.status}, {"status_text", s.status_text}, {"standby", s.standby},
                 {"log", s.log}, {"seconds", s.seconds}});
  return j;
}

// "convert_gsync returned 0x40480001 (kvs: ...)" for the first failing step.
std::string failure_of(const ConversionOutcome &c) {
  if (!c.died.empty()) return c.died;
  for (const StepResult &s : c.steps)
    if (s.status) {
      char code[16];
      std::snprintf(code, sizeof code, "0x%08x", s.status);
      return s.call.substr(0, s.call.find('(')) + " returned " + code + " (" + s.status_text + ")";
    }
  return "";
}

class Flow {
 public:
  Flow(const MoveOptions &o, ConversionLibrary &lib, const DeviceImage &img, std::ostream &out)
      : o_(o), lib_(lib), img_(img), out_(out), faulted_(rules_in_force(o)) {}

  MoveVerdict run() {
    auto start = Clock::now();
    direction_ = lib_.direction(o_.from, o_.to);
    if (o_.dry_run || o_.no_audit) {
      take_before();
      check_era();
    }
    if (o_.dry_run) return dry_run();
    std::optional<Classified> forecast;
    ConversionOutcome moved;
    if (o_.no_audit) {
      moved = finish_move(*start_move());
    } else {
      moved = audited_move(forecast);
    }
    v_.doc["seconds"]["total"] = since(start);
    write_history(moved, forecast);
    return std::move(v_);
  }

 private:
  // The forecast's copy converts while the store as it was is read and held
  // to --from (a store refused there stops it); the move starts once the
  // store passed, while the forecast is described and printed, and so does
  // the clean conversion the audit needs when fault rules apply. What each
  // conversion reports is printed in that order: forecast, move, audit.
  ConversionOutcome audited_move(std::optional<Classified> &forecast) {
    auto start = Clock::now();
    DeviceImage copy = image_copy("forecast");
    if (faulted_) clean_copy_ = image_copy("clean");
    ConversionChild forecasting(lib_, copy, o_.from, o_.to, steps_of(o_.step), with_rules(""));
    take_before();
    check_era();
    std::unique_ptr<ConversionChild> mover = start_move();
    std::unique_ptr<ConversionChild> cleaning;
    if (faulted_) cleaning = std::make_unique<ConversionChild>(lib_, clean_copy_, o_.from, o_.to, steps_of(o_.step),
                                                               ConversionSetup{});
    forecast_ = forecasting.wait(nullptr);
    forecast_after_ = store_of(copy);
    forecast = describe(forecast_, forecast_after_, "forecast (the library's conversion of a copy");
    v_.doc["seconds"]["forecast"] = since(start);
    ConversionOutcome moved = finish_move(*mover);
    if (v_.interrupted)
      out_ << "audit: not run: the move was interrupted\n";
    else
      audit(moved, cleaning.get());
    return moved;
  }

 private:
  // The store as it was: the caller's reading, or the image's read now.
  void take_before() {
    if (!o_.store_now) read_before_ = store_of(img_);
    before_ = o_.store_now ? o_.store_now : &read_before_;
  }

  // Refuses a --from whose era the store's forms do not fit.
  // A move cut short on this image: the same move runs again to finish it
  // (its forms may be those between two passes); another needs --force.
  bool resumes_stopped_move() {
    std::optional<MoveMark> m = move_mark(img_);
    if (!m) return false;
    std::string what = "a move " + m->from + " -> " + m->to + " on this image stopped before its end" +
                       (m->stopped.empty() ? "" : " (" + m->stopped + ")");
    if (m->from == o_.from && m->to == o_.to) {
      out_ << "store: " << what << "; running it again to finish it\n";
      return true;
    }
    if (!o_.force)
      throw ToolError(what + "; run that move again to finish it, or give --force to run this one");
    out_ << "store: " << what << "; running this one all the same (--force)\n";
    return false;
  }

  void check_era() {
    if (!o_.dry_run && resumes_stopped_move()) return;
    std::optional<Era> era = lib_.era_of_release(o_.from);
    if (!era) return;  // below the ladder: the library converts no stored form from there
    StoreProfile p = profile_store(*before_);
    unsigned bit = 1u << era_index(*era);
    v_.doc["store_before"] = {{"records", p.records}, {"fits", era_names(p.fits_moved_down)}};
    if (p.fits_moved_down & bit) {
      if (std::popcount(p.fits_moved_down) > 1)
        out_ << "store: its forms fit " << era_titles(p.fits_moved_down, " and ") << " alike; --from " << o_.from
             << " takes it as " << era_title(*era) << "\n";
      return;
    }
    std::string is = p.fits_moved_down ? "in the forms of " + era_titles(p.fits_moved_down, " or ")
                                       : "of no one era (" + era_verdict(p) + ")";
    if (o_.force) {
      out_ << "store: " << is << ", not of " << era_title(*era) << " as --from says; converting it all the same (--force)\n";
      return;
    }
    std::string hint = p.fits_moved_down
                           ? "give the release the store was left by, e.g. --from \"" +
                                 era_name(static_cast<Era>(std::countr_zero(p.fits_moved_down))) + "(1)\", or --force"
                           : "look with 'wayshunt-convert info " + shell_word(img_.mnt_kvs()) + "', or give --force";
    throw ToolError("--from " + o_.from + " is a release of " + era_title(*era) + ", but the store " +
                    img_.store_file() + " is " + is + "; " + hint + " to convert it as it is");
  }

  ConversionSetup with_rules(const std::string &journal) const { return {o_.faults, true, journal}; }

  ConversionOutcome convert(const DeviceImage &on, const ConversionSetup &setup, bool print) {
    auto show = [&](const StepResult &s) {
      if (print) print_step(s, on, out_);
    };
    return run_conversion(lib_, on, o_.from, o_.to, steps_of(o_.step), setup, show);
  }

  DeviceImage image_copy(const std::string &name) {
    if (!temp_) temp_ = std::make_unique<TempFolder>("run");
    DeviceImage copy = copy_image(img_, temp_->path() + "/" + name);
    make_image_folders(copy);
    return copy;
  }

  void print_move_line(bool dry) {
    out_ << "move " << o_.from << " -> " << o_.to << " on " << img_.dir << (dry ? " (dry run on a copy)" : "")
         << ", library " << lib_.path() << "\n";
    v_.doc["move"] = {{"from", o_.from}, {"to", o_.to}, {"image", img_.dir}, {"step", o_.step},
                      {"dry_run", dry},   {"library", lib_.path()}, {"faults", o_.faults}};
  }

  // The forecast: what the conversion of a copy did, in classes.
  Classified describe(const ConversionOutcome &c, const Records &after, const char *title) {
    Classified k = classify_changes(*before_, after, o_.json ? SIZE_MAX : kShown,
                                    o_.lost_items_only ? std::optional<size_t>(0) : std::nullopt);
    std::string fails = failure_of(c);
    out_ << title << (faulted_ ? ", with the fault rules): " : "): ");
    if (o_.quiet) out_ << change_headline(k, move_word(direction_)) << "\n";
    else print_classified(k, move_word(direction_), kShown, out_);
    if (!fails.empty()) out_ << "  the conversion stops: " << fails << "\n";
    v_.doc["forecast"] = classified_json(k, move_word(direction_));
    v_.doc["forecast"]["stops"] = fails;
    return k;
  }

  // Starts the move on the image, its platform calls journaled where the
  // user asks (PLAT_JOURNAL) or the audit needs them (fault rules).
  std::unique_ptr<ConversionChild> start_move() {
    if (int sig = InterruptGuard::caught())  // come while the tool prepared: nothing is moved
      throw ToolError(std::string("interrupted (") + strsignal(sig) + ") before the move started; the image is as it was",
                      128 + sig);
    make_image_folders(img_);
    check_hub_dir(img_.hub());
    const char *user = std::getenv("PLAT_JOURNAL");
    if (user && *user) {
      journal_ = user;
    } else if (faulted_ && !o_.no_audit) {  // the audit names the failed calls from it
      if (!temp_) temp_ = std::make_unique<TempFolder>("run");
      journal_ = temp_->path() + "/journal";
    }
    std::error_code ec;
    journal_start_ = journal_.empty() ? 0 : fs::file_size(journal_, ec);
    if (ec) journal_start_ = 0;
    mark_move(img_, o_.from, o_.to);
    return std::make_unique<ConversionChild>(lib_, img_, o_.from, o_.to, steps_of(o_.step), with_rules(journal_));
  }

  ConversionOutcome finish_move(ConversionChild &mover) {
    print_move_line(false);
    ConversionOutcome moved = mover.wait([this](const StepResult &s) { print_step(s, img_, out_); });
    if (moved.died.empty()) unmark_move(img_);
    else mark_stopped(img_, moved.died);
    if (!moved.died.empty()) out_ << "stopped: " << moved.died << "\n";
    int sig = InterruptGuard::caught() ? InterruptGuard::caught() : moved.signal;
    if (sig == SIGINT || sig == SIGTERM) report_interruption(sig, moved.died.empty());
    v_.doc["steps"] = statuses_json(moved.steps);
    v_.statuses_ok = moved.ok();
    if (!o_.faults.empty()) report_store_after();
    return moved;
  }

  // What an interrupted move left: the store against the store as it was.
  // ended: every call of the move had returned when the signal came.
  void report_interruption(int sig, bool ended) {
    v_.interrupted = sig;
    Records now = store_of(img_);
    StoreProfile p = profile_store(now);
    Classified k = classify_changes(*before_, now, 0);
    std::string state = "the store now: " + std::to_string(p.records) + " records in the forms of " + era_verdict(p) +
                        "; against the store as it was, " + change_headline(k, "move").substr(10);
    out_ << "interrupted (" << strsignal(sig) << "): " << state << "\n"
         << (ended ? "interrupted: after the move's last call had returned; the audit did not run\n"
                   : "interrupted: the move stopped before its end; run the same move again to finish it\n");
    v_.doc["interrupted"] = {{"signal", sig}, {"store", state}};
  }

  void report_store_after() {
    Records after = store_of(img_);  // the profile points into it
    StoreProfile p = profile_store(after);
    v_.doc["store_after"] = profile_to_json(p, img_.store_file());
    out_ << "runtime store after the move: " << p.records << " records, era " << era_verdict(p)
         << "; look with 'wayshunt-convert info " << shell_word(img_.mnt_kvs()) << "' or 'dump'\n";
  }

  std::vector<std::string> journal_lines() const {
    std::vector<std::string> lines;
    if (journal_.empty()) return lines;
    std::ifstream in(journal_);
    in.seekg(static_cast<std::streamoff>(journal_start_));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  std::function<std::vector<Violation>(const Records &)> invariants() {
    std::optional<Era> era = lib_.era_of_release(o_.to);
    if (!era) return nullptr;
    After after = direction_ == Direction::up && *era == Era::v42   ? After::upgrade
                  : direction_ == Direction::down && *era != Era::v42 ? After::downgrade
                                                                      : After::nothing;
    return [this, e = *era, after](const Records &r) {
      return violations(r, e, after, [this](uint32_t i) { return lib_.slot_of(i); });
    };
  }

  // cleaning: the clean conversion when fault rules apply; without them the
  // forecast's is the clean one.
  void audit(const ConversionOutcome &moved, ConversionChild *cleaning) {
    auto start = Clock::now();
    ConversionOutcome clean = forecast_;
    Records clean_store;
    const Records *reference = &forecast_after_;
    if (cleaning) {
      clean = cleaning->wait(nullptr);
      clean_store = store_of(clean_copy_);
      reference = &clean_store;
    }
    Records after = store_of(img_);
    bool unchanged = after == *before_ && after != *reference;
    AuditInput in{reference, &after, unchanged && !moved.ok(), invariants(), arrived(clean.steps), arrived(moved.steps), {}, {},
                  journal_lines()};
    for (const std::string &path : in.clean_arrived) {
      in.expected_files[path] = file_text(img_.dir + "/" + path);
      if (fs::exists(img_.standby() + "/" + path)) in.moved_files[path] = file_text(img_.standby() + "/" + path);
    }
    AuditResult a = audit_move(in);
    v_.doc["audit"] = audit_json(a);
    v_.doc["seconds"]["audit"] = since(start);
    verdict_ = verdict(a, moved, unchanged, reference->size());
    v_.doc["audit"]["verdict"] = verdict_;
    v_.damaged = !a.clean() && v_.statuses_ok;
    if (!a.clean()) {
      out_ << "audit: " << a.findings.size() << (a.findings.size() == 1 ? " finding" : " findings") << "\n";
      print_findings(a, kShown, out_);
    }
    out_ << "audit: " << verdict_ << "\n";
    v_.audited = true, v_.as_forecast = a.clean() && !cleaning;
    v_.store_after = std::move(after);
  }

  std::string verdict(const AuditResult &a, const ConversionOutcome &moved, bool unchanged, size_t records) {
    std::string files = a.files ? std::to_string(a.files) + " of the service's files did not reach the standby intact" : "";
    std::string recs = a.records ? std::to_string(a.records) + (a.records == 1 ? " record differs" : " records differ") +
                                       " from a clean conversion of the store as it was"
                                 : "";
    std::string both = recs + (recs.empty() || files.empty() ? "" : "; ") + files;
    if (!moved.ok())
      return "the move failed (" + failure_of(moved) + ")" + (unchanged ? "; the store is as it was before the move" : "") +
             (both.empty() ? "" : "; " + both);
    if (a.clean())
      return "clean: the store equals a clean conversion of the store as it was (" + std::to_string(records) +
             " records)" + (arrived(moved.steps).empty() ? "" : ", and the service's files reached the standby intact");
    return "status 0, but the audit found damage: " + both;
  }

  MoveVerdict dry_run() {
    DeviceImage copy = image_copy("dry");
    check_hub_dir(copy.hub());
    FileSet standby_before = files_below(copy.standby());
    print_move_line(true);
    const char *user = std::getenv("PLAT_JOURNAL");
    ConversionOutcome c = convert(copy, with_rules(user ? user : ""), true);
    if (!c.died.empty()) out_ << "stopped: " << c.died << "\n";
    v_.doc["steps"] = statuses_json(c.steps);
    v_.statuses_ok = c.ok();
    Records after = store_of(copy);
    describe(c, after, "forecast (the library's conversion of a copy");
    out_ << "dry run: changes to the runtime store:\n";
    StoreChanges changes = compare_stores(*before_, after);
    v_.doc["store_changes"] = changes_to_json(changes);
    if (o_.quiet)
      print_change_counts(changes, out_);
    else
      print_changes(changes, img_.store_file(), copy.store_file(), false, out_);
    std::vector<std::string> standby = file_changes(standby_before, files_below(copy.standby()), "");
    v_.doc["standby_changes"] = standby;
    out_ << "dry run: changes to the standby: " << (standby.empty() ? "none" : "") << "\n";
    for (const std::string &line : standby) out_ << "  " << line << "\n";
    out_ << "dry run: " << img_.dir << " was not changed\n";
    return std::move(v_);
  }

  void write_history(const ConversionOutcome &moved, const std::optional<Classified> &forecast) {
    if (!o_.history) return;
    Json steps = Json::array();
    for (const StepResult &s : moved.steps)
      steps.push_back({{"call", s.call.substr(0, s.call.find('('))}, {"status", s.status}, {"seconds", s.seconds}});
    Json record = {{"time", utc_now()},
                   {"from", o_.from},
                   {"to", o_.to},
                   {"step", o_.step},
                   {"faults", o_.faults},
                   {"steps", steps},
                   {"ok", moved.ok()},
                   {"died", moved.died},
                   {"forecast", forecast ? Json(change_headline(*forecast, move_word(direction_))) : Json()},
                   {"audit", o_.no_audit ? Json() : Json(verdict_)},
                   {"damaged", v_.damaged},
                   {"seconds", v_.doc["seconds"]}};
    std::string why = append_history(img_, record);
    v_.doc["history"] = why.empty() ? img_.history_file() : "not written: " + why;
    if (!why.empty()) out_ << "history: not written (" << why << "); the move itself is not affected\n";
  }

  const MoveOptions &o_;
  ConversionLibrary &lib_;
  DeviceImage img_;
  std::ostream &out_;
  bool faulted_;
  Direction direction_ = Direction::none;
  Records read_before_, forecast_after_;
  const Records *before_ = &read_before_;  // the store as it was
  ConversionOutcome forecast_;
  DeviceImage clean_copy_;
  std::unique_ptr<TempFolder> temp_;
  std::string journal_, verdict_;
  std::uintmax_t journal_start_ = 0;
  MoveVerdict v_;
};

}  // namespace

std::vector<Step> steps_of(const std::string &step) {
  if (step == "running") return {Step::running};
  if (step == "startup") return {Step::startup};
  if (step == "gsync") return {Step::gsync};
  if (step == "fs_upg") return {Step::fs_upg};
  return {Step::running, Step::startup, Step::gsync};
}

MoveVerdict run_move(const MoveOptions &o, ConversionLibrary &lib, const DeviceImage &img, std::ostream &out) {
  return Flow(o, lib, img, out).run();
}

}  // namespace wsc
