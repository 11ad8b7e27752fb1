// page_parts: the sections of the page, in its order. Every text that comes from data passes
// chart::html on its way.
#pragma once
#include <string>

#include "run_results.hpp"

namespace report {

/// Title, first sentence, counts by verdict, what was run.
std::string head_of(const run_results& run);
/// BPMs that need a look, with reasons; empty when there are none.
std::string look_list(const run_results& run);
/// The table of all BPMs.
std::string table_of(const run_results& run);
/// Appends a fold-out for every BPM: most of the page, drawn on so many threads.
void append_fold_outs(std::string& out, const run_results& run, unsigned threads);
/// Questions, inputs and times, folded.
std::string how_made(const run_results& run);

}  // namespace report
