// Files as records: several at once, faults as values, nothing printed.
#include "raw_file.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "kbpm_read_rawfile.hpp"
#include "sample_text.hpp"

namespace {

using namespace rawfile;

std::string with(const std::string& text, std::string_view from, std::string_view to) {
  std::string changed = text;
  return changed.replace(changed.find(from), from.size(), to);
}

// A number that every byte of a file's readings and positions goes into.
std::uint64_t digest(const raw_file& file) {
  std::uint64_t sum = file.instruments.size();
  const auto add = [&sum](auto values) {
    for (const std::byte b : std::as_bytes(values)) sum = (sum * 31) + std::to_integer<unsigned>(b);
  };
  for (const RDV3_INST_DATA& d : file.instruments) {
    add(d.phase_words);
    for (const auto& raw : {d.TIraw, d.BIraw, d.BOraw, d.TOraw}) add(raw);
    for (const auto& position : {d.Xpos, d.Ypos}) add(position);
  }
  return sum;
}

}  // namespace

TEST(two_files, are_held_side_by_side_and_beside_the_process_own) {
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("own.dat", sample::text({4, 1, 2}))), 0);
  const auto first = read_raw_file(sample::written("one.dat", sample::text({3, 2, 4, 11})));
  auto second = read_raw_file(sample::written("two.dat", sample::text({1, 1, 5, 22})));
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->file_header.file_id, 11);
  EXPECT_EQ(second->file_header.file_id, 22);
  EXPECT_EQ(instrument_of(*first, " 3W ")->TIraw[0], 1016);
  EXPECT_EQ(instrument_of(*second, "3W"), nullptr);
  EXPECT_EQ(p_v3_file_header->num_instruments, 4);
  EXPECT_EQ(bunches_enabled(first->file_header), (std::vector<std::int32_t>{1, 2}));

  // A record that moves takes its arrays along.
  const std::int32_t* readings = second->instruments[0].TIraw.data();
  const raw_file moved = std::move(*second);
  EXPECT_EQ(moved.instruments[0].TIraw.data(), readings);
  EXPECT_EQ(moved.instruments[0].TIraw[4], 1004);
}

TEST(files, read_on_four_threads_are_those_read_on_one) {
  std::vector<std::string> paths;
  std::vector<std::uint64_t> expected;
  for (int i = 0; i < 8; ++i) {
    paths.push_back(sample::written("thread" + std::to_string(i), sample::text({3, 1 + i, 700})));
    expected.push_back(digest(*read_raw_file(paths.back())));
  }
  EXPECT_NE(expected[0], expected[1]);
  std::vector<std::uint64_t> found(paths.size());
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t i = t; i < paths.size(); i += 4) found[i] = digest(*read_raw_file(paths[i]));
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(found, expected);
}

TEST(a_fault, is_a_value_with_its_place) {
  const std::string whole = sample::text({1, 2, 2});
  const struct {
    const char* what;
    std::string text;
    const char* line;  // behind the path
  } cases[] = {
      {"timing block", with(whole, "--BEGIN DATA--\n0", "--BEGIN DATA--\n7"),
       ":54: instrument 1W, data line 1: timing block 7, expected 0 or 1"},
      {"counts", with(whole, "Turns   : 2", "Turns   : 2000000000"),
       ": Number_of_Turns : 2000000000: more data lines than 32 bits can count"},
      {"no instruments", "", ": Num_Instruments : 0, expected 1 to 120"},
      {"too many instruments", with(whole, "Num_Instruments   : 1", "Num_Instruments   : 121"),
       ": Num_Instruments : 121, expected 1 to 120"},
      {"no bunches", with(whole, "Number_of_Bunches : 2", "Number_of_Bunches : 0"),
       ": Number_of_Bunches : 0, expected at least 1"}};
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const auto& c : cases) {
    const std::string path = sample::written("fault.dat", c.text);
    const auto file = read_raw_file(path);
    EXPECT_FALSE(file) << c.what;
    EXPECT_EQ(util::line_of(file.why), path + c.line) << c.what;
  }
  EXPECT_EQ(util::line_of(read_raw_file("/no/such/file").why),
            "/no/such/file: No such file or directory");
  EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
}
