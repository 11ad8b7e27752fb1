// One line at a time: field tables, their reader and writer, texts.
#include <gtest/gtest.h>

#include "kbpm_read_rawfile.hpp"
#include "kbpmfio_stream.hpp"
#include "run_time.hpp"
#include "sample_text.hpp"
#include "scratch.hpp"

namespace {

using namespace rawfile;

// What a routine writes.
template <class writer>
std::string written_by(writer write) {
  const std::string path = sample::scratch_directory() + "written.txt";
  kbpmfio_stream stream;
  EXPECT_FALSE(open_for_writing(stream, path));
  write(stream);
  close(stream);
  return scratch::content(path);
}

std::string rest_of(kbpmfio_stream& stream) {
  std::string rest;
  while (const auto line = next_line(stream)) rest += *line;
  return rest;
}

constexpr std::string_view file_id = "File_ID           : %d\n";

}  // namespace

TEST(scan_line_input, finds_the_wanted_key_by_the_line_rules) {
  struct {
    const char* what;
    std::string text;
    std::int32_t value;  // -1: left as it was
    const char* rest;
  } const cases[] = {
      {"as written", "File_ID           : 12\n-", 12, "-"},
      {"without padding", "File_ID:12\n-", 12, "-"},
      {"CR before the line end", "File_ID           : 12\r\n-", 12, "-"},
      {"no line end", "File_ID           : 12", 12, ""},
      {"comments and blank lines before it", "# a : b\n\n  \t\n  #\nFile_ID : 12\n-", 12, "-"},
      {"other keys before it", "File_Name : 3\nfile_id : 4\nFile_ID : 12\n-", 12, "-"},
      {"a cut key uses up the field", "File: 12\nFile_ID : 13\n", -1, "File_ID : 13\n"},
      {"a line that begins with a colon does too", ": 12\nFile_ID : 13\n", -1, "File_ID : 13\n"},
      {"so does a line without a colon", "12\nFile_ID : 13\n", -1, "File_ID : 13\n"},
      {"and the data marker", "--BEGIN DATA--\nFile_ID : 13\n", -1, "File_ID : 13\n"},
      {"a padded marker", "  --BEGIN DATA-- \r\nFile_ID : 13\n", -1, "File_ID : 13\n"},
      {"a value that is no number", "File_ID           : x12\n-", -1, "-"},
      {"a value on the next line", "File_ID           :\n 12\n", -1, " 12\n"},
      {"more than 32 bits: the lower half counts", "File_ID : 4294967299\n", 3, ""},
      {"the key never comes", "File_Version : 3\nSpecies : x\n", -1, ""},
      {"a zero byte ends the line",
       std::string{"File_ID : 1\0"
                   "2\n-",
                   15},
       1, "-"},
      {"a key behind column 2047 is a line of its own",
       "Other : " + std::string(2039, 'x') + "File_ID : 12\n-", 12, "-"},
      {"an empty file", "", -1, ""}};
  for (const auto& c : cases) {
    std::int32_t value = -1;
    kbpmfio_stream stream;
    open_text(stream, c.text);
    EXPECT_EQ(kbpmfio_scan_line_input(stream, file_id, std::array{target(value)}), 0) << c.what;
    EXPECT_EQ(value, c.value) << c.what;
    EXPECT_EQ(rest_of(stream), c.rest) << c.what;
  }
}

TEST(scan_line_input, reads_texts_to_the_line_end_and_cuts_them_to_their_field) {
  struct {
    const char* what;
    const char* line;
    std::string_view text;
  } const cases[] = {{"blanks inside", "Trigger           : a b  c\n", "a b  c"},
                     {"leading blanks go", "Trigger :    late\n", "late"},
                     {"trailing blanks and CR stay", "Trigger : on \r\n", "on \r"},
                     {"a colon inside", "Trigger : 12:30\n", "12:30"},
                     {"nine characters fit", "Trigger : 123456789\n", "123456789"},
                     {"more are cut", "Trigger : 1234567890abcdef\n", "123456789"},
                     {"no text leaves the old one", "Trigger : \n", "old"}};
  for (const auto& c : cases) {
    text_field<10> text{};
    set_text(text, "old");
    kbpmfio_stream stream;
    open_text(stream, c.line);
    EXPECT_EQ(kbpmfio_scan_line_input(stream, "Trigger           : %s\n",
                                      std::array{target(std::span<char>{text})}),
              0);
    EXPECT_EQ(text_of(text), c.text) << c.what;
  }
}

TEST(scan_line_input, leaves_the_next_sections_line_to_it) {
  std::array<std::int32_t, 6> c{};
  kbpmfio_map_data_line(c);
  kbpmfio_stream stream;
  open_text(stream, "# titles\n\n1  20 3 4 5 6\n# of the next one\nLocation : 2W\n");
  const KBPMFIO_FIELD_SPEC& data = RDV3_raw_data_spec[0];
  const auto six = std::span{data.addresses}.first(6);
  EXPECT_EQ(kbpmfio_scan_line_input(stream, data.format, six), 0);
  EXPECT_EQ(c, (std::array<std::int32_t, 6>{1, 0x20, 3, 4, 5, 6}));
  EXPECT_EQ(kbpmfio_scan_line_input(stream, data.format, six), 1);
  EXPECT_EQ(rest_of(stream), "Location : 2W\n");
}

