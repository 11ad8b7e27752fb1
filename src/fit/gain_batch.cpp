#include "gain_batch.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>

#include "gain_batch_kernel.hpp"
#include "gain_fit_mod.hpp"

namespace gain_fit_mod {
namespace {

// The signals of one BPM, copied by load_batch, button after button.
// Each column begins with a cache line and ends with one: no load reaches over a line's end.
constexpr std::size_t line = 8;  // numbers
std::vector<double> copied;
signal_columns columns{};

std::vector<const batch_kernels*> usable_kernels() {
  std::vector<const batch_kernels*> usable{&generic_kernels};
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) usable.push_back(&avx2_kernels);
#endif
  return usable;
}

const batch_kernels* kernels = usable_kernels().back();

double chi_square(std::span<const double> a) { return kernels->chi_square(a.data(), columns); }

void curvature(std::span<const double> a, std::span<const bool> maska, mrqmin_mod::matrix& alpha,
               std::span<double> beta) {
  free_list free{};
  for (int i = 0; i < max_parameters; ++i)
    if (maska[static_cast<std::size_t>(i)]) free.parameter[free.n++] = i;
  product_sums sums;
  kernels->products(a.data(), columns, free, sums);
  for (int j = 0; j < free.n; ++j) {
    for (int k = 0; k < free.n; ++k) alpha(j + 1, k + 1) = sums.of[std::max(j, k)][std::min(j, k)];
    beta[static_cast<std::size_t>(j)] = sums.of[residual_column][j];
  }
}

}  // namespace

const mrqmin_mod::residual_sums batch_sums{.chi_square = chi_square, .curvature = curvature};

void load_batch() {
  const auto readings = orbit_data.column(bpm, norbits);
  const auto n = static_cast<std::size_t>(norbits);
  const std::size_t length = (n + line - 1) / line * line;
  copied.assign((4 * length) + line, 0.0);
  void* start_of_line = copied.data();
  std::size_t room = copied.size() * sizeof(double);
  auto* start =
      static_cast<double*>(std::align(line * sizeof(double), sizeof(double), start_of_line, room));
  for (std::size_t i = 0; i < length && !readings.empty(); ++i) {
    const auto& button = readings[std::min(i, n - 1)].button;
    for (int b = 1; b <= 4; ++b) start[(static_cast<std::size_t>(b - 1) * length) + i] = button(b);
  }
  columns = {start, start + length, start + 2 * length, start + 3 * length, n};
}

double stepped_residual(const double* a, const signal_columns& d, std::size_t orbit) {
  using kernel = gain_kernels<1>;
  const auto at = kernel::combine(a, d, orbit);
  const auto angle = a[5] * (at.X * at.Y);
  const bool near = kernel::l::magnitude(angle)[0] < near_limit;
  const auto f = functions_of(near ? near_reduction<1>(angle) : far_reduction(angle[0]));
  return kernel::residual(a, f.sin1, f.sin2, at.Q)[0];
}

double stepped_derivative(const double* a, const signal_columns& d, std::size_t orbit,
                          int parameter) {
  std::array<double, max_parameters> work;
  std::copy_n(a, max_parameters, work.begin());
  double& stepped = work.at(static_cast<std::size_t>(parameter));
  const double here = stepped;
  stepped = here + derivative_step;
  const double y_p = stepped_residual(work.data(), d, orbit);
  stepped = here - derivative_step;
  const double y_m = stepped_residual(work.data(), d, orbit);
  return ((y_p - y_m) * 0.5) / derivative_step;
}

std::vector<std::string_view> instruction_sets() {
  std::vector<std::string_view> names;
  for (const batch_kernels* k : usable_kernels()) names.emplace_back(k->name);
  return names;
}

void use_instruction_set(std::string_view name) {
  for (const batch_kernels* k : usable_kernels())
    if (k->name == name) kernels = k;
}

}  // namespace gain_fit_mod
