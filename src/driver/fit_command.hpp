// butngain fit: the gains of any ring's BPMs from columns of four signals and a chamber.
#pragma once

namespace driver {

/// Reads the columns, fits every BPM, and writes the files of a run; nothing is asked. The verdicts
/// are printed, a line for each BPM; a summary and what could not be used are told on standard
/// error. Nothing is written before all of the input is read and found good.
/// given    arguments  the subcommand's name first
/// returns  exit status: 0 all files are written, whatever the verdicts; 1 data that cannot be
///          used or a file that could not be written; 2 a wrong option or chamber
int fit_command(int count, const char* const* arguments);

}  // namespace driver
