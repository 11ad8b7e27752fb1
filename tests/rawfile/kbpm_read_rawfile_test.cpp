// Whole files: where they are looked for, what is loaded, and what damage does.
#include "kbpm_read_rawfile.hpp"

#include <fmt/core.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "held_file.hpp"
#include "kbpm_rawfile.hpp"
#include "kbpmfio.hpp"
#include "literal_rawfile.hpp"
#include "run_time.hpp"
#include "sample_text.hpp"
#include "scratch.hpp"

namespace {

using namespace rawfile;

// Ends a run as the library ends it, and comes back with the status.
struct run_ended {
  int status;
};

template <class action>
int status_of_end(action act) {
  util::end_process = [](int status) { throw run_ended{status}; };
  int status = -1;
  testing::internal::CaptureStderr();
  try {
    act();
  } catch (const run_ended& end) {
    status = end.status;
  }
  testing::internal::GetCapturedStderr();
  util::end_process = nullptr;
  return status;
}

template <class action>
std::string printed_by(action act) {
  testing::internal::CaptureStdout();
  act();
  return testing::internal::GetCapturedStdout();
}

// Where the status is not the point.
void load_at(const std::string& path) { static_cast<void>(kbpm_read_rawfile_at(path)); }

// The status of a load, and behind it what the load printed.
template <class loader>
std::string told_by(loader load) {
  std::int32_t status = -1;
  const std::string printed = printed_by([&] { status = load(); });
  return std::to_string(status) + " " + printed;
}
std::string told_at(const std::string& path) {
  return told_by([&path] { return kbpm_read_rawfile_at(path); });
}

template <class T>
bool same_bits(std::span<const T> a, std::span<const T> b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size_bytes()) == 0);
}

// Every field and array of an instrument against the plain reader's.
void expect_same(const RDV3_INST_DATA& a, const RDV3_INST_DATA& b) {
  // The headers are plain values; the arrays begin behind them.
  constexpr std::size_t header_size = offsetof(RDV3_INST_DATA, timing_blocks);
  EXPECT_EQ(std::memcmp(&a, &b, header_size - alignof(RDV3_INST_DATA)), 0) << "header";
  const auto integers = {&RDV3_INST_DATA::timing_blocks,
                         &RDV3_INST_DATA::phase_words,
                         &RDV3_INST_DATA::TIraw,
                         &RDV3_INST_DATA::BIraw,
                         &RDV3_INST_DATA::BOraw,
                         &RDV3_INST_DATA::TOraw,
                         &RDV3_INST_DATA::Other_phase_words,
                         &RDV3_INST_DATA::X_phase_words,
                         &RDV3_INST_DATA::Y_phase_words};
  for (const auto array : integers) {
    EXPECT_TRUE(same_bits<std::int32_t>(a.*array, b.*array)) << "integers";
  }
  const auto reals = {&RDV3_INST_DATA::TIcorrected, &RDV3_INST_DATA::BIcorrected,
                      &RDV3_INST_DATA::BOcorrected, &RDV3_INST_DATA::TOcorrected,
                      &RDV3_INST_DATA::Xpos,        &RDV3_INST_DATA::Ypos};
  for (const auto array : reals) EXPECT_TRUE(same_bits<float>(a.*array, b.*array)) << "reals";
}

void expect_same_as_plain_reader(const std::string& path, std::size_t block) {
  const literal::file plain = literal::read(path);
  const int end = status_of_end([&] {
    kbpmfio_stream stream;
    ASSERT_FALSE(open_for_reading(stream, path, block));
    testing::internal::CaptureStdout();
    static_cast<void>(kbpm_read_rawfile_stream(stream));
  });
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(end, plain.bad_block ? 1 : -1);
  if (plain.bad_block) return;
  EXPECT_TRUE(literal::same(*p_v3_file_header, plain.header)) << "file header";
  EXPECT_EQ(std::memcmp(p_v3_kovr_header, &plain.kovr, sizeof plain.kovr), 0) << "facility header";
  for (std::size_t i = 0; i < plain.instruments.size(); ++i) {
    expect_same(p_v3_inst_array[i], plain.instruments[i]);
  }
}

