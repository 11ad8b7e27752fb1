// A host program with decimal commas: the files keep their points.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "kbpm_read_rawfile.hpp"
#include "kbpmfio_stream.hpp"
#include "sample_text.hpp"

namespace {

using namespace rawfile;

// The German locale for the whole process, made in the scratch directory: not every machine has it.
struct decimal_commas {
  decimal_commas() {
    const std::string place = sample::scratch_directory() + "locale";
    const std::string make = "mkdir -p " + place + " && localedef --no-archive -i de_DE -f UTF-8 " +
                             place + "/de_DE.UTF-8";
    if (std::system(make.c_str()) != 0) return;  // NOLINT(*-env33-c): the tool's own command
    setenv("LOCPATH", place.c_str(), 1);
    std::setlocale(LC_ALL, "de_DE.UTF-8");
  }
  decimal_commas(const decimal_commas&) = delete;
  decimal_commas& operator=(const decimal_commas&) = delete;
  ~decimal_commas() { std::setlocale(LC_ALL, "C"); }
};

}  // namespace

TEST(decimal_commas_of_the_host, change_nothing_in_a_file) {
  const decimal_commas set;
  ASSERT_STREQ(std::localeconv()->decimal_point, ",") << "is the package locales installed?";
  const sample::shape shape{1, 1, 1};
  ASSERT_EQ(kbpm_read_rawfile_at(sample::written("points.dat", sample::text(shape))), 0);
  EXPECT_EQ(p_v3_kovr_header->mA_current, 1.25F);
  EXPECT_EQ(p_v3_inst_array[0].pedestals(0, 1), -2.25F);
  EXPECT_EQ(p_v3_inst_array[0].vert_coeff, 19.6F);

  const std::string path = sample::scratch_directory() + "written_points.dat";
  kbpmfio_stream stream;
  ASSERT_FALSE(open_for_writing(stream, path));
  kbpmfio_map_instrument_header(p_v3_inst_array[0]);
  kbpmfio_rw_instrument_header(stream, KBPMFIO_WRITE);
  close(stream);
  std::ostringstream written;
  written << std::ifstream{path}.rdbuf();
  EXPECT_EQ(written.str(), sample::instrument_header(shape, 0));
  EXPECT_STREQ(std::localeconv()->decimal_point, ",") << "the host's own setting stays";
}
