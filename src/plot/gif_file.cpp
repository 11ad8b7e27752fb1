#include <cairo.h>
#include <gif_lib.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "page_file.hpp"
#include "whole_file.hpp"

namespace quick_plot {
namespace {

constexpr int most_colours = 256;  // an index of a GIF file is one byte
using shade = std::uint32_t;       // red, green and blue, a byte each

// A picture of at most 256 colours: the index of every pixel, row by row, and the colours.
struct palette_image {
  int width = 0;
  int height = 0;
  std::vector<GifPixelType> pixels;
  std::vector<shade> colours;
};

struct free_surface {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using surface_handle = std::unique_ptr<cairo_surface_t, free_surface>;

// The colour without its lowest bits. White stays white: paper a shade darker is seen at once.
shade coarser(shade colour, int bits) {
  const auto cleared = static_cast<shade>((0xFF >> bits) << bits);
  shade out = 0;
  for (const int shift : {0, 8, 16}) {
    const shade part = (colour >> shift) & 0xFFU;
    out |= (part == 0xFFU ? 0xFFU : part & cleared) << shift;
  }
  return out;
}

// Fills the picture; false when it has more colours than a palette holds.
bool fill_palette(cairo_surface_t* surface, int bits, palette_image& image) {
  std::unordered_map<shade, GifPixelType> index_of;
  image.width = cairo_image_surface_get_width(surface);
  image.height = cairo_image_surface_get_height(surface);
  image.pixels.clear();  // an earlier try may have stopped halfway
  image.colours.clear();
  const unsigned char* data = cairo_image_surface_get_data(surface);
  // Rows are padded: the next one begins a stride, not a width, further on.
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
  for (int row = 0; row < image.height; ++row) {
    const auto* line =
        reinterpret_cast<const shade*>(data + (static_cast<std::size_t>(row) * stride));
    for (int column = 0; column < image.width; ++column) {
      // The top byte is opacity or nothing; a page is opaque.
      const shade colour = coarser(line[column] & 0xFFFFFFU, bits);
      const auto next = static_cast<GifPixelType>(image.colours.size());
      const auto [place, fresh] = index_of.try_emplace(colour, next);
      if (fresh && image.colours.size() == most_colours) return false;
      if (fresh) image.colours.push_back(colour);
      image.pixels.push_back(place->second);
    }
  }
  return true;
}

// The GIF library's way out: into a text of ours, which is written as a whole or not at all. (A file
// that it opens itself is readable by its owner alone.)
int put_bytes(GifFileType* gif, const GifByteType* bytes, int count) {
  auto* text = static_cast<std::string*>(gif->UserData);
  text->append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
  return count;
}

bool put_image(GifFileType* gif, palette_image& image) {
  std::array<GifColorType, most_colours> colours{};
  for (std::size_t i = 0; i < image.colours.size(); ++i) {
    const shade colour = image.colours[i];
    colours[i] = {static_cast<GifByteType>(colour >> 16U), static_cast<GifByteType>(colour >> 8U),
                  static_cast<GifByteType>(colour)};
  }
  const std::unique_ptr<ColorMapObject, void (*)(ColorMapObject*)> map{
      GifMakeMapObject(most_colours, colours.data()), GifFreeMapObject};
  constexpr int bits_a_channel = 8;
  if (!map ||
      EGifPutScreenDesc(gif, image.width, image.height, bits_a_channel, 0, map.get()) != GIF_OK ||
      EGifPutImageDesc(gif, 0, 0, image.width, image.height, false, nullptr) != GIF_OK) {
    return false;
  }
  for (int row = 0; row < image.height; ++row) {
    GifPixelType* line =
        &image.pixels[static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width)];
    if (EGifPutLine(gif, line, image.width) != GIF_OK) return false;
  }
  return true;
}

}  // namespace

std::string copy_as_gif(const std::string& drawn, const std::string& path) {
  const surface_handle surface{cairo_image_surface_create_from_png(drawn.c_str())};
  if (const auto status = cairo_surface_status(surface.get()); status != CAIRO_STATUS_SUCCESS) {
    return incomplete_page(drawn) + ": " + cairo_status_to_string(status);
  }
  // Ends with 6 bits at the latest: four values and white in each of three channels: 125 colours.
  palette_image image;
  for (int bits = 1; !fill_palette(surface.get(), bits, image);) ++bits;

  std::string copy;
  int error = 0;
  GifFileType* gif = EGifOpen(&copy, put_bytes, &error);
  if (gif == nullptr) return GifErrorString(error);
  bool put = put_image(gif, image);
  put = EGifCloseFile(gif, &error) == GIF_OK && put;
  if (!put) return "the GIF library failed";
  const util::status fault = util::write_whole_file(path, copy);
  return fault ? fault->what : std::string{};
}

}  // namespace quick_plot