// A facility tree of its own in the scratch directory.
std::string facility() {
  const std::string root = sample::scratch_directory() + "t/online";
  setenv("KOVR_ONLINE", root.c_str(), 1);
  return root;
}

// A text that is read from a pipe.
struct piped {
  int read_end = -1;
  std::string path;
  std::thread writer;
  explicit piped(std::string text) {
    std::signal(SIGPIPE, SIG_IGN);  // the reader may have had enough
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) std::abort();
    read_end = ends[0];
    path = "/dev/fd/" + std::to_string(read_end);
    writer = std::thread{[to = ends[1], all = std::move(text)] {
      for (std::size_t done = 0; done < all.size();) {
        const ssize_t written = write(to, all.data() + done, all.size() - done);
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
      }
      ::close(to);
    }};
  }
  piped(const piped&) = delete;
  piped& operator=(const piped&) = delete;
  ~piped() {
    ::close(read_end);
    writer.join();
  }
};

std::string header_with(const char* key, const char* value) {
  std::string text = sample::text({});
  const std::size_t at = text.find(key) + 20;
  return text.replace(at, text.find('\n', at) - at, value);
}

}  // namespace

TEST(loading, gives_every_field_and_reading) {
  const sample::shape shape{3, 2, 4};
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("all.dat", sample::text(shape))), 0);
  const RDV3_FILE_HEADER& h = *p_v3_file_header;
  EXPECT_EQ(text_of(h.full_filename), sample::scratch_directory() + "all.dat");
  EXPECT_EQ(text_of(h.command_ID), "BPM_RAW_DATA");
  EXPECT_EQ(text_of(h.timestamp), "Tue Mar  4 15:16:17 2014");
  EXPECT_EQ(h.bunch_pattern(0), 3);
  EXPECT_EQ(p_v3_kovr_header->condx, 31415);
  EXPECT_EQ(p_v3_kovr_header->mA_current, 1.25F);

  const RDV3_INST_DATA& d = p_v3_inst_array[2];
  EXPECT_EQ(text_of(d.location), "3W");
  EXPECT_EQ(d.chan_delays(1, 0), 105);
  EXPECT_EQ(d.adc_saturation(1, 0), 8190);
  EXPECT_EQ(d.adc_saturation(1, 1), 0) << "the file carries card 0 only";
  EXPECT_EQ(d.timing_blocks[0], 0);
  EXPECT_EQ(d.timing_blocks[1], 1);

  // Instrument 2, bunch 1, turn 2 is reading 22 of the file: by hand from the sample's formulas.
  // Phase 22 * 37 mod 512 = 302, 22 * 11 = 242, 22. Block 1: pedestals 50..53, gains 0.8 to 0.7.
  constexpr std::size_t n = 6;
  EXPECT_EQ(d.X_phase_words[n], 302);
  EXPECT_EQ(d.Y_phase_words[n], 242);
  EXPECT_EQ(d.Other_phase_words[n], 22);
  EXPECT_EQ(d.TIraw[n], 1022);
  EXPECT_EQ(d.TOraw[n], 39978);
  EXPECT_FLOAT_EQ(d.TIcorrected[n], 972 / 0.8F);
  EXPECT_FLOAT_EQ(d.TOcorrected[n], 39925 / 0.7F);
  // (TO + BO - BI - TI) / sum * 26.2 with 1215, 1642.5, 2270.7692 and 57035.714
  EXPECT_NEAR(d.Xpos[n], 26.2 * (57035.714 + 2270.7692 - 1642.5 - 1215) / 62163.983, 1e-4);
  EXPECT_NEAR(d.Ypos[n], 19.6 * (57035.714 - 2270.7692 - 1642.5 + 1215) / 62163.983, 1e-4);
}