TEST(section, stops_early_only_for_rows_of_ten_targets) {
  std::array<std::int32_t, 10> v{};
  std::array<KBPMFIO_FIELD_SPEC, 2> table{};
  table[0] = {0, KBPMFIO_READ, kbpmfio_scan_line_input, kbpmfio_scan_line_output,
              "%d %d %d %d %d %d %d %d %d %d\n"};
  table[1] = {1, KBPMFIO_READ, kbpmfio_scan_line_input, kbpmfio_scan_line_output, "Key : %d\n"};
  kbpmfio_targets all;
  for (std::size_t k = 0; k < all.size(); ++k) all[k] = target(v[k]);
  for (const std::size_t set : {9U, 10U}) {
    kbpmfio_targets some{};
    std::copy_n(all.begin(), set, some.begin());
    std::int32_t key = 0;
    kbpmfio_map_addresses_to_field(table, 0, some);
    kbpmfio_map_addresses_to_field(table, 1, {target(key)});
    kbpmfio_stream stream;
    open_text(stream, "Key : 5\n");
    EXPECT_EQ(kbpmfio_rw_file_section(stream, KBPMFIO_READ, 2, table), set == 10 ? 1 : 0);
    EXPECT_EQ(key, set == 10 ? 0 : 5);
  }
}

TEST(section, without_targets_stores_nothing) {
  // Rows that nobody has pointed at a record hold the placeholder.
  std::array<KBPMFIO_FIELD_SPEC, 1> table{
      {{0, KBPMFIO_READWRITE, kbpmfio_scan_line_input, kbpmfio_scan_line_output, file_id}}};
  kbpmfio_stream stream;
  open_text(stream, "File_ID : 5\n-");
  EXPECT_EQ(kbpmfio_rw_file_section(stream, KBPMFIO_READ, 1, table), 0);
  EXPECT_EQ(rest_of(stream), "-");
}

TEST(bunch_pattern, is_read_from_the_first_word_down) {
  struct {
    const char* what;
    const char* text;
    std::int32_t word39, word38, word37;
  } const cases[] = {
      {"words", "Bunch_Patt_(hex)  : A 1F ffff\n", 0xA, 0x1F, 0xFFFF},
      {"fewer words leave the others", "Bunch_Patt_(hex)  : 1 2 \n", 1, 2, -1},
      {"comments, blanks, other keys, marker before it",
       "#x\n\nKey : 1\n--BEGIN DATA--\nBunch_Patt_Name   : ****\nBunch_Patt_(hex)  : 7 8\n", 7, 8,
       -1},
      {"colons separate too", "Bunch_Patt_(hex):1:2::3\r\n", 1, 2, 3},
      {"so is white space between blanks", "Bunch_Patt_(hex)  : 1 \v \t\n", 1, 0, 0},
      {"CR behind the last blank is the line end", "Bunch_Patt_(hex)  : 1 2 \r\n", 1, 2, -1},
      {"a word that is no number is zero", "Bunch_Patt_(hex)  : zz 0x10 -1\n", 0, 16, -1},
      {"a cut key", "Bunch: 5\n", 5, -1, -1},
      {"not there", "Species : x\n", -1, -1, -1}};
  for (const auto& c : cases) {
    std::array<std::int32_t, 40> words{};
    words.fill(-1);
    kbpmfio_stream stream;
    open_text(stream, c.text);
    kbpmfio_bunch_patt_input(
        stream, "Bunch_Patt_(hex)  : ", std::array{target(std::span<std::int32_t>{words})});
    EXPECT_EQ(words[39], c.word39) << c.what;
    EXPECT_EQ(words[38], c.word38) << c.what;
    EXPECT_EQ(words[37], c.word37) << c.what;
    EXPECT_EQ(words[36], -1) << c.what;
  }
}

TEST(bunch_pattern, is_written_without_leading_zeros) {
  std::array<std::int32_t, 40> words{};
  words[0] = 0xBEEF;
  words[39] = 1;
  std::string expected = "Bunch_Patt_(hex)  : 1 ";
  for (int i = 0; i < 38; ++i) expected += "0 ";
  EXPECT_EQ(written_by([&](kbpmfio_stream& stream) {
              kbpmfio_bunch_patt_output(stream, "Bunch_Patt_(hex)  : ",
                                        std::array{target(std::span<std::int32_t>{words})});
            }),
            expected + "BEEF \n");
}

