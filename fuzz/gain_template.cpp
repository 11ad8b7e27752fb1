// The template of nominal gains, as a file and through a pipe: the same gains under the same names,
// and of every BPM that has any all of them.
#include "gain_template.hpp"

#include <memory>
#include <string>
#include <string_view>

#include "target.hpp"

namespace {

using namespace gain_template;

struct taken {
  bool whole = false;
  std::unique_ptr<bpm_label_list> names = std::make_unique<bpm_label_list>();
  comment_list comments;
  std::unique_ptr<gain_table0> table0 = std::make_unique<gain_table0>();
  std::unique_ptr<gain_table1> table1 = std::make_unique<gain_table1>();
};

void read_one(const std::string& path, taken& t) {
  file_name name{path};
  t.whole = fuzz::until_the_run_ends(
      [&] { read_kbpmii_button_gain(name, t.comments, *t.table0, *t.table1); });
  *t.names = bpm_names;
}

}  // namespace

void fuzz::read(std::string_view text) {
  // Two megabytes each: made once.
  static auto& file = *new taken;
  static auto& pipe = *new taken;
  read_one(held(text, way::file), file);
  read_one(held(text, way::pipe), pipe);
  check(file.whole == pipe.whole && file.comments.item == pipe.comments.item);
  check(file.names->item == pipe.names->item);
  for (int bpm = 0; bpm <= store::max_bpm; ++bpm) {
    const auto &a = (*file.table0)(bpm), &b = (*file.table1)(bpm);
    if (a.label.trimmed().empty()) continue;
    // A section goes by a name of the list.
    check(bpm_number(a.label.trimmed()) == bpm && a.label == b.label);
    check(same_bits(a.button, (*pipe.table0)(bpm).button));
    check(same_bits(b.button, (*pipe.table1)(bpm).button));
  }
}
