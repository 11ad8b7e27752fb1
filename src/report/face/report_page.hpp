// report_page: what people look at after a run: report.html, gains.png, gains.pdf.
//
// The page is one file that needs neither network nor script. Its first sentence says what can be
// loaded; then come the BPMs that need a look, all gains in one picture, a table, and a fold-out
// with pictures for every BPM. All three show the same picture of the gains.
#pragma once
#include <string>

#include "fault.hpp"
#include "run_results.hpp"

namespace report {

/// The page's first sentences: "11 of 12 BPMs are determined: load gains.load. 1 BPM needs a look."
std::string first_sentence(const run_results& run);

/// The page as text.
/// given    threads  that draw the pictures of the BPMs
/// note     some 50 kB a BPM; point clouds are thinned, from a hundred BPMs on more and more
std::string report_html(const run_results& run, unsigned threads = 1);

/// The picture of all gains, made without a display, as the bytes of a PNG file; empty when memory
/// failed.
std::string gains_png(const run_results& run);

enum class paper { a4, letter };

/// Sentence, BPMs that need a look and picture on paper, as the bytes of a PDF file; empty when
/// memory failed.
std::string gains_pdf(const run_results& run, paper size);

/// Write them, whole or not at all.
/// errors   what cannot be drawn or written: the fault, with the system's reason
util::status write_report_html(const std::string& path, const run_results& run,
                               unsigned threads = 1);
util::status write_gains_png(const std::string& path, const run_results& run);
util::status write_gains_pdf(const std::string& path, const run_results& run, paper size);

}  // namespace report
