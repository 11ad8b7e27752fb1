// Answers given before their questions: by options of the command line, by a default where nobody is
// asked (batch), or by the record of an earlier run that is repeated.
//
// The one place that asks (terminal.cpp) looks here first. A question that is answered from here is
// printed as ever, followed by the answer and a line end, so that the transcript reads like one of a
// person at a terminal; the answer then goes the way of a typed one. Who refuses it asks again, and
// is answered from here once more only in the next round: an answer that does not do can never loop.
#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fault.hpp"

namespace util {

/// How an answer came about. One from a pipe stands nowhere in the transcript, all others do.
enum class given_by { terminal, pipe, option, by_default };

/// A question that was asked, and its answer.
struct given_answer {
  std::string question;  ///< as shown, without its outer blanks
  std::string answer;
  given_by by = given_by::pipe;
};

/// A question that can be answered beforehand.
struct known_question {
  std::string begins;  ///< how it begins, without its outer blanks; defaults may follow
  std::string option;  ///< what answers it, for messages: "--run"
  /// None: it is asked. One: it serves every round. Several: the n-th serves round n.
  std::vector<std::string> answers{};
  /// What is answered in batch where there is no other answer; nothing: batch cannot go on.
  std::optional<std::string> by_default{};
  bool asked = false;         ///< it came up, however it was answered
  int answered_in = 0;        ///< the round in which it was last answered from here
  std::string last_answer{};  ///< and how
};

/// The answers of an earlier run, one behind the other.
struct recorded_dialog {
  std::string file;  ///< where they stand, for messages
  std::vector<given_answer> answers;
  std::size_t next = 0;
};

/// All that is known before the first question.
struct prepared_dialog {
  std::vector<known_question> questions{};
  /// A round (one data set) ends when the question that begins so has been asked; empty: never.
  std::string round_ends{};
  bool batch = false;                         ///< nobody is asked
  std::optional<recorded_dialog> recorded{};  ///< takes the place of all above
  int round = 1;                              ///< of the dialog so far
};

/// What the dialog finds prepared; set before its first question.
inline prepared_dialog prepared;

/// Every question so far with its answer, typed ones too, in the order asked.
inline std::vector<given_answer> answers_given;

/// The next answer.
/// given    question  as shown, without its outer blanks
/// returns  the answer, or nothing when the question is to be asked; `dialog` remembers both
/// errors   the fault, whose line says which option helps: in batch a question without answer and
///          default, and one that is asked twice in a round; of a recorded run a question that is
///          not the recorded one, and one behind its last. Questions are compared without the
///          default that they show
outcome<std::optional<given_answer>> prepared_answer(prepared_dialog& dialog,
                                                     std::string_view question);

/// The options whose answers no question wanted so far.
std::vector<std::string> options_not_asked(const prepared_dialog& dialog);

}  // namespace util
