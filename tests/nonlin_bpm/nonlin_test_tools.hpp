// What the tests of the position conversion share: a scratch facility tree, table texts, captured
// output, and the ending of a run turned into an exception.
#pragma once
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include "nonlin_bpm_mod.hpp"
#include "run_time.hpp"
#include "scratch_fixture.hpp"

namespace nonlin_test {

struct ended {
  int status;
};

/// What a piece of work printed on standard output, and the status it ended the run with, -1 when
/// it did not.
struct outcome {
  std::string text;
  int status = -1;
};

inline outcome run(const std::function<void()>& work) {
  util::end_process = [](int status) { throw ended{status}; };
  outcome o;
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  try {
    work();
  } catch (const ended& e) {
    o.status = e.status;
  }
  o.text = testing::internal::GetCapturedStdout();
  const std::string errors = testing::internal::GetCapturedStderr();
  if (o.status == 1) o.text += errors;  // run-time errors speak on standard error
  util::end_process = nullptr;
  return o;
}

/// A facility tree, as far as the conversion reads it.
class facility : public scratch::fixture {
 protected:
  facility() {
    std::filesystem::create_directories(path("nonlin_bpm"));
    nonlin_bpm_mod::reset();
  }
  ~facility() override { nonlin_bpm_mod::reset(); }
  std::string path(const std::string& name) const { return place / orbit_folder + name; }
  std::string write(const std::string& name, const std::string& text) const {
    return place.file(orbit_folder + name, text);
  }

 private:
  const std::string orbit_folder = "machine_data/meas/orbit/";
};

/// A small harmonic chamber field that can be worked out by hand: button k at the corner (p, q) of
/// signs has phi = 1/4 + 8 p x + 6 q y + 300 p q x y [m].
inline std::array<double, 3> field(int k, double x, double y) {
  const double p = k % 2 == 0 ? 1 : -1;
  const double q = k > 2 ? 1 : -1;
  return {0.25 + 8 * p * x + 6 * q * y + 300 * p * q * x * y, 8 * p + 300 * p * q * y,
          6 * q + 300 * p * q * x};
}

/// A table file of that field: 9 by 7 nodes over +-8 by +-6 mm; values times `scale`, lengths in
/// units of `unit` metres; one corner is outside.
inline std::string table_text(const std::string& name, double scale = 1, double unit = 1) {
  std::string text = fmt::format(
      "nonlin_bpm_table 1\nname {}\norigin computed\nunits {}\nx_grid 9 {} {}\ny_grid 7 {} {}\n"
      "columns phi dphi_dx dphi_dy\ndata\n",
      name, unit == 1 ? "m" : "mm", -0.008 / unit, 0.008 / unit, -0.006 / unit, 0.006 / unit);
  for (int iy = 1; iy <= 7; ++iy) {
    for (int ix = 1; ix <= 9; ++ix) {
      text += fmt::format("{} {}", ix, iy);
      if (ix == 9 && iy == 7) {
        text += " out\n";
        continue;
      }
      for (int k = 1; k <= 4; ++k) {
        const auto [phi, dx, dy] = field(k, (ix - 5) * 0.002, (iy - 4) * 0.002);
        text += fmt::format(" {:.15g} {:.15g} {:.15g}", scale * phi, scale * dx * unit,
                            scale * dy * unit);
      }
      text += "\n";
    }
  }
  return text + "end\n";
}

}  // namespace nonlin_test
