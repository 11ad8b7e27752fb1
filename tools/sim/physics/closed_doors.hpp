// closed_doors: what the physics must not take, included before every source of it.
//
// A pure library can be called from anywhere; one that reads a command line cannot. The parser
// library stands on the system's include path, so leaving it out of the target's links closes
// nothing: its namespace is poisoned instead, and the first line of it that is compiled is an
// error.
#pragma once
#pragma GCC poison CLI
