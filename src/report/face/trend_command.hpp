// trend_command: the gains of many runs in time order, the subcommand `trend`. Steps, drifts and
// wild runs of every BPM as text, tables, pictures and a page; made in trend/.
#pragma once

namespace report {

/// butngain trend DIR...
/// given    arguments  the subcommand's name first
/// returns  exit status: 0 nothing changed, 1 a step or a drift was found, 2 a fault, told in one
///          line
int trend_command(int count, const char* const* arguments);

}  // namespace report
