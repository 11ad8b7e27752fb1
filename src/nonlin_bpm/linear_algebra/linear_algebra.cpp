#include "linear_algebra.hpp"

#include <vector>

#include "run_time.hpp"

// The library's own names and calling convention: everything by address, columns first.
extern "C" {
// NOLINTBEGIN(readability-identifier-naming)
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void dgetri_(const int* n, double* a, const int* lda, const int* ipiv, double* work,
             const int* lwork, int* info);
void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv, double* b,
            const int* ldb, int* info);
// NOLINTEND(readability-identifier-naming)
}

namespace linear_algebra {
namespace {

// The library trusts its caller: a matrix too small would be written beyond its end.
void check_size(std::size_t given, int rows, int columns) {
  if (rows < 1 || columns < 1 ||
      given != static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns)) {
    util::run_time_error("a matrix does not have the size it is used with");
  }
}

}  // namespace

bool invert_matrix(std::span<double> a, int n) {
  check_size(a.size(), n, n);
  std::vector<int> pivots(static_cast<std::size_t>(n));
  std::vector<double> work(static_cast<std::size_t>(n));
  int info = 0;
  dgetrf_(&n, &n, a.data(), &n, pivots.data(), &info);
  if (info != 0) return false;
  dgetri_(&n, a.data(), &n, pivots.data(), work.data(), &n, &info);
  return info == 0;
}

bool solve_linear(std::span<double> a, std::span<double> b, int n, int n_sides) {
  check_size(a.size(), n, n);
  check_size(b.size(), n, n_sides);
  std::vector<int> pivots(static_cast<std::size_t>(n));
  int info = 0;
  dgesv_(&n, &n_sides, a.data(), &n, pivots.data(), b.data(), &n, &info);
  return info == 0;
}

}  // namespace linear_algebra
