// What the page says first, and that no text from data can be anything but text.
#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "panel.hpp"
#include "report_page.hpp"
#include "words.hpp"

namespace {

using report::verdict;

report::bpm_row row(int bpm, const std::string& name, verdict word,
                    const std::string& reason = "") {
  report::bpm_row r;
  r.bpm = bpm;
  r.name = name;
  r.verdict = word;
  r.reason = reason;
  if (word != verdict::not_fitted) {
    r.gain = {1.02, 0.98, 1.01, 1 / (1.02 * 0.98 * 1.01)};
    r.error = 2e-4;
  }
  return r;
}

report::run_results run_of(std::vector<report::bpm_row> rows) {
  report::run_results run;
  run.info.title = "run 4567";
  run.info.directory = "20261121_201500";
  run.bpm = std::move(rows);
  return run;
}

bool holds(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

TEST(first_sentence, says_what_can_be_loaded) {
  const auto good = row(1, "1W", verdict::determined), weak = row(2, "2W", verdict::weak),
             bad = row(3, "3W", verdict::suspect), open = row(4, "4W", verdict::not_determined);
  auto stays = good;  // determined, and not loaded all the same
  stays.stays = "no table: only the four fits speak for these gains";
  const struct {
    std::vector<report::bpm_row> rows;
    const char* sentence;
  } cases[] = {
      {{}, "Nothing can be loaded: the data hold no BPM."},
      {{good}, "The only BPM is determined: load gains.load."},
      {{good, good}, "All 2 BPMs are determined: load gains.load."},
      {{good, good, weak}, "2 of 3 BPMs are determined: load gains.load. 1 BPM needs a look."},
      {{good, weak, bad}, "1 of 3 BPMs is determined: load gains.load. 2 BPMs need a look."},
      {{good, stays}, "1 of 2 BPMs can be loaded: load gains.load. 1 BPM needs a look."},
      {{stays, weak},
       "Nothing can be loaded: 1 of 2 BPMs is determined, but old coefficients stay."},
      {{open}, "Nothing can be loaded: the only BPM is not determined."},
      {{open, open}, "Nothing can be loaded: none of 2 BPMs is determined."},
      {{weak, weak}, "Nothing can be loaded: all 2 BPMs are weak."},
      {{weak, bad}, "Nothing can be loaded: none of 2 BPMs is determined (1 weak, 1 suspect)."}};
  for (const auto& c : cases) EXPECT_EQ(report::first_sentence(run_of(c.rows)), c.sentence);
}

TEST(bpms_to_look_at, worst_first_and_together_what_has_one_reason) {
  const auto run = run_of({row(1, "1W", verdict::weak, "pedestals are not known"),
                           row(2, "2W", verdict::determined),
                           row(3, "3W", verdict::suspect, "button 3: saturated readings"),
                           row(4, "4W", verdict::weak, "pedestals are not known")});
  const auto groups = report::bpms_to_look_at(run);
  ASSERT_EQ(groups.size(), 2U);
  EXPECT_EQ(groups[0].verdict, verdict::suspect);
  ASSERT_EQ(groups[1].bpm.size(), 2U);
  EXPECT_EQ(groups[1].bpm[1]->name, "4W");
}

// Where nothing was calibrated the four fits' multipliers stand in: g = 1/t.
TEST(gains_shown, of_the_fits_are_inverted_with_product_1) {
  auto r = row(1, "1W", verdict::weak);
  r.gain = report::unknown_four;
  r.fit_gain = {0.5, 1, 1, 2};
  const auto shown = report::gains_shown(r);
  ASSERT_TRUE(shown);
  EXPECT_NEAR(shown->t[0], 2, 1e-15);
  EXPECT_NEAR(shown->t[3], 0.5, 1e-15);
  r.fit_gain[1] = 0;
  EXPECT_FALSE(report::gains_shown(r));
  r.true_gain = {4, 2, 2, 1};  // as files give them: any common factor
  EXPECT_NEAR(report::true_gains_shown(r)[0], 2, 1e-15);
}

// One wild gain must not press all others onto a line; a normal spread is shown whole.
TEST(robust_range, leaves_out_the_few_only) {
  std::vector<double> values;
  for (int i = -50; i <= 50; ++i) values.push_back(0.001 * i);
  EXPECT_DOUBLE_EQ(chart::robust_range(values).high, 0.05);
  values.push_back(40);
  values.push_back(std::nan(""));
  // Eight in ten lie within +-0.04 and 0.041: once their width more on either side.
  EXPECT_NEAR(chart::robust_range(values).high, 0.041 + 0.081, 2e-3);
  EXPECT_DOUBLE_EQ(chart::robust_range({1, 2, 40}).high, 40);
}

TEST(report_html, holds_every_bpm_with_its_reason) {
  const auto run = run_of({row(1, "1W", verdict::determined), row(2, "2W", verdict::suspect, "why"),
                           row(7, "", verdict::not_fitted, "no signal")});
  const std::string page = report::report_html(run);
  for (const char* part : {"1 of 3 BPMs is determined", "id=\"bpm-1\"", "id=\"bpm-2\"",
                           "id=\"bpm-7\"", "BPM 7", "why", "no signal", "run 4567"}) {
    EXPECT_TRUE(holds(page, part)) << part;
  }
  EXPECT_LT(page.find("need a look"), page.find("class=\"counts\""));  // the sentence comes first
  // A run made once more gives the same page, wherever and whenever that is.
  EXPECT_FALSE(holds(page, "20261121_201500"));
}

TEST(report_html, tells_of_a_run_that_was_cut_short) {
  auto run = run_of({row(1, "1W", verdict::determined)});
  run.info.ended = "interrupted";
  EXPECT_TRUE(holds(report::report_html(run), "The run was interrupted"));
}

TEST(report, shows_hostile_names_as_text) {
  auto hostile = row(1, "<script>alert(1)</script>", verdict::suspect, "\"quoted\" & 'said'");
  hostile.name += "\x1b[31m\xff";
  auto run = run_of({hostile});
  run.info.title = "</title><img src=x>";
  run.info.dialog = {{"<b>", "a\x07"}};
  const std::string page = report::report_html(run);
  EXPECT_FALSE(holds(page, "<script>alert"));
  EXPECT_FALSE(holds(page, "<img"));
  EXPECT_TRUE(holds(page, "&lt;script&gt;alert(1)&lt;/script&gt;\\x1b[31m\\xff"));
  EXPECT_TRUE(holds(page, "&quot;quoted&quot; &amp; &#39;said&#39;"));
  EXPECT_TRUE(std::none_of(page.begin(), page.end(), [](char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == '\x7f';
  }));
  // Neither picture is lost for a byte that is no UTF-8.
  EXPECT_FALSE(report::gains_png(run).empty());
  const std::string paper = report::gains_pdf(run, report::paper::letter);
  EXPECT_TRUE(paper.starts_with("%PDF"));
  EXPECT_TRUE(holds(paper, "20000101000000Z"));  // the same for every run
}

TEST(report_html, of_a_hundred_bpms_with_a_thousand_orbits_fits_a_mail) {
  std::vector<report::bpm_row> rows;
  for (int i = 1; i <= 100; ++i) {
    rows.push_back(row(i, std::to_string(i), verdict::determined));
    for (int j = 1; j <= 1000; ++j) {
      report::orbit_row o;
      o.orbit = j;
      o.used = true;
      const double phase = 0.7 * j + i;
      o.before_x_mm = o.after_x_mm = 5 * std::sin(phase);
      o.before_y_mm = o.after_y_mm = 5 * std::sin(1.37 * phase);
      o.residual = 1e-4 * std::sin(31 * phase);
      for (std::size_t k = 0; k < 4; ++k)
        o.signal[k] = 1e5 + 1e4 * std::sin(phase * static_cast<double>(k + 1));
      rows.back().orbit.push_back(o);
    }
  }
  EXPECT_LT(report::report_html(run_of(std::move(rows))).size(), 7'000'000U);
}

// --- pixels ----------------------------------------------------------------------------------------

struct pixels {
  int width = 0, height = 0;
  std::vector<unsigned> colour;  // 0xRRGGBB
};

pixels decode(const std::string& png) {
  struct source {
    const std::string* bytes;
    std::size_t at;
  } from{&png, 0};
  const auto read = [](void* closure, unsigned char* data, unsigned int length) {
    auto* s = static_cast<source*>(closure);
    if (s->at + length > s->bytes->size()) return CAIRO_STATUS_READ_ERROR;
    std::memcpy(data, s->bytes->data() + s->at, length);
    s->at += length;
    return CAIRO_STATUS_SUCCESS;
  };
  pixels p;
  cairo_surface_t* image = cairo_image_surface_create_from_png_stream(read, &from);
  p.width = cairo_image_surface_get_width(image);
  p.height = cairo_image_surface_get_height(image);
  const unsigned char* data = cairo_image_surface_get_data(image);
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      unsigned colour = 0;
      std::memcpy(&colour, data + y * cairo_image_surface_get_stride(image) + 4 * x, sizeof colour);
      p.colour.push_back(colour & 0xFFFFFFU);
    }
  }
  cairo_surface_destroy(image);
  return p;
}

