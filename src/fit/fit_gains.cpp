#include "fit_gains.hpp"

#include <string>

#include "fields.hpp"
#include "gain_fit_mod.hpp"
#include "kept_solver.hpp"
#include "list_io.hpp"
#include "standard_output.hpp"

namespace gain_fit_mod {
namespace {

constexpr int ind_width = 12;  // of the number in the ind line: as free-format output writes it

void put_chis_and_gains(std::string& line, const fit_event& event) {
  util::put_text(line, " chis2 = ", 9);
  util::put_exponent(line, event.chisq);
  line += " gain ";
  for (int i = 1; i <= 4; ++i) util::put_fixed(line, event.at(i));
}

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
  util::put_text(line, "final", 8);
  put_chis_and_gains(line, event);
  util::put_text(line, " const = ", 8);  // the field keeps " const ="
  util::put_fixed(line, event.at(5));
}

}  // namespace

std::vector<signals> current_readings() {
  std::vector<signals> readings(static_cast<std::size_t>(norbits));
  const auto column = orbit_data.column(bpm, norbits);
  for (std::size_t i = 0; i < column.size(); ++i) readings[i] = {column[i].button.item};
  return readings;
}

void tell(std::span<const fit_event> events) {
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
  gain_save.fill(0);
  for (int f = 1; f <= 4; ++f) {
    const one_fit& fit = fits.fit.at(static_cast<std::size_t>(f - 1));
    // One chi-square a BPM, that of the last fit, four times.
    chis_save(f) = fits.fit.back().chisq;
    for (int i = 1; i <= 4; ++i) {
      gain_save(f, i) = fit.gain(i);
      coeff_save(f, i) = fit.coefficients(i);
    }
    for (int i = 1; i <= max_parameters; ++i)
      for (int j = 1; j <= max_parameters; ++j) covar_save(f, i, j) = fit.covariance(i, j);
  }
}

void leave_in_context(const four_fits& fits) {
  nterms = norbits;
  nvar = max_parameters;
  ind = 4;
  gain = fits.fit.back().gain;
  coefficients = fits.fit.back().coefficients;
  const_ = coefficients(1);
}

void fit_gains(chis_saved& chis_save, gains_saved& gain_save, coeffs_saved& coeff_save,
               covar_saved& covar_save) {
  const four_fits fits = fit_readings(current_readings());
  tell(fits.events);
  save(fits, chis_save, gain_save, coeff_save, covar_save);
  leave_in_context(fits);
}

}  // namespace gain_fit_mod
