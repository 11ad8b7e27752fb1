#include "butngain/calibration.hpp"

#include <cmath>
#include <string>
#include <utility>

#include "calibration.hpp"
#include "input_of_bpm.hpp"
#include "interior.hpp"

namespace butngain {
namespace {

// Face and rooms have records of the same names: those behind the face are called by this one.
namespace rooms = ::calibration;

// The enumerators stand in one order here and there; what is added there must be added here.
template <class to, class from>
to same(from value) {
  return static_cast<to>(static_cast<int>(value));
}
// The last of each: one that is put in between moves it, and the build ends here.
static_assert(static_cast<int>(verdict_word::suspect) ==
              static_cast<int>(rooms::verdict_word::suspect));
static_assert(static_cast<int>(verdict_reason::pedestals_not_checked) ==
              static_cast<int>(rooms::verdict_reason::pedestals_not_checked));
static_assert(static_cast<int>(fit_kind::wide_pedestals) ==
              static_cast<int>(rooms::fit_kind::wide_pedestals));
static_assert(static_cast<int>(trouble_kind::pedestals_of_set) ==
              static_cast<int>(rooms::trouble_kind::pedestals_of_set));

// Rows of plain arrays: the rooms' type checks its bounds, and would bring its header into the
// face.
square square_of(const rooms::button_square& from) {
  square to{};
  for (std::size_t i = 0; i < 4; ++i) {
    for (std::size_t j = 0; j < 4; ++j) to[i][j] = from.item[i * 4 + j];
  }
  return to;
}

// Callers count buttons from 0, the rooms from 1: their 0, no button, is -1 here.
judgement public_judgement(const rooms::judgement& j) {
  return {same<verdict_word>(j.word), same<verdict_reason>(j.reason), j.button - 1, j.E};
}

// Field by field: the face stays what it is when the record behind it is put in another order.
calibration_fit public_fit(const rooms::fit_result& from) {
  return {.kind = same<fit_kind>(from.kind),
          .differences = from.differences,
          .gain = from.t.item,
          .covariance = square_of(from.covariance),
          .noise_covariance = square_of(from.noise_covariance),
          .error = from.E,
          .noise_error = from.E_noise,
          .pedestal = from.pedestal.item,
          .pedestal_covariance = square_of(from.pedestal_covariance),
          .noise = from.noise,
          .noise_v = from.noise_v,
          .jitter = from.jitter,
          .chi_square = from.chi_square,
          .chi_square_v = from.chi_square_v,
          .persistence = from.persistence,
          .chamber = from.h,
          .current = from.l,
          .orbits = from.orbits,
          .outliers = from.outliers,
          .intensity_outliers = from.intensity_outliers,
          .at_edge = from.at_edge,
          .steps = from.steps,
          .converged = from.converged};
}

calibration public_record(const rooms::record& from) {
  calibration made;
  made.verdict = public_judgement(from.verdict);
  made.gain = from.t.item;
  made.chosen = same<fit_kind>(from.chosen);
  made.free = public_fit(from.free);
  made.steady = public_fit(from.steady);
  made.wide = public_fit(from.wide);
  made.median_signal = from.median_signal;
  made.pedestal_chi = from.pedestal_chi;
  made.slope_chi = from.slope_chi;
  made.moved_gains = from.moved_gains;
  made.moved_sigma = from.moved_sigma;
  made.mechanical_error = from.E_mech;
  for (const rooms::trouble_size& t : from.trouble) {
    // A button counts from 1 there, a data set from 0 in both.
    const int which = t.kind == rooms::trouble_kind::compression ? t.which - 1 : t.which;
    made.trouble.push_back(
        {same<trouble_kind>(t.kind), which, t.size, t.chi_square, t.freedom, t.shift});
  }
  made.place.reserve(from.place.size());
  for (const rooms::orbit_place& p : from.place) {
    made.place.push_back({p.x, p.y, p.intensity, p.residual, p.used});
  }
  made.fits_differ = from.fits_differ;
  // None where no fits were made, or where the run was given up before they were judged.
  if (from.fits_verdict) made.fits_verdict = public_judgement(*from.fits_verdict);
  return made;
}

// Worked out in both places from the same fits: their multipliers by fit and button.
rooms::four_fits multipliers_of(const gain_fit_mod::four_fits& fits) {
  rooms::four_fits all{};
  for (int f = 1; f <= 4; ++f) {
    for (int k = 1; k <= 4; ++k) all(f, k) = fits.fit[static_cast<std::size_t>(f) - 1].gain(k);
  }
  return all;
}

}  // namespace

// Told by the names of the caller's fields. Further down a bad number would come out as a verdict
// on the BPM, which is not at fault.
void check_input(const calibration_input& input, const std::string& prefix) {
  contents_of(input.chamber_table, (prefix + "chamber_table").c_str());
  int before = -1;
  // Ascending without repetition: a data set without an orbit has nothing to find its pedestals
  // from.
  for (const int start : input.set_start) {
    if (start <= before || std::cmp_greater_equal(start, input.readings.size())) {
      throw_argument(prefix + "set_start", std::to_string(start),
                     "ascending numbers of orbits, from 0");
    }
    before = start;
  }
  const auto positive = [&prefix](double value, const char* name, bool or_zero) {
    if (!std::isfinite(value) || value < 0 || (value == 0 && !or_zero)) {
      throw_argument(prefix + name, std::to_string(value),
                     or_zero ? "0 or a positive number" : "a positive number");
    }
  };
  // It is divided by: 0 would give the pedestals an infinite weight.
  positive(input.sigma_p, "sigma_p", false);
  // Of these two 0 says that they are not known.
  positive(input.half_height, "half_height", true);
  positive(input.tolerance, "tolerance", true);
}

// Apart from the check, so that a list of BPMs can be checked whole before the first one is fitted.
calibration calibrate_checked(const calibration_input& input) {
  // The calibration takes the readings button by button.
  std::array<std::vector<double>, 4> column;
  for (std::size_t k = 0; k < 4; ++k) {
    column[k].reserve(input.readings.size());
    for (const signals& reading : input.readings) column[k].push_back(reading[k]);
  }
  rooms::bpm_run run{.signal = {column[0], column[1], column[2], column[3]},
                     .set_start = input.set_start,
                     .table = &input.chamber_table.contents->table,
                     .exact_table = input.exact_table,
                     .own_table = input.own_table,
                     .sigma_p = input.sigma_p,
                     .half_height = input.half_height,
                     .tolerance = input.tolerance,
                     .fits = {}};
  std::optional<four_fits> fits;
  // Without readings the calibration has a verdict that says so; the fits would only have a fault.
  if (input.with_fits && !input.readings.empty()) {
    const auto readings = copied(input.readings);
    // Made first: the calibration judges their gains beside its own.
    const auto made = gain_fit_mod::fit_readings(readings);
    run.fits = multipliers_of(made);
    fits = public_fits(readings, made);
  }
  calibration made = public_record(rooms::calibrate(run));
  made.fits = std::move(fits);
  return made;
}

// A reference into the caller's record, as long-lived as that.
const calibration_fit& chosen_fit(const calibration& c) {
  switch (c.chosen) {
    case fit_kind::free_intensity:
      return c.free;
    case fit_kind::steady_intensity:
      return c.steady;
    case fit_kind::wide_pedestals:
      // Behind the switch, so that a new kind without a case is told when this is compiled.
      break;
  }
  return c.wide;
}

// The words of the rooms, not a second list of them: the program and the library must never differ.
std::string_view text_of(verdict_word word) {
  return rooms::text_of(same<rooms::verdict_word>(word));
}

std::string line_of(const judgement& j) {
  return rooms::text_of({same<rooms::verdict_word>(j.word), same<rooms::verdict_reason>(j.reason),
                         j.button + 1, j.error});
}

calibration calibrate(const calibration_input& input) {
  check_input(input, "");
  return calibrate_checked(input);
}

}  // namespace butngain
