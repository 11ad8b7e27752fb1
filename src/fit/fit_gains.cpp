#include "fit_gains.hpp"

#include <string>

#include "fields.hpp"
#include "gain_fit_mod.hpp"
#include "kept_solver.hpp"
#include "list_io.hpp"
#include "standard_output.hpp"

namespace gain_fit_mod {
namespace {

// Kept for compatibility: the lines are fixed fields, and every width and blank is part of them. So
// labels have a length of their own beside the text, which they pad or cut.
constexpr int ind_width = 12;  // of the number in the ind line: as free-format output writes it

void put_chis_and_gains(std::string& line, const fit_event& event) {
  util::put_text(line, " chis2 = ", 9);
  util::put_exponent(line, event.chisq);
  line += " gain ";
  for (int i = 1; i <= 4; ++i) util::put_fixed(line, event.at(i));
}

// Two lines for one event: the number of the held gain stands alone.
void put_start(std::string& line, const fit_event& event) {
  line = " ind = ";
  util::put_integer(line, event.held, ind_width);
  util::print_line(line);
  line.clear();
  put_chis_and_gains(line, event);
}

void put_progress(std::string& line, const fit_event& event) {
  put_chis_and_gains(line, event);
  util::put_text(line, " coef = ", 8);
  for (int i = 5; i <= max_parameters; ++i) util::put_fixed(line, event.at(i));
  util::put_text(line, " alambda = ", 8);  // the field keeps " alambda": columns stay put
  util::put_exponent(line, event.alamda);
}

void put_final(std::string& line, const fit_event& event) {
  // Only the amplitude of the curve: it is the one coefficient that is kept for the next BPM.
  util::put_text(line, "final", 8);
  put_chis_and_gains(line, event);
  util::put_text(line, " const = ", 8);  // the field keeps " const ="
  util::put_fixed(line, event.at(5));
}

}  // namespace

std::vector<signals> current_readings() {
  // Sized by norbits, not by the column: a BPM that nothing was written to gives zeros, as many as
  // the others have orbits.
  std::vector<signals> readings(static_cast<std::size_t>(norbits));
  const auto column = orbit_data.column(bpm, norbits);
  for (std::size_t i = 0; i < column.size(); ++i) readings[i] = {column[i].button.item};
  return readings;
}

void tell(std::span<const fit_event> events) {
  // The fit itself prints nothing, so that BPMs can be fitted side by side and told in order.
  using kind = fit_event::kind;
  std::string line;  // keeps its memory: a BPM has hundreds of these
  for (const fit_event& event : events) {
    line.clear();
    switch (event.what) {
      case kind::start:
        put_start(line, event);
        break;
      case kind::step:
        put_progress(line, event);
        break;
      case kind::sweep_end:
        line = util::list_line().text(" ").str();
        break;
      case kind::zero_pivot:
        mrqmin_mod::tell_singular();
        // It has printed its line itself, on the side log as well; an empty one must not follow.
        continue;
      case kind::final:
        put_final(line, event);
        break;
    }
    util::print_line(line);
  }
}

void save(const four_fits& fits, chis_saved& chis_save, gains_saved& gain_save,
          coeffs_saved& coeff_save, covar_saved& covar_save) {
  // The tables outlive the BPM: a row that this one does not fill must not show the one before.
  gain_save.fill(0);
  for (int f = 1; f <= 4; ++f) {
    const one_fit& fit = fits.fit.at(static_cast<std::size_t>(f - 1));
    // One chi-square a BPM, that of the last fit, four times.
    chis_save(f) = fits.fit.back().chisq;
    for (int i = 1; i <= 4; ++i) {
      gain_save(f, i) = fit.gain(i);
      coeff_save(f, i) = fit.coefficients(i);
    }
    // The held parameter's row and column are 0 already: the solver has spread them over all eight.
    for (int i = 1; i <= max_parameters; ++i)
      for (int j = 1; j <= max_parameters; ++j) covar_save(f, i, j) = fit.covariance(i, j);
  }
}

void leave_in_context(const four_fits& fits) {
  // For procedures that look at the context after a fit, as they would after the last of four.
  nterms = norbits;
  nvar = max_parameters;
  ind = 4;
  gain = fits.fit.back().gain;
  coefficients = fits.fit.back().coefficients;
  // The amplitude alone goes on from BPM to BPM: the next BPM's raw data show it.
  const_ = coefficients(1);
}

void fit_gains(chis_saved& chis_save, gains_saved& gain_save, coeffs_saved& coeff_save,
               covar_saved& covar_save) {
  // Told before saved: whatever ends the run while saving, the way to it is on the screen.
  const four_fits fits = fit_readings(current_readings());
  tell(fits.events);
  save(fits, chis_save, gain_save, coeff_save, covar_save);
  leave_in_context(fits);
}

}  // namespace gain_fit_mod
