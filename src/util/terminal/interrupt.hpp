// Ctrl-C during a long computation: nothing that was fitted is lost. So it is when the process is
// asked to end (SIGTERM), and when its terminal goes (SIGHUP).
//
// At a prompt they keep their default actions. While the fits run, watch_interrupts() turns the
// first one into a flag, which the loops test between two orbits or BPMs; they then leave through
// leave_interrupted(). A second one before that kills the program at once, as ever.
//
//     util::watch_interrupts();
//     for (int index = 0; index <= bpm_count; ++index) {
//       if (util::interrupted()) util::leave_interrupted();
//       ...
//     }
//     util::restore_interrupts();
#pragma once

namespace util {

/// From now on SIGINT, SIGTERM and SIGHUP set the flag. One that is ignored (SIGINT of a job in the
/// background, SIGHUP under nohup) stays ignored.
void watch_interrupts();

/// Puts the actions back that watch_interrupts found. An interrupt that came before is kept: an
/// interrupted() afterwards still tells it.
void restore_interrupts();

/// Whether one of them came since watch_interrupts. Costs one load.
bool interrupted();

/// Closes every unit, says "butngain: interrupted; what was fitted so far is written" on standard
/// error ("terminated", "hung up"), and dies of the signal itself, so that a shell sees 130 and its
/// loops stop too.
[[noreturn]] void leave_interrupted();

}  // namespace util