TEST(damaged_files, give_what_the_plain_reader_makes_of_them) {
  const sample::shape shape{3, 2, 5};
  const std::string whole = sample::text(shape);
  std::mt19937 random{11};
  const auto below = [&random](std::size_t n) { return random() % n; };
  static const std::vector<std::string> put_in = {
      "\n",
      "# a comment : here\n",
      "   \t\n",
      "Unknown_Key : 5\n",
      "Loc: x\n",
      ": nothing\n",
      "no colon\n",
      "--BEGIN DATA--\n",
      "--BEGIN DATA--\r\n",
      " --BEGIN DATA--  \n",
      "0 1 2 3 4 5\n",
      "1       0000fff  12345678  1234567890  -123456    -1234567\n",
      "0 1 2: 3\n",
      "%d : 3\n",
      "Number_of_Turns   : 7\n",
      "Pedestals : 1 x 2\n",
      "Gain_Coeffs       : 0 inf nan 0x1p2  -1 1e-30 1e30 .5\n",
      "7       0000000        1        1        1        1\n",
      std::string(3000, 'x') + "\n",
      std::string(2047, ' ') + "Location : 9W\n",
      "1\n",
      "0 2\n",
      std::string{"0 1 \0 2\n", 8}};
  for (int round = 0; round < 3000; ++round) {
    auto lines = sample::lines_of(whole);
    for (std::size_t times = 1 + below(4); times > 0; --times) {
      const std::size_t at = below(lines.size());
      const auto where = lines.begin() + static_cast<std::ptrdiff_t>(at);
      std::string& line = lines[at];
      switch (below(9)) {
        case 0:
          lines.erase(where);
          break;
        case 1:
          lines.insert(where, lines[below(lines.size())]);
          break;
        case 2:
          std::swap(line, lines[below(lines.size())]);
          break;
        case 3:
          if (!line.empty()) line.insert(line.size() - 1, "\r");
          break;
        case 4:
          line.resize(below(line.size() + 1));
          break;
        case 5:
          lines.resize(at + 1);
          break;
        case 6:
          if (!line.empty()) line[below(line.size())] = static_cast<char>(' ' + below(96));
          break;
        default:
          lines.insert(where, put_in[below(put_in.size())]);
      }
    }
    const std::string text = sample::joined(lines);
    // A damaged count can be anything; counts that are too large have a test of their own.
    const std::string path = sample::written("damaged.dat", text);
    expect_same_as_plain_reader(path, round % 2 == 0 ? usual_block : max_line);
    if (testing::Test::HasFailure()) {
      std::filesystem::copy_file(path, "/tmp/damaged_rawfile.dat",
                                 std::filesystem::copy_options::overwrite_existing);
      FAIL() << "round " << round << "; the file is kept as /tmp/damaged_rawfile.dat";
    }
  }
}

TEST(damaged_files, show_the_loss_that_the_line_rules_say) {
  const sample::shape shape{2, 1, 3};
  const auto loaded = [](const std::string& text) {
    load_at(sample::written("lost.dat", text));
    return p_v3_inst_array;
  };
  auto lines = sample::lines_of(sample::text(shape));
  const auto line_of = [](const std::vector<std::string>& all, std::string_view start) {
    return std::find_if(all.begin(), all.end(),
                        [&](const std::string& l) { return l.substr(0, start.size()) == start; });
  };

  auto extra = lines;
  extra.insert(extra.begin() + (line_of(lines, "Location          : 2W") - lines.begin()),
               "0 0 0 0 0 0\n");
  EXPECT_EQ(text_of(loaded(sample::joined(extra))[1].location), "")
      << "a line of data too many costs the next instrument its location";

  auto unmarked = lines;
  unmarked.erase(line_of(unmarked, "--BEGIN DATA--"));
  const RDV3_INST_DATA* d = loaded(sample::joined(unmarked));
  EXPECT_EQ(d[0].TIraw[0], 1001) << "without the marker the first line is gone";
  EXPECT_EQ(d[0].TIraw[2], 1002) << "and the last is repeated";

  auto frozen = lines;
  frozen[static_cast<std::size_t>(line_of(lines, "--BEGIN DATA--") - lines.begin()) + 3] =
      "0 1 2:3 4 5\n";
  d = loaded(sample::joined(frozen));
  EXPECT_EQ(d[0].TIraw[2], 1001) << "a colon among the data freezes the block";
  EXPECT_EQ(text_of(d[1].location), "2W") << "and the next instrument is found behind it";

  auto no_name = lines;
  no_name.erase(line_of(no_name, "Bunch_Patt_Name"));
  no_name.erase(line_of(no_name, "Trigger           : ****"));
  EXPECT_EQ(loaded(sample::joined(no_name))[1].TOraw[2], 40000 - 5) << "lines that may be absent";
}

