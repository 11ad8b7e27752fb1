// linear_algebra: the only door to LAPACK.
#pragma once
#include <span>

namespace linear_algebra {

/// Inverts an n by n matrix in place (LU factorisation, dgetrf and dgetri).
/// given    a  n * n elements, rows or columns first: the inverse comes in the same order
/// returns  false when the matrix is singular; a is then destroyed
bool invert_matrix(std::span<double> a, int n);

/// Solves a x = b for several right-hand sides (dgesv).
/// given    a  n * n elements, columns first; destroyed
///          b  n * n_sides elements, columns first; holds the solutions afterwards
/// returns  false when the matrix is singular
bool solve_linear(std::span<double> a, std::span<double> b, int n, int n_sides);

}  // namespace linear_algebra