TEST(scan_line_output, writes_each_conversion_with_what_follows_it) {
  std::int32_t a = 42, b = -7;
  float f = 31.4159F;
  text_field<8> text{};
  set_text(text, "a b");
  const auto line = [](std::string_view format, std::span<const kbpmfio_target> targets) {
    return written_by([&](kbpmfio_stream& s) { kbpmfio_scan_line_output(s, format, targets); });
  };
  EXPECT_EQ(line("Key : %010d  %04d\n", std::array{target(a), target(b)}),
            "Key : 0000000042  -007\n");
  EXPECT_EQ(line("Key : %3.1f  %f\n", std::array{target(f), target(f)}), "Key : 31.4  31.415899\n");
  EXPECT_EQ(line("%d       %07x\n", std::array{target(a), target(a)}), "42       000002a\n");
  EXPECT_EQ(line("Key : %s\n", std::array{target(std::span<char>{text})}), "Key : a b\n");
  EXPECT_EQ(line("Key : ****", std::array{placeholder}), "Key : ****");
  EXPECT_EQ(line("Key : %d  %d\n", std::array{target(a)}), "Key : 42  ") << "no second target";
}

TEST(time_stamp, is_one_line_whether_or_not_it_brings_its_line_end) {
  text_field<50> stamp{};
  for (const char* text : {"Tue Mar  4\n", "Tue Mar  4"}) {
    set_text(stamp, text);
    EXPECT_EQ(written_by([&](kbpmfio_stream& s) {
                kbpmfio_scan_line_output(s, "Timestamp         : %s",
                                         std::array{target(std::span<char>{stamp})});
              }),
              "Timestamp         : Tue Mar  4\n");
  }
}

TEST(headers, are_written_as_they_were_read) {
  const sample::shape shape;
  const std::string path = sample::written("headers.dat", sample::text(shape));
  ASSERT_EQ(kbpm_read_rawfile_at(path), 0);
  const auto section = [](auto write) {
    return written_by([&](kbpmfio_stream& stream) { write(stream, KBPMFIO_WRITE); });
  };
  // A load leaves the tables at what it read, at the last instrument of it.
  EXPECT_EQ(section(kbpmfio_rw_file_header), sample::file_header(shape));
  EXPECT_EQ(section(kbpmfio_rw_kovr_header), sample::kovr_header());
  kbpmfio_map_file_header(*p_v3_file_header);
  kbpmfio_map_kovr_header(*p_v3_kovr_header);
  kbpmfio_map_instrument_header(p_v3_inst_array[1]);
  EXPECT_EQ(section(kbpmfio_rw_file_header), sample::file_header(shape));
  EXPECT_EQ(section(kbpmfio_rw_kovr_header), sample::kovr_header());
  EXPECT_EQ(section(kbpmfio_rw_instrument_header), sample::instrument_header(shape, 1));
  EXPECT_EQ(section([](kbpmfio_stream& s, std::int32_t mode) {
              return kbpmfio_rw_file_section(s, mode, num_RDV3_raw_data_label_specs,
                                             RDV3_raw_data_label_specs);
            }),
            sample::labels());
  // To the global stream each header gets one more line end.
  EXPECT_EQ(written_by([](kbpmfio_stream& stream) {
              kbpmfio_file_pointer = &stream;
              kbpmfio_write_file_header();
              kbpmfio_write_instrument_header();
              kbpmfio_file_pointer = nullptr;
            }),
            sample::file_header(shape) + "\n" + sample::instrument_header(shape, 1) + "\n");
}

TEST(tables, hold_a_bounds_check_and_count_their_rows) {
  std::int32_t expected = 0;
  for (const auto& row : RDV3_inst_header_specs) EXPECT_EQ(row.field_ID, expected++);
  for (const auto& row : RDV3_raw_data_label_specs) EXPECT_EQ(row.mode, KBPMFIO_WRITE);
  EXPECT_EXIT(kbpmfio_map_addresses_to_field(RDV3_kovr_specs, 3, {}), testing::ExitedWithCode(1),
              "subscript 3 of field table is outside 0..2");
  EXPECT_EXIT(kbpmfio_write_file_header(), testing::ExitedWithCode(1),
              "kbpmfio_file_pointer is used before it is given a value");
}

TEST(a_full_disk, is_told_with_the_file) {
  const auto write = [] {
    kbpmfio_stream stream;
    ASSERT_FALSE(open_for_writing(stream, "/dev/full"));
    put(stream, "text");
    close(stream);
  };
  EXPECT_EXIT(write(), testing::ExitedWithCode(1), "writing /dev/full: No space left on device");
}

TEST(texts, are_stripped_replaced_and_named) {
  std::array<char, 12> text{" \tab c \r\n"};
  EXPECT_EQ(kbpmfio_strip(text), 9);
  EXPECT_STREQ(text.data(), "ab c");
  std::array<char, 3> unended{{' ', 'a', 'b'}};
  testing::internal::CaptureStdout();
  EXPECT_EQ(kbpmfio_strip(unended), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "strip() : String argument is NOT null-terminated!\n");

  EXPECT_EQ(kbpmfio_replace_str("a/online/online", "online", "off"), "a/off/online");
  EXPECT_EQ(kbpmfio_replace_str("abc", "x", "y"), "abc");

  struct {
    std::int32_t run;
    const char* name;
  } const runs[] = {{0, "00/"}, {999, "00/"}, {12345, "12/"}, {99999, "99/"}, {123456, "123/"}};
  for (const auto& r : runs) {
    std::array<char, 10> name{};
    kbpmfio_file_subdir(r.run, name);
    EXPECT_STREQ(name.data(), r.name);
  }
}
