// Nominal gains from a template file; asked for by experts only.
#pragma once
#include "bounded.hpp"
#include "gain_template.hpp"

namespace expert {

using template_gains =
    util::bounded2<double, 0, 5000, 1, 4, "fit_gain">;  ///< by BPM and button [-]

/// Asks whether to read fitted gains, and on "Y" reads them from a template.
///
/// given    fit_gain_file, old_comments_list  as the template reader takes them
/// returns  fit_gain  of BPMs 0..120, from the first gain range of timing block 0. Gains of a BPM
///                    one of which differs from 1 by more than 0.3 are all set to 1: such a
///                    template is not believed. Unchanged after any other answer
/// errors   those of the template reader; end of input ends the run
void ask_fitted_gains(gain_template::file_name& fit_gain_file,
                      gain_template::comment_list& old_comments_list, template_gains& fit_gain);

}  // namespace expert
