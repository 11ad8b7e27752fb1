// common: what all headers of this library share.
//
// Buttons are numbered 0..3 here and stand at (-x,-y), (+x,-y), (-x,+y), (+x,+y): bottom inside,
// bottom outside, top inside, top outside. x points outward, y up. Lengths are metres.
//
// A button gain t is what a button makes of the signal (reading = t x signal, the product of the
// four t is 1); a multiplier g = 1/t is what corrects a reading.
#pragma once
#include <array>
#include <cstddef>
#include <functional>

namespace butngain {

/// One number for each button; as `signals` the four readings of one orbit [any unit].
using four = std::array<double, 4>;
using signals = four;

/// Called now and then in long work, on the caller's thread, with how much is done. false stops the
/// work, which then throws error_kind::stopped; an exception of its own passes through.
using progress = std::function<bool(std::size_t done, std::size_t of)>;

}  // namespace butngain
