// A program that loads data sets: linked with that library alone (library_user.py).
//     tbt_user RUN
#include <cstdio>
#include <cstdlib>

#include "tbt_mod.hpp"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  tbt_mod::tbt_all_data_struct set;
  bool failed = true;
  tbt_mod::tbt_read_data_file(std::atoi(arguments[1]), 3, true, set, failed);
  std::printf("%zu bunches\n", set.bunch.size());
  return failed ? 1 : 0;
}
