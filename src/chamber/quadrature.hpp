// quadrature: Gauss-Legendre nodes and weights, and interpolation from some places to others.
#pragma once
#include <vector>

#include "solved_wall.hpp"

namespace chamber_solver {

/// The rule of n nodes.
gauss_rule make_gauss_rule(int n);

/// Matrix, rows first, that turns values at `from` into values of their polynomial at `to`.
std::vector<double> interpolation_matrix(const std::vector<double>& from,
                                         const std::vector<double>& to);

}  // namespace chamber_solver
