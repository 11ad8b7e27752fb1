// The interactive half of the dialog: line editing, history and file-name completion for a person
// at a terminal. On a pipe none of this runs, and input and output are plain bytes.
//
// Tab completes where an answer is the name of a file, also below a leading $NAME such as
// $KOVR_ONLINE/; elsewhere it only beeps. Pasted lines are separate answers. Ctrl-C at a question
// keeps its default action; the terminal is put right first. The last 500 answers are kept in
// $XDG_STATE_HOME/butngain/history (else ~/.local/state/...); a history that cannot be kept is no
// fault.
#pragma once
#include <optional>
#include <string>

#include "terminal.hpp"

namespace util {

/// Whether questions get line editing: standard input and output are terminals, and the
/// environment variable TERM names one that can do more than print.
bool editing_possible();

/// Shows the prompt and reads one edited line. Nothing at end of input (Ctrl-D on an empty line);
/// the cursor then still stands behind the prompt.
std::optional<std::string> edited_line(const std::string& prompt, answer_kind kind);

}  // namespace util