TEST(a_timing_block, other_than_0_and_1_ends_the_run) {
  std::string text = sample::text({1, 1, 2});
  text[text.find("--BEGIN DATA--") + 15] = '7';
  const std::string path = sample::written("block.dat", text);
  EXPECT_EXIT(
      load_at(path), testing::ExitedWithCode(1),
      "^butngain: " + path +
          ":54: instrument 1W, data line 1: timing block 7, expected 0 or 1\n"
          "butngain: run-time error: subscript 1 \\(= 7\\) of pedestals is outside 0..1\n$");
}

TEST(a_timing_block, far_down_a_file_is_found_by_its_line) {
  auto lines = sample::lines_of(sample::text({2, 1, 6000}));  // more than is read ahead at once
  ASSERT_EQ(lines.back().front(), '0');
  lines.back().front() = '2';
  const std::string path = sample::written("block.dat", sample::joined(lines));
  EXPECT_EXIT(load_at(path), testing::ExitedWithCode(1),
              fmt::format("block.dat:{}: instrument 2W, data line 6000: ", lines.size()));
  // A pipe that has forgotten its first lines still tells instrument and data line.
  EXPECT_EXIT(load_at(piped{sample::joined(lines)}.path), testing::ExitedWithCode(1),
              "/dev/fd/[0-9]+: instrument 2W, data line 6000: ");
}

TEST(a_pipe, loses_no_instrument_behind_a_short_block) {
  const sample::shape shape{3, 1, 4};
  auto lines = sample::lines_of(sample::text(shape));
  const auto second = std::find(lines.begin(), lines.end(), "Location          : 2W\n");
  // One data line too few, then comments of more than what is read ahead.
  const std::string comment = "# " + std::string(1000, 'c') + "\n";
  std::vector<std::string> comments(5, comment);
  comments.insert(comments.end(), second, lines.end());
  lines.erase(second - 1, lines.end());
  const piped in{sample::joined(lines) + sample::joined(comments)};
  kbpmfio_stream stream;
  ASSERT_FALSE(open_for_reading(stream, in.path, max_line));
  EXPECT_EQ(kbpm_read_rawfile_stream(stream), 0);
  EXPECT_EQ(text_of(p_v3_inst_array[1].location), "2W");
  EXPECT_EQ(text_of(p_v3_inst_array[2].location), "3W");
  EXPECT_EQ(p_v3_inst_array[2].TIraw[0], 1008);
}

TEST(a_pipe, cannot_tell_the_size_that_counts_call_for) {
  const piped in{header_with("Number_of_Turns", "500000000")};
  EXPECT_EQ(told_at(in.path),
            "1 Error: " + in.path +
                ": Number_of_Turns : 500000000: 2000000056 lines expected; a pipe or device cannot "
                "tell its size\n");
}

