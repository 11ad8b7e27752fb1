#include <array>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "bpm_data_files.hpp"
#include "combinations.hpp"
#include "fields.hpp"
#include "file_units.hpp"

namespace output {
namespace {

// --- pieces of header lines: each begins with "#", so that plotting programs pass over it --------

std::string four_fixed(std::string_view text, const gain_fit_mod::gains& values) {
  std::string line = "#";
  line += text;
  for (const double v : values.item) util::put_fixed(line, v);
  return line;
}

// A name has eleven columns, whatever its length, so that the numbers stand below one another.
std::string one_exponent(std::string_view text, double value) {
  std::string line = "#";
  util::put_text(line, text, 11);
  util::put_exponent(line, value);
  return line;
}

std::string captions(std::initializer_list<std::string_view> texts) {
  std::string line = "#";
  // The "#" takes the first column of the first field.
  int width = util::real_width - 1;
  for (const std::string_view text : texts) {
    util::put_text(line, text, width);
    width = util::real_width;
  }
  return line;
}

// Gains as the buttons have them, relative to button 1: what multiplies a signal is the inverse of
// what the button made of it, and only ratios are known. Truth unknown (0) stays 0.
gain_fit_mod::gains button_gains(const gain_fit_mod::gains& multiplier) {
  gain_fit_mod::gains relative;
  for (int k = 1; k <= 4; ++k) relative(k) = multiplier(1) / multiplier(k);
  return relative;
}

// True gains are button gains already: only the common factor, which no fit finds, is taken out.
gain_fit_mod::gains relative_truth(const gain_fit_mod::gains& true_gain) {
  gain_fit_mod::gains relative;
  const double first = true_gain(1);
  for (int k = 1; k <= 4; ++k) relative(k) = first == 0 ? 0 : true_gain(k) / first;
  return relative;
}

// --- parts of the file --------------------------------------------------------------------------

void put_settings(util::text_block& out, const gain_fit_mod::bpm_result& result) {
  const gain_fit_mod::combined_fits& mean = result.combined;
  const gain_fit_mod::gains& true_gain = result.data.true_gain;
  util::add_line(out, "#&button_sums");
  std::string line = "# BPM = ";
  util::put_integer(line, result.data.bpm, 5);
  util::add_line(out, line);
  util::add_line(out, four_fixed(" gain = ", mean.gain));
  util::add_line(out, four_fixed(" true_gain = ", true_gain));
  util::add_line(out, four_fixed(" coef = ", {mean.coefficients.item}));
  // The amplitude is that of the last fit, not the mean above it: kept for compatibility.
  util::add_line(out, one_exponent(" const = ", result.fits.fit.back().coefficients(1)));
  // Nothing here measures an offset: the lines are kept for compatibility.
  for (const char* offset : {" delta_h = ", " delta_v = "}) {
    std::string offset_line{"#"};
    util::put_text(offset_line, offset, 11);
    util::put_fixed(offset_line, 0);
    util::add_line(out, offset_line);
  }
  const auto orbits = static_cast<int>(result.data.orbits.size());
  util::add_line(
      out, one_exponent(" chis_deg = ", mean.chisq / (orbits - gain_fit_mod::free_parameters)));
  util::add_line(out, four_fixed("array gains[4] = ", button_gains(mean.gain)));
  util::add_line(out, four_fixed("array true_gains[4] = ", relative_truth(true_gain)));
  const auto& [h_min, h_max, v_min, v_max] = result.motion.extremes;
  util::add_line(out, four_fixed(" h_min, h_max, v_min, v_max = ", {{h_min, h_max, v_min, v_max}}));
  util::add_line(out, "#exit");
}

void put_fits(util::text_block& out, const gain_fit_mod::four_fits& fits) {
  int ind = 0;
  for (const gain_fit_mod::one_fit& fit : fits.fit) {
    std::string line = "#";
    util::put_text(line, "ind= ", 7);
    util::put_integer(line, ++ind, 5);
    line += " chisq=";
    util::put_exponent(line, chisq_shown(fits));
    line += " gain = ";
    for (const double g : fit.gain.item) util::put_fixed(line, g);
    line += " coef = ";
    for (const double c : fit.coefficients.item) util::put_fixed(line, c);
    util::add_line(out, line);

    // Rows and columns of the gain that was held are zeros: all four matrices have one shape.
    util::add_line(out, "# covariance matrix of gains 1..4, Am, k, h2, h3");
    for (int i = 1; i <= gain_fit_mod::max_parameters; ++i) {
      std::string row{"#"};
      for (int j = 1; j <= gain_fit_mod::max_parameters; ++j)
        util::put_exponent(row, fit.covariance(i, j));
      util::add_line(out, row);
    }
  }
}

// One orbit under the fitted gains.
struct fitted_orbit {
  combinations at;
  double curve = 0;     // of the model, at u = X Y
  double residual = 0;  // curve minus Q
};

std::vector<fitted_orbit> fitted_orbits(const gain_fit_mod::bpm_result& result) {
  const gain_fit_mod::gains& gain = result.combined.gain;
  const auto param = gain_fit_mod::parameters_of(gain, result.combined.coefficients);
  std::vector<fitted_orbit> orbits;
  orbits.reserve(result.data.orbits.size());
  for (const store::bpm_struct& reading : result.data.orbits) {
    const gain_fit_mod::signals but{reading.button.item};
    fitted_orbit orbit{.at = combine(but, gain), .residual = gain_fit_mod::chi1(param, but)};
    // From the residual, so that the model is written down in one place.
    orbit.curve = orbit.residual + orbit.at.Q;
    orbits.push_back(orbit);
  }
  return orbits;
}

// What tells at once whether the fit is good: the verdict, the size of what is left over, and the
// two pictures worth drawing.
void put_reading_aids(util::text_block& out, std::string_view name, const std::string& verdict,
                      const std::vector<fitted_orbit>& orbits) {
  double sum_Q = 0;
  double sum_residual = 0;
  for (const fitted_orbit& orbit : orbits) {
    sum_Q += orbit.at.Q * orbit.at.Q;
    sum_residual += orbit.residual * orbit.residual;
  }
  const auto n = static_cast<double>(orbits.size());
  util::add_line(out, std::string{"# "}.append(verdict));
  std::string line = "# rms of chis_1 =";
  util::put_exponent(line, std::sqrt(sum_residual / n));
  line += " beside rms of Bpmmp.G =";
  util::put_exponent(line, std::sqrt(sum_Q / n));
  util::add_line(out, line);

  // To be copied as they stand. Points beside the curve and a shape in the residual are bad signs.
  for (const char* curves : {"' using 8:3 title 'readings', '' using 8:9 smooth unique title 'fit'",
                             "' using 8:10 title 'residual: noise without a shape is good'"}) {
    std::string aid{"# gnuplot: set datafile fortran; plot '"};
    util::add_line(out, aid.append(util::trim_right(name)).append(".dat_fit").append(curves));
  }
}

// The current is one for all rows, that of the last orbit: kept for compatibility.
void put_table(util::text_block& out, const gain_fit_mod::bpm_data& bpm,
               const std::vector<fitted_orbit>& orbits, const raw_data_text* raw) {
  util::add_line(out, captions({"", "", "", "", "", "Bpmpm.G X", "", "Bpmpm.G X", "model", ""}));
  util::add_line(out, captions({"x", "y", "Bpmmp.G", "Bpmpm.G", "Bppmm.G", "Bppmm.G/I", "I",
                                "Bppmm.G", "Bpmmp.G", "chis_1"}));
  constexpr std::size_t columns = 10;
  constexpr std::size_t position_width = std::size_t{2} * util::real_width;
  const double current = bpm.current.empty() ? 0 : bpm.current.back();
  std::array<char, util::real_width> current_text{};
  util::write_exponent(current_text.data(), current);
  char* at = util::room(out, orbits.size() * (columns * util::real_width + 1));
  for (std::size_t i = 0; i < orbits.size(); ++i) {
    const auto& [sums, curve, residual] = orbits[i];
    // What the model takes for its argument, so it is what the table is drawn against.
    const double u = sums.X * sums.Y;
    if (raw != nullptr) {
      // The positions are those of the raw data, where their texts are made already.
      std::memcpy(at, raw->text.memory.get() + raw->orbits_at + i * raw_data_line, position_width);
      at += position_width;
    } else {
      at = util::write_exponent(util::write_exponent(at, bpm.orbits[i].x), bpm.orbits[i].y);
    }
    for (const double value : {sums.Q, sums.X, sums.Y}) at = util::write_exponent(at, value);
    char* const per_current = at;
    at = util::write_exponent(at, u / current);
    std::memcpy(at, current_text.data(), current_text.size());
    at += current_text.size();
    if (u / current == u) {  // at a current of 1, which most data have
      std::memcpy(at, per_current, util::real_width);
      at += util::real_width;
    } else {
      at = util::write_exponent(at, u);
    }
    for (const double value : {curve, residual}) at = util::write_exponent(at, value);
    *at++ = '\n';
  }
  util::end_at(out, at);
}

}  // namespace

util::text_block fitted_data_text(const run_record& run, const gain_fit_mod::bpm_result& result,
                                  const raw_data_text* raw) {
  const gain_fit_mod::bpm_data& bpm = result.data;
  util::text_block out;
  for (const std::string& line : file_list_lines(run)) {
    util::add_line(out, std::string{"#"}.append(line));
  }
  put_settings(out, result);
  put_fits(out, result.fits);
  const auto orbits = fitted_orbits(result);
  put_reading_aids(out, bpm.name, result.quality.reason, orbits);
  put_table(out, bpm, orbits, raw);
  return out;
}

void write_bpm_fitted_data(const run_record& run, const gain_fit_mod::bpm_result& result) {
  write_bpm_file(run, result.data.name, ".dat_fit", fitted_data_text(run, result));
}

}  // namespace output
