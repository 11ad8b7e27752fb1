#include "orbit_store.hpp"

#include <gtest/gtest.h>

namespace {

TEST(orbit_store, untouched_entries_read_as_zero_and_take_no_memory) {
  const store::orbit_store s{"orbit_data"};
  EXPECT_EQ(s(3000).detector(5000).button(4), 0);
  EXPECT_FALSE(s.holds(5000));
  EXPECT_TRUE(s.column(17, 3000).empty());
}

TEST(orbit_store, one_bpm_is_contiguous_and_stays_where_it_is) {
  store::orbit_store s{"orbit_data"};
  s.edit(1, 12).x = 1.5;
  const store::bpm_struct* first = s.column(12, 1).data();
  s.edit(3000, 12).button(2) = 7;
  s.edit(1, 5000).x = 2;  // makes room for later BPMs
  EXPECT_EQ(s.column(12, 3000).data(), first);
  EXPECT_EQ(s.column(12, 3000)[2999].button(2), 7);
  EXPECT_EQ(s(1).detector(12).x, 1.5);
  EXPECT_EQ(s(2).detector(12).x, 0);
}

TEST(orbit_store, a_column_taken_over_is_gone_from_where_it_was) {
  store::orbit_store from{"orbit_data"};
  store::orbit_store to{"orbit_data_save"};
  from.edit(4, 9).button(1) = 11;
  to.edit(1, 8).x = 3;
  to.take_column(from, 9);
  to.take_column(from, 8);
  EXPECT_EQ(to(4).detector(9).button(1), 11);
  EXPECT_FALSE(from.holds(9));
  EXPECT_FALSE(to.holds(8));
}

TEST(orbit_store_death, bounds_are_named) {
  store::orbit_store s{"orbit_data"};
  EXPECT_EXIT(s.edit(3001, 1), testing::ExitedWithCode(1),
              "subscript 3001 of orbit_data is outside 1\\.\\.3000");
  EXPECT_EXIT(static_cast<void>(s(1).detector(5001)), testing::ExitedWithCode(1),
              "subscript 5001 of detector is outside 0\\.\\.5000");
  EXPECT_EXIT(s.column(1, 3001), testing::ExitedWithCode(1), "3001 of orbit_data");
}

}  // namespace