TEST(text_without_a_line_end, is_refused) {
  const piped data{header_with("Number_of_Turns", "9000") +
                   std::string(longest_unended + 5000, 'x')};
  for (const std::string& path : {std::string{"/dev/zero"}, data.path}) {
    ASSERT_EQ(kbpm_read_rawfile_at(sample::written("a.dat", sample::text({}))), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(kbpm_read_rawfile_at(path), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "butngain: " + path +
                  ": 16777216 characters without a line end, expected the lines of a raw data "
                  "file\n");
    EXPECT_EQ(kbpm_rawfile_num_instruments(), 0);
  }
}

TEST(counts, that_cannot_be_are_refused_or_told) {
  struct {
    const char* key;
    const char* value;
    const char* message;  // with the file's path for %
  } const cases[] = {
      {"Number_of_Turns", "2000000000",
       "Error: %: Number_of_Turns : 2000000000: more data lines than 32 bits can count\n"},
      {"Number_of_Turns", "500000000", "Error: %: Number_of_Turns : 500000000: 2000000056 lines"},
      {"Number_of_Bunches", "100000000",
       "Error: %: Number_of_Bunches : 100000000: 600000056 lines"},
      {"Num_Instruments", "2000000000",
       "Error: %: Num_Instruments : 2000000000: more data lines than 32 bits can count\n"},
      {"Num_Instruments", "5000000", "Error: %: Num_Instruments : 5000000: 170000000 lines"},
      {"Num_Instruments", "-1", "Error: Empty RD file, no instruments, %\n"},
      {"Num_Instruments", "0", "Error: Empty RD file, no instruments, %\n"},
      {"Num_Instruments", "121", "Error: Empty RD file, no instruments, %\n"},
      {"Number_of_Bunches", "0", "Error: Empty RD file, no bunches, %\n"},
      {"Number_of_Bunches", "-3", "Error: Empty RD file, no bunches, %\n"}};
  for (const auto& c : cases) {
    const std::string path = sample::written("counts.dat", header_with(c.key, c.value));
    const std::string told = told_at(path);
    std::string expected = std::string{"1 "} + c.message;
    expected.replace(expected.find('%'), 1, path);
    EXPECT_EQ(told.substr(0, expected.size()), expected);
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1);
  }
  EXPECT_EQ(
      kbpm_read_rawfile_at(sample::written("counts.dat", header_with("Num_Instruments", "120"))), 0)
      << "120 are not too many, and a file that is cut short loads";
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 120);
}

TEST(counts, that_are_refused_leave_nothing_loaded) {
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("a.dat", sample::text({}))), 0);
  // Bunches without turns: no line of data at all, and still too many.
  std::string text = header_with("Number_of_Bunches", "666666666");
  text.replace(text.find("Number_of_Turns") + 20, 1, "0");
  const std::string told = told_at(sample::written("b.dat", text));
  EXPECT_TRUE(told.starts_with("1 ")) << told;
  EXPECT_NE(told.find("Number_of_Bunches : 666666666"), std::string::npos) << told;
  EXPECT_EQ(kbpm_rawfile_num_turns(), 0);
  EXPECT_EQ(kbpm_rawfile_pedestal("1W", 1, 0), -999.0F);
}

TEST(a_run, is_found_online_then_offline) {
  const std::string online = facility() + "/kbpmII/raw/04/RD-004567.dat";
  const std::string offline = sample::scratch_directory() + "t/offline/kbpmII/raw/04/RD-004567.dat";
  const auto load = [] { return kbpm_read_rawfile(4567); };

  EXPECT_EQ(told_by(load), "1 Unable to stat " + online + "\nUnable to stat " + offline + "\n");
  scratch::write(offline, sample::text({1, 1, 1}));
  EXPECT_EQ(told_by(load), "0 Unable to stat " + online + "\n");
  EXPECT_EQ(text_of(p_v3_file_header->full_filename), offline);
  scratch::write(online, sample::text({2, 1, 1}));
  EXPECT_EQ(told_by(load), "0 ");
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 2);
}

