#include "fit_gains.hpp"

#include <cstring>
#include <string>
#include <string_view>

#include "fields.hpp"
#include "gain_fit_mod.hpp"
#include "kept_solver.hpp"
#include "standard_output.hpp"

namespace gain_fit_mod {
namespace {

// Kept for compatibility: the lines are fixed fields, and every width and blank is part of them.
constexpr int ind_width = 12;  // of the number in the ind line: as free-format output writes it

char* put(char* at, std::string_view text) {
  std::memcpy(at, text.data(), text.size());
  return at + text.size();
}

char* put_chis_and_gains(char* at, const fit_event& event) {
  at = util::write_exponent(put(at, " chis2 = "), event.chisq);
  at = put(at, " gain ");
  for (int i = 1; i <= 4; ++i) at = util::write_fixed(at, event.at(i));
  return at;
}

// Two lines for one event: the number of the held gain stands alone.
char* put_start(char* at, const fit_event& event) {
  std::string line = " ind = ";
  util::put_integer(line, event.held, ind_width);
  at = put(at, line += '\n');
  return put_chis_and_gains(at, event);
}

char* put_progress(char* at, const fit_event& event) {
  at = put(put_chis_and_gains(at, event), " coef = ");
  for (int i = 5; i <= max_parameters; ++i) at = util::write_fixed(at, event.at(i));
  // Cut to 8 columns, the field keeps this much: columns stay put.
  return util::write_exponent(put(at, " alambda"), event.alamda);
}

char* put_final(char* at, const fit_event& event) {
  // Only the amplitude of the curve: it is the one coefficient that is kept for the next BPM.
  at = put_chis_and_gains(put(at, "   final"), event);
  return util::write_fixed(put(at, " const ="), event.at(5));
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

fits_told text_of(std::span<const fit_event> events) {
  // The fit itself prints nothing, so that BPMs can be fitted side by side and told in order.
  using kind = fit_event::kind;
  constexpr std::size_t longest = 200;  // of the lines of one event; they have 151 columns at most
  fits_told told;
  char* at = util::room(told.lines, events.size() * longest);
  for (const fit_event& event : events) {
    switch (event.what) {
      case kind::start:
        at = put_start(at, event);
        break;
      case kind::step:
        at = put_progress(at, event);
        break;
      case kind::sweep_end:
        at = put(at, "  ");
        break;
      case kind::zero_pivot:
        at = put(at, mrqmin_mod::singular_line);
        ++told.singular;
        break;
      case kind::final:
        at = put_final(at, event);
        break;
    }
    *at++ = '\n';
  }
  util::end_at(told.lines, at);
  return told;
}

void tell(const fits_told& told) {
  util::print_text(util::view(told.lines));
  for (int i = 0; i < told.singular; ++i) mrqmin_mod::log_singular();
}

void tell(std::span<const fit_event> events) { tell(text_of(events)); }

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