// Shapes of an SVG by hand: hundredths of points, corners on straight lines left out, dots in short.
TEST(canvas, shapes_of_an_svg_are_written_in_few_characters) {
  chart::canvas c = chart::open_canvas(chart::medium::svg, 100, 40);
  draw_line(c, {1, 2.004}, {3.335, 2.004}, chart::ink::grid, 1);
  const std::vector<chart::point> bent{{0, 0}, {5, 5}, {10, 10}, {10, 10}, {20, 10}, {15, 10}};
  draw_lines(c, bent, chart::ink::button_1, 1.2);
  draw_dots(c, std::vector<chart::point>{{7, 8.3}, {6.9, 8.4}, {2.6, -1}}, chart::ink::alarm, 2,
            0.75);
  draw_dashed_line(c, {0, 1}, {0, 9}, chart::ink::quiet, 0.8);
  fill_box(c, {1.125, 2.375}, 3, 4.5, chart::ink::band, 0.5);
  fill_area(c, std::vector<chart::point>{{0, 0}, {4, 0}, {2, 3}, {0, 0}}, chart::ink::text);
  const std::string svg = finish(c, "by hand");
  const std::string shapes = svg.substr(svg.find("<path"));
  EXPECT_EQ(shapes,
            "<path style=\"fill:none;stroke:var(--grid)\" d=\"M1 2L3.34 2\"/>"
            "<path style=\"fill:none;stroke-width:1.2;stroke-linejoin:round;stroke:var(--b1)\""
            " d=\"M0 0L10 10L20 10L15 10\"/>"
            "<path style=\"fill:none;stroke-width:2;stroke-linecap:round;stroke-linejoin:round;"
            "stroke:var(--alarm);stroke-opacity:0.75\" d=\"M2.5 -1h0M7 8.5h0\"/>"
            "<path style=\"fill:none;stroke-width:0.8;stroke-linejoin:round;stroke:var(--quiet);"
            "stroke-dasharray:4,3\" d=\"M0 1L0 9\"/>"
            "<path style=\" stroke:none;fill:var(--band);fill-opacity:0.5\""
            " d=\"M1.12 2.38L4.12 2.38L4.12 6.88L1.12 6.88ZM1.12 2.38\"/>"
            "<path style=\" stroke:none;fill:var(--ink)\" d=\"M0 0L4 0L2 3ZM0 0\"/></svg>\n");
}