TEST(a_given_path, is_laid_over_the_runs_online_path) {
  facility();
  // At least as long as the online path of run 0 it stands for itself.
  const std::string path = sample::written(std::string(40, 'p'), sample::text({}));
  ASSERT_EQ(kbpm_read_rawfile_from_fullfilename(path), 0);
  EXPECT_EQ(text_of(p_v3_file_header->full_filename), path);

  EXPECT_EQ(told_by([] { return kbpm_read_rawfile_from_fullfilename("/tmp/x"); }),
            "1 Unable to stat /tmp/x\n")
      << "the tail of the online path stays behind it";
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 2) << "the previous load is kept";

  // A shorter one whose overlay happens to be a file does load.
  const std::string online = facility() + "/kbpmII/raw/00/RD-000000.dat";
  scratch::write(online, sample::text({1, 1, 1}));
  EXPECT_EQ(kbpm_read_rawfile_from_fullfilename(online.substr(0, online.size() - 4)), 0);
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 1);
  std::filesystem::remove(online);
}

TEST(a_file, that_is_there_but_cannot_be_opened_answers_0_and_keeps_the_previous_load) {
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("a.dat", sample::text({}))), 0);
  const std::int32_t* readings = kbpm_rawfile_raw_ptr("1W", 0);
  const std::string path = sample::scratch_directory() + "socket";
  const scratch::unopenable socket{path};
  testing::internal::CaptureStderr();
  EXPECT_EQ(told_at(path),
            "0 [kbpm_read_rawfile_extended] ERROR opening data file " + path + "!\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kbpm_read_rawfile_extended: No such device or address\n");
  EXPECT_EQ(kbpm_rawfile_raw_ptr("1W", 0), readings);
  EXPECT_FALSE(kbpm_rawfile_is_current());
}

TEST(a_file, that_is_not_there_is_told_and_leaves_the_previous_load_marked_as_such) {
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("a.dat", sample::text({}))), 0);
  EXPECT_TRUE(kbpm_rawfile_is_current());
  const std::string path = sample::scratch_directory() + "not\x1b[2Jthere";
  EXPECT_EQ(told_at(path),
            "1 Unable to stat " + sample::scratch_directory() + "not\\x1b[2Jthere\n");
  EXPECT_EQ(kbpm_rawfile_num_instruments(), 2) << "the previous load is kept";
  EXPECT_FALSE(kbpm_rawfile_is_current());
}

TEST(a_directory, reads_as_an_empty_file) {
  const std::string path = sample::scratch_directory();
  EXPECT_EQ(told_at(path), "1 Error: Empty RD file, no instruments, " + path + "\n");
}

TEST(the_next_load, uses_the_memory_again) {
  const std::string large = sample::written("large.dat", sample::text({4, 2, 300}));
  const std::string small = sample::written("small.dat", sample::text({1, 1, 2}));
  ASSERT_EQ(kbpm_read_rawfile_at(large), 0);
  const std::int32_t* first = kbpm_rawfile_raw_ptr("1W", 0);
  ASSERT_EQ(kbpm_read_rawfile_at(small), 0);
  EXPECT_EQ(p_v3_inst_array[0].Species_By_Bunch[0], 0);
  ASSERT_EQ(kbpm_read_rawfile_at(large), 0);
  EXPECT_EQ(kbpm_rawfile_raw_ptr("1W", 0), first);
  kbpmfio_v3_free_inst_mem(0);
  EXPECT_EQ(kbpm_rawfile_raw_ptr("1W", 0), nullptr);
  kbpmfio_v3_inst_alloc(0);
  EXPECT_EQ(kbpm_rawfile_raw_ptr("1W", 0), first);
  EXPECT_EXIT(kbpmfio_v3_inst_alloc(4), testing::ExitedWithCode(1),
              "subscript 4 of p_v3_inst_array is outside 0..3");
}

TEST(position, is_outer_minus_inner_and_top_minus_bottom) {
  // Readings 1, 2, 4, 8 of TI, BI, BO, TO: sum 15.
  EXPECT_FLOAT_EQ(kbpmfio_compute_pos(1, 2, 4, 8, 0, {15, 1}), 9);
  EXPECT_FLOAT_EQ(kbpmfio_compute_pos(1, 2, 4, 8, 1, {1, 15}), 3);
  EXPECT_TRUE(std::isnan(kbpmfio_compute_pos(0, 0, 0, 0, 0, {1, 1}))) << "nothing guards it";
}
