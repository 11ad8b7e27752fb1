// quadrature: Gauss-Legendre nodes and weights, and interpolation from some places to others.
#pragma once
#include <cstddef>
#include <vector>

namespace chamber_solver {

/// Nodes in -1..1, ascending, and their weights; exact for polynomials of degree 2 n - 1.
struct gauss_rule {
  std::vector<double> node;
  std::vector<double> weight;
};
gauss_rule make_gauss_rule(int n);

/// Matrix, rows first, that turns values at `from` into values of their polynomial at `to`.
std::vector<double> interpolation_matrix(const std::vector<double>& from,
                                         const std::vector<double>& to);

}  // namespace chamber_solver
