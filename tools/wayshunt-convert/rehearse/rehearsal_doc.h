// The rehearsal as one JSON document (its shape is in the operator guide):
// the run's facts, the ladder, the moves (the matrix's columns), the
// images (its rows) and the cells; the join of the documents of shards run
// apart; and the three outputs written from it.
#ifndef TOOLS_WAYSHUNT_CONVERT_REHEARSE_REHEARSAL_DOC_H
#define TOOLS_WAYSHUNT_CONVERT_REHEARSE_REHEARSAL_DOC_H

#include <string>
#include <vector>

#include "records/json_codec.h"
#include "rehearse/fleet_run.h"
#include "rehearse/plan.h"

namespace wsc {

// run: the "rehearsal" object's facts (started, seconds, library, jobs,
// shards, faults, allow_loss, images_total); moves: those given (none with
// --ladder: the cells' own).
Json rehearsal_doc(Json run, const std::vector<Rung> &ladder, const std::vector<MovePlan> &moves, FleetResult result);

// One document of several shards' (their "rehearsal.json"): images in the
// order of the whole fleet, every cell, the moves of all. Throws ToolError
// when they are no shards of one rehearsal (other fault rules, allowed
// losses or ladder, or an image twice).
Json merge_docs(const std::vector<Json> &docs);

// rehearsal.json, report.html and junit.xml in dir (created when missing;
// one that already holds a rehearsal is refused). With cell_files, the
// JSON's cells are those files' whole texts, in their order, and doc's own
// cells (cut short for the page) serve the page and the JUnit file.
void write_outputs(const std::string &dir, const Json &doc, const std::vector<std::string> &cell_files = {});

// Cases whose "failure" is set, and images in error.
size_t failed_cases(const Json &doc);

}  // namespace wsc

#endif
