#include "screen_window.hpp"

#include <cairo-xcb.h>
#include <cairo.h>
#include <xcb/xcb.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace quick_plot {
namespace {

struct end_connection {
  void operator()(xcb_connection_t* x) const { xcb_disconnect(x); }
};
struct free_surface {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using surface_handle = std::unique_ptr<cairo_surface_t, free_surface>;

using connection_handle = std::unique_ptr<xcb_connection_t, end_connection>;

// Where the next window will stand. Valid from open_screen to show_on_screen.
struct screen_state {
  connection_handle connection;
  xcb_screen_t* screen = nullptr;
  xcb_visualtype_t* visual = nullptr;  // TrueColor, of the screen's own depth
};
screen_state state;

// Keeps the window up. The next one gets a connection of its own before this one ends: a server
// may restart when its last client leaves, and would then refuse us.
connection_handle shown;

// The visual of the screen's root window, which our window takes over.
xcb_visualtype_t* root_visual(xcb_screen_t* screen) {
  for (auto depth = xcb_screen_allowed_depths_iterator(screen); depth.rem > 0;
       xcb_depth_next(&depth)) {
    for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem > 0;
         xcb_visualtype_next(&visual)) {
      if (visual.data->visual_id == screen->root_visual) return visual.data;
    }
  }
  return nullptr;
}

// The picture as a pixmap of the X server; 0 when that fails.
xcb_pixmap_t upload(cairo_surface_t* picture, int width, int height) {
  xcb_connection_t* x = state.connection.get();
  const xcb_pixmap_t pixmap = xcb_generate_id(x);
  xcb_create_pixmap(x, state.screen->root_depth, pixmap, state.screen->root,
                    static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height));
  const surface_handle target{cairo_xcb_surface_create(x, pixmap, state.visual, width, height)};
  cairo_t* painter = cairo_create(target.get());
  cairo_set_source_surface(painter, picture, 0, 0);
  cairo_paint(painter);
  const bool painted = cairo_status(painter) == CAIRO_STATUS_SUCCESS;
  cairo_destroy(painter);
  // The surface must let go of the pixmap while the connection is still there.
  cairo_surface_flush(target.get());
  cairo_surface_finish(target.get());
  return painted ? pixmap : 0;
}

// Title, program name and a fixed size, for the window manager.
void describe(xcb_window_t window, const std::string& title, int width, int height) {
  xcb_connection_t* x = state.connection.get();
  constexpr std::uint8_t characters = 8;  // bits an item
  xcb_change_property(x, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING,
                      characters, static_cast<std::uint32_t>(title.size()), title.data());
  constexpr std::array name{'b', 'u', 't', 'n', 'g', 'a', 'i', 'n', '\0',
                            'B', 'u', 't', 'n', 'g', 'a', 'i', 'n', '\0'};
  xcb_change_property(x, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING,
                      characters, name.size(), name.data());
  // 18 words as the window manager's conventions lay them out: flags, four of old use, least and
  // most width and height, ... The picture is not drawn anew, so both sizes are that of the picture.
  constexpr std::uint32_t least_and_most_size = 16 + 32;
  std::array<std::uint32_t, 18> hints{least_and_most_size};
  hints[5] = hints[7] = static_cast<std::uint32_t>(width);
  hints[6] = hints[8] = static_cast<std::uint32_t>(height);
  constexpr std::uint8_t words = 32;
  xcb_change_property(x, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NORMAL_HINTS,
                      XCB_ATOM_WM_SIZE_HINTS, words, hints.size(), hints.data());
}

}  // namespace

std::string open_screen() {
  int number = 0;
  state.connection.reset(xcb_connect(nullptr, &number));
  if (xcb_connection_has_error(state.connection.get()) != 0) {
    state = {};
    return "the display cannot be opened";
  }
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(state.connection.get()));
  for (; number > 0 && screens.rem > 1; --number) xcb_screen_next(&screens);
  state.screen = screens.data;
  // Colours are written as they are, red, green and blue: a palette of the display's would need
  // allocating them first.
  state.visual = root_visual(state.screen);
  if (state.visual == nullptr || state.visual->_class != XCB_VISUAL_CLASS_TRUE_COLOR) {
    state = {};
    return "the display has no true colours";
  }
  return {};
}

std::string show_on_screen(const std::string& drawn, const std::string& title) {
  const surface_handle picture{cairo_image_surface_create_from_png(drawn.c_str())};
  if (const auto status = cairo_surface_status(picture.get()); status != CAIRO_STATUS_SUCCESS) {
    state = {};
    return std::string{"the drawn page is incomplete: "} + cairo_status_to_string(status);
  }
  const int width = cairo_image_surface_get_width(picture.get());
  const int height = cairo_image_surface_get_height(picture.get());
  xcb_connection_t* x = state.connection.get();
  const xcb_pixmap_t pixmap = upload(picture.get(), width, height);
  if (pixmap == 0) {
    state = {};
    return "the display cannot take the picture";
  }

  // The picture is the window's background: the server repaints it whenever it is uncovered, while
  // this program waits for an answer and serves no window.
  const xcb_window_t window = xcb_generate_id(x);
  xcb_create_window(x, XCB_COPY_FROM_PARENT, window, state.screen->root, 0, 0,
                    static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, state.screen->root_visual, XCB_CW_BACK_PIXMAP,
                    &pixmap);
  describe(window, title, width, height);
  xcb_map_window(x, window);
  xcb_free_pixmap(x, pixmap);  // the window keeps it
  // One round trip: the picture is with the server before the question is asked.
  std::free(xcb_get_input_focus_reply(x, xcb_get_input_focus(x), nullptr));
  if (xcb_connection_has_error(x) != 0) {
    state = {};
    return "the display went away";
  }
  shown = std::move(state.connection);
  return {};
}

void close_screen() {
  state = {};
  shown.reset();
}

}  // namespace quick_plot
