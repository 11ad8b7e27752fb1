#include <fmt/format.h>

#include "calibration.hpp"

namespace calibration {
namespace {

// The half line behind the word, for somebody at the console: what was seen, or a question that
// leads to the cause, not which test of the rule failed. No default in the switch: the compiler
// then names the reason that a new enumerator lacks.
std::string_view text_of(verdict_reason reason) {
  switch (reason) {
    case verdict_reason::none:
      return "";
    case verdict_reason::no_table:
      return "no table of the chamber";
    case verdict_reason::few_orbits:
      return "too few orbits with signals";
    case verdict_reason::dead_button:
      return "no signal";
    case verdict_reason::stuck_button:
      return "stuck readings";
    case verdict_reason::saturated_button:
      return "saturated readings";
    case verdict_reason::no_convergence:
      return "the fit did not converge";
    case verdict_reason::one_line:
      return "the beam moved along a line";
    case verdict_reason::error_too_large:
      return "the data leave the gains open; did the beam move enough?";
    case verdict_reason::pedestals:
      // Both, because the fit cannot tell them apart: either adds to a button what its gain does
      // not.
      return "pedestals, or a current that follows the position";
    case verdict_reason::unlikely_gains:
      return "gains too far apart";
    case verdict_reason::many_outliers:
      return "too many outliers";
    case verdict_reason::at_the_edge:
      return "beam at the edge of the table";
    case verdict_reason::gains_change:
      return "gains change during the run";
    case verdict_reason::other_signals:
      return "cross-talk between buttons, or a button that compresses";
    case verdict_reason::pedestals_not_known:
      return "pedestals are not known";
    case verdict_reason::stand_in_table:
      return "the table is not this chamber's own";
    case verdict_reason::error_large:
      return "large error";
    case verdict_reason::pedestals_not_checked:
      return "the data cannot confirm the pedestals";
  }
  return "";
}

}  // namespace

// The word leads the line of a verdict: a list of BPMs can be sorted or searched by it. "not
// determined" is two words so that the eye does not take it for its opposite.
std::string_view text_of(verdict_word word) {
  switch (word) {
    case verdict_word::determined:
      return "determined";
    case verdict_word::weak:
      return "weak";
    case verdict_word::not_determined:
      return "not determined";
    case verdict_word::suspect:
      return "suspect";
  }
  return "";
}

std::string text_of(const judgement& j) {
  std::string line{text_of(j.word)};
  // "determined" stands alone: a colon would announce a complaint.
  if (j.reason == verdict_reason::none) return line;
  line += ": ";
  // Most reasons are about the BPM as a whole; those of the readings blame one button.
  if (j.button != 0) line += fmt::format("button {}: ", j.button);
  return line += text_of(j.reason);
}

}  // namespace calibration