// A text leaves the pen at its end: an area drawn next once went on from there, as a wedge.
TEST(canvas, an_area_begins_at_its_own_corner) {
  chart::canvas c = chart::open_canvas(chart::medium::png, 100, 40);
  draw_text(c, "x", {5, 35});
  const std::vector<chart::point> corners{{80, 5}, {90, 5}, {85, 15}};
  fill_area(c, corners, chart::ink::button_1);
  draw_text(c, "x", {5, 35});
  draw_lines(c, corners, chart::ink::button_2, 2);
  draw_text(c, "\xff", {70, 35});  // no UTF-8: alone it would cost the whole drawing
  const pixels p = decode(finish(c));
  for (std::size_t y = 0; y < 40; ++y) EXPECT_EQ(p.colour[y * 100 + 50], 0xFFFFFFU) << y;
  EXPECT_EQ(p.colour[8 * 100 + 85], 0x0072B2U);
}

TEST(gains_png, shows_four_colours_and_alarm_only_where_something_is_wrong) {
  const auto good = row(1, "1W", verdict::determined);
  for (const bool alarm : {false, true}) {
    auto run = run_of({good, good, good});
    if (alarm) run.bpm[1] = row(2, "2W", verdict::not_fitted);
    const pixels p = decode(report::gains_png(run));
    EXPECT_GT(p.width, 900);
    EXPECT_GT(p.height, 400);
    const auto count = [&p](unsigned colour) {
      return std::count(p.colour.begin(), p.colour.end(), colour);
    };
    for (const unsigned button : {0x0072B2U, 0xD55E00U, 0x009169U, 0xAA4499U}) {
      EXPECT_GT(count(button), 100) << std::hex << button;
    }
    EXPECT_GT(count(0xFFFFFF), p.width * p.height / 2);
    // One cross stands in the legend; that of the BPM is as large.
    static long legend = 0;
    if (!alarm) legend = count(0xBE1228);
    if (alarm) {
      EXPECT_GT(count(0xBE1228), legend + legend / 2);
    }
  }
}

}  // namespace
