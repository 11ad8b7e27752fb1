#include "orbit_kernels.hpp"

#include "orbit_loops.hpp"

// One source for all sets: what is inlined into a function may use what the function may. Nothing is
// compiled for a set but these functions, and they run only where the processor has it.
namespace calibration {
namespace {

// Two lanes: what every x86-64 and 64-bit ARM processor has.
[[gnu::flatten]] void fill_generic(orbit_block& block, place_columns& at,
                                   const model_setting& setting, const common_unknowns& unknowns,
                                   block_rows& rows) {
  fill_loops(block, at, setting, unknowns, rows);
}
[[gnu::flatten]] void follow_generic(orbit_block& block, const place_columns& at,
                                     const model_setting& setting, const common_unknowns& unknowns,
                                     const common_step& step) {
  follow_loops(block, at, setting, unknowns, step);
}
[[gnu::flatten]] void add_u_generic(const block_rows& rows, u_sums& sums) {
  add_triangle<2>(rows.u, sums);
}
[[gnu::flatten]] void add_v_generic(const block_rows& rows, v_sums& sums) {
  add_triangle<2>(rows.v, sums);
}
[[gnu::flatten]] void add_pairs_generic(std::span<const column> a, std::span<const column> b,
                                        double* sums) {
  add_rectangle<2>(a, b, sums);
}
constexpr orbit_kernels generic{"generic",     fill_generic,  follow_generic,
                                add_u_generic, add_v_generic, add_pairs_generic};

#ifdef __x86_64__
[[gnu::target("avx2"), gnu::flatten]] void fill_avx2(orbit_block& block, place_columns& at,
                                                     const model_setting& setting,
                                                     const common_unknowns& unknowns,
                                                     block_rows& rows) {
  fill_loops(block, at, setting, unknowns, rows);
}
[[gnu::target("avx2"), gnu::flatten]] void follow_avx2(orbit_block& block, const place_columns& at,
                                                       const model_setting& setting,
                                                       const common_unknowns& unknowns,
                                                       const common_step& step) {
  follow_loops(block, at, setting, unknowns, step);
}
[[gnu::target("avx2"), gnu::flatten]] void add_u_avx2(const block_rows& rows, u_sums& sums) {
  add_triangle<4>(rows.u, sums);
}
[[gnu::target("avx2"), gnu::flatten]] void add_v_avx2(const block_rows& rows, v_sums& sums) {
  add_triangle<4>(rows.v, sums);
}
[[gnu::target("avx2"), gnu::flatten]] void add_pairs_avx2(std::span<const column> a,
                                                          std::span<const column> b, double* sums) {
  add_rectangle<4>(a, b, sums);
}
constexpr orbit_kernels avx2{"avx2",     fill_avx2,  follow_avx2,
                             add_u_avx2, add_v_avx2, add_pairs_avx2};
[[gnu::target("avx512f,avx512dq,avx512vl"), gnu::flatten]] void fill_avx512(
    orbit_block& block, place_columns& at, const model_setting& setting,
    const common_unknowns& unknowns, block_rows& rows) {
  fill_loops(block, at, setting, unknowns, rows);
}
[[gnu::target("avx512f,avx512dq,avx512vl"), gnu::flatten]] void follow_avx512(
    orbit_block& block, const place_columns& at, const model_setting& setting,
    const common_unknowns& unknowns, const common_step& step) {
  follow_loops(block, at, setting, unknowns, step);
}
[[gnu::target("avx512f,avx512dq,avx512vl"), gnu::flatten]] void add_u_avx512(const block_rows& rows,
                                                                             u_sums& sums) {
  add_triangle<8>(rows.u, sums);
}
[[gnu::target("avx512f,avx512dq,avx512vl"), gnu::flatten]] void add_v_avx512(const block_rows& rows,
                                                                             v_sums& sums) {
  add_triangle<8>(rows.v, sums);
}
[[gnu::target("avx512f,avx512dq,avx512vl"), gnu::flatten]] void add_pairs_avx512(
    std::span<const column> a, std::span<const column> b, double* sums) {
  add_rectangle<8>(a, b, sums);
}
constexpr orbit_kernels avx512{"avx512",     fill_avx512,  follow_avx512,
                               add_u_avx512, add_v_avx512, add_pairs_avx512};
#endif

std::vector<const orbit_kernels*> usable_kernels() {
  std::vector<const orbit_kernels*> usable{&generic};
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2") != 0) usable.push_back(&avx2);
  if (__builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512dq") != 0 &&
      __builtin_cpu_supports("avx512vl") != 0) {
    usable.push_back(&avx512);
  }
#endif
  return usable;
}

}  // namespace

const orbit_kernels& kernels_named(std::string_view name) {
  // Asked of the processor once, not once a fit.
  static const std::vector<const orbit_kernels*> usable = usable_kernels();
  for (const orbit_kernels* k : usable) {
    if (k->name == name) return *k;
  }
  // An unknown name, the empty one included, means the fastest.
  return *usable.back();
}

std::vector<std::string_view> instruction_sets() {
  std::vector<std::string_view> names;
  for (const orbit_kernels* k : usable_kernels()) names.emplace_back(k->name);
  return names;
}

}  // namespace calibration
