#include "gain_batch.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>

namespace gain_fit_mod {
namespace {

// Each column begins with a cache line and ends with one: no load reaches over a line's end.
constexpr std::size_t line = 8;  // numbers: 64 bytes, on every processor we know

std::vector<const batch_kernels*> usable_kernels() {
  std::vector<const batch_kernels*> usable{&generic_kernels};
#ifdef __x86_64__
  // Not fused multiply-adds, which round once where the model rounds twice: all sets give the same
  // bits, so that a run does not depend on its processor.
  if (__builtin_cpu_supports("avx2")) usable.push_back(&avx2_kernels);
#endif
  return usable;
}

const batch_kernels* kernels_named(std::string_view name) {
  // Asked of the processor once, not once a fit.
  static const std::vector<const batch_kernels*> usable = usable_kernels();
  for (const batch_kernels* k : usable)
    if (k->name == name) return k;
  // An unknown name, the empty one included, means the fastest.
  return usable.back();
}

std::size_t whole_lines(std::size_t n) { return (n + line - 1) / line * line; }

// Room for columns of this length in the memory; returns where the first begins.
double* make_columns(std::vector<double>& memory, std::size_t columns, std::size_t length) {
  // One line more than the columns fill: where the memory begins is the allocator's choice.
  memory.resize((columns * length) + line);
  void* start_of_line = memory.data();
  std::size_t room = memory.size() * sizeof(double);
  return static_cast<double*>(
      std::align(line * sizeof(double), sizeof(double), start_of_line, room));
}

void make_room(const signal_batch& batch, trial_values& found) {
  constexpr std::size_t columns = 7;
  const std::size_t length = whole_lines(batch.columns.n);
  if (found.memory.size() == (columns * length) + line) return;
  double* at = make_columns(found.memory, columns, length);
  trial_columns& to = found.columns;
  for (double** column : {&to.inverse_total, &to.X, &to.Y, &to.Q, &to.s, &to.c, &to.turns}) {
    *column = at;
    at += length;
  }
  found.far.resize(length / block_size + 1);
  to.far = found.far.data();
}

}  // namespace

signal_batch make_batch(std::span<const signals> readings, std::string_view instruction_set) {
  signal_batch batch;
  batch.kernels = kernels_named(instruction_set);
  const std::size_t n = readings.size();
  const std::size_t length = whole_lines(n);
  double* const start = make_columns(batch.copied, 4, length);
  // The places behind the last orbit repeat it: the lanes that run over the end compute with
  // numbers, and nobody sums what they find.
  for (std::size_t i = 0; i < length; ++i) {
    const signals& but = readings[std::min(i, n - 1)];
    for (int b = 1; b <= 4; ++b) start[(static_cast<std::size_t>(b - 1) * length) + i] = but(b);
  }
  batch.columns = {start, start + length, start + 2 * length, start + 3 * length, n};
  return batch;
}

double chi_square(const signal_batch& batch, std::span<const double> a, trial_values& found) {
  make_room(batch, found);
  return batch.kernels->chi_square(a.data(), batch.columns, found.columns);
}

void product_sums_at(const signal_batch& batch, std::span<const double> a,
                     std::span<const bool> maska, const trial_values& found, product_sums& sums) {
  free_list free{};
  for (int i = 0; i < max_parameters; ++i)
    if (maska[static_cast<std::size_t>(i)]) free.parameter[free.n++] = i;
  batch.kernels->products(a.data(), batch.columns, found.columns, free, sums);
}

double stepped_residual(const double* a, const signal_columns& d, std::size_t orbit) {
  using kernel = gain_kernels<1>;
  const auto at = kernel::combine(a, d, orbit);
  const auto angle = a[5] * (at.X * at.Y);
  // The choice that the kernels make lane by lane: the same angle must go the same way here.
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

}  // namespace gain_fit_mod
