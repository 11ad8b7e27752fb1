#include "prepared_answers.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "text.hpp"

namespace util {
namespace {

using found = outcome<std::optional<given_answer>>;

// A default that a question shows, between these: where it begins is where the question ends.
constexpr std::array<std::pair<std::string_view, std::string_view>, 2> default_marks{
    {{"(def = ", ")"}, {"<CR = ", ">:"}}};

struct question_parts {
  std::string_view stem;      // the question itself
  std::string_view fallback;  // the default that it shows; empty when there is none
};

// What an empty answer means may change from one run to the next (the newest run), the question not.
question_parts parts_of(std::string_view question) {
  for (const auto& [begin, end] : default_marks) {
    // From the front: questions are ours, a default can be the name of a file and hold anything.
    const std::size_t at = question.find(begin);
    if (at == std::string_view::npos) continue;
    const std::string_view behind = question.substr(at + begin.size());
    return {trim(question.substr(0, at)), behind.substr(0, behind.rfind(end))};
  }
  return {question, {}};
}

found next_recorded(recorded_dialog& recorded, std::string_view question) {
  if (recorded.next == recorded.answers.size()) {
    return fault{fmt::format("no answer is recorded to \"{}\"", question), recorded.file, {}};
  }
  given_answer answer = recorded.answers[recorded.next];
  const question_parts then = parts_of(answer.question);
  const question_parts now = parts_of(question);
  if (then.stem != now.stem) {
    return fault{fmt::format("asked is \"{}\"", now.stem), recorded.file,
                 fmt::format("the recorded question \"{}\"", then.stem)};
  }
  ++recorded.next;
  // Return was pressed for another default than would be taken now: what it was is said in full.
  if (trim(answer.answer).empty() && !then.fallback.empty() && then.fallback != now.fallback) {
    answer.answer = then.fallback;
  }
  answer.question = question;
  return std::optional{answer};
}

// The option's answer in this round; null when there is none.
const std::string* answer_in(const known_question& known, int round) {
  if (known.answers.size() == 1) return known.answers.data();
  const auto place = static_cast<std::size_t>(round - 1);
  return place < known.answers.size() ? &known.answers[place] : nullptr;
}

found asked_again(const known_question& known) {
  return fault{fmt::format(R"("{}" is asked again after the answer "{}"; give another with {})",
                           known.begins, shown(known.last_answer), known.option),
               {},
               {}};
}

found answer_known(known_question& known, bool batch, int round, std::string_view question) {
  known.asked = true;
  // A second time in a round: the answer did not do, and would not do again. A person is asked,
  // where there is one.
  if (known.answered_in == round) {
    if (batch) return asked_again(known);
    return std::optional<given_answer>{};
  }
  const std::string* given = answer_in(known, round);
  const bool from_option = given != nullptr;
  // Defaults are for batch: a person is shown the question instead.
  if (!from_option && batch && known.by_default) given = &*known.by_default;
  if (given == nullptr && !batch) return std::optional<given_answer>{};
  if (given == nullptr) {
    return fault{
        fmt::format("\"{}\" has no answer; give one with {}", known.begins, known.option), {}, {}};
  }
  known.answered_in = round;
  known.last_answer = *given;
  return std::optional{given_answer{std::string{question}, *given,
                                    from_option ? given_by::option : given_by::by_default}};
}

}  // namespace

found prepared_answer(prepared_dialog& dialog, std::string_view question) {
  // A record answers everything and options nothing: with both, nobody could tell which one counts.
  if (dialog.recorded) return next_recorded(*dialog.recorded, question);
  // The round of this answer: the question that ends a round is still part of it.
  const int round = dialog.round;
  if (!dialog.round_ends.empty() && question.starts_with(dialog.round_ends)) ++dialog.round;
  for (known_question& known : dialog.questions) {
    if (question.starts_with(known.begins)) {
      return answer_known(known, dialog.batch, round, question);
    }
  }
  if (dialog.batch) {
    return fault{fmt::format("\"{}\" has no answer, and no option gives one", question), {}, {}};
  }
  return std::optional<given_answer>{};
}

std::vector<std::string> options_not_asked(const prepared_dialog& dialog) {
  std::vector<std::string> unused;
  for (const known_question& known : dialog.questions) {
    // Two questions may share an option, as a run and the end of its data set do: named once.
    const bool listed = std::find(unused.begin(), unused.end(), known.option) != unused.end();
    if (!known.answers.empty() && !known.asked && !listed) unused.push_back(known.option);
  }
  return unused;
}

}  // namespace util
