// The kernels for x86-64 processors with AVX2: four orbits at a time. Only this file is compiled
// for them; nothing in it may run before the processor was asked.
#include "gain_batch_kernel.hpp"

namespace gain_fit_mod {

const batch_kernels avx2_kernels{.name = "avx2",
                                 .chi_square = gain_kernels<4>::chi_square,
                                 .products = gain_kernels<4>::products};

}  // namespace gain_fit_mod
