// A program that only reads raw files: linked with that library alone (library_user.py).
//     rawfile_user FILE
#include <cstdio>

#include "kbpm_rawfile.hpp"
#include "kbpm_read_rawfile.hpp"

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const int status = rawfile::kbpm_read_rawfile_from_fullfilename(arguments[1]);
  std::printf("status %d, %d instruments\n", status, rawfile::kbpm_rawfile_num_instruments());
}
