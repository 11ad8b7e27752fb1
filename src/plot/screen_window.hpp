// The window on the screen: a finished picture that stays up while the program waits for an answer.
//
// The picture is the window's background, so the X server repaints it by itself when it is covered
// and uncovered: no event loop, no thread. The close button and a dying server only end our
// connection; the dialog goes on.
#pragma once
#include <string>

namespace quick_plot {

/// Connects to the display named by $DISPLAY. Returns why it cannot, empty when it can.
std::string open_screen();

/// Shows a PNG file in a window of its size; a window shown before goes. Returns why it cannot.
/// note     open_screen comes first
std::string show_on_screen(const std::string& drawn, const std::string& title);

/// Takes the window away; does nothing when there is none.
void close_screen();

}  // namespace quick_plot
