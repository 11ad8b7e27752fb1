#include <gsl/gsl_blas.h>
#include <gsl/gsl_errno.h>
#include <gsl/gsl_multifit_nlinear.h>

#include "fit_peers.hpp"

namespace {

int residuals(const gsl_vector* p, void* task, gsl_vector* f) {
  peers::evaluate(*static_cast<peers::fit_task*>(task), p->data, f->data, nullptr, 0, 0);
  return GSL_SUCCESS;
}

int jacobian(const gsl_vector* p, void* task, gsl_matrix* j) {
  peers::evaluate(*static_cast<peers::fit_task*>(task), p->data, nullptr, j->data, j->tda, 1);
  return GSL_SUCCESS;
}

double run() {
  gsl_set_error_handler_off();
  return peers::four_fits([](const peers::fit_task& of) {
    peers::fit_task task = of;  // GSL hands it back without const
    const auto start = peers::start_values();
    const gsl_vector_const_view p = gsl_vector_const_view_array(start.data(), start.size());
    gsl_multifit_nlinear_fdf model{};
    model.f = residuals;
    model.df = jacobian;
    model.n = task.orbit.size();
    model.p = start.size();
    model.params = &task;
    gsl_multifit_nlinear_parameters options = gsl_multifit_nlinear_default_parameters();
    options.solver = gsl_multifit_nlinear_solver_cholesky;
    auto* w = gsl_multifit_nlinear_alloc(gsl_multifit_nlinear_trust, &options, model.n, model.p);
    gsl_multifit_nlinear_init(&p.vector, &model, w);
    int info = 0;
    gsl_multifit_nlinear_driver(peers::max_steps, peers::tolerance, peers::tolerance,
                                peers::tolerance, nullptr, nullptr, &info, w);
    double chisq = 0;
    gsl_blas_ddot(gsl_multifit_nlinear_residual(w), gsl_multifit_nlinear_residual(w), &chisq);
    gsl_multifit_nlinear_free(w);
    return chisq;
  });
}

const bool entered = peers::enter("GSL, Cholesky", run);

}  // namespace
