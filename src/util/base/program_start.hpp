// What every program of the house does first: from then on nothing that the system does to it ends
// it without a word.
//
// | what happens                               | what then                                         |
// |--------------------------------------------|---------------------------------------------------|
// | no memory left                             | "run-time error: out of memory", files closed, 1   |
// | an exception that nobody caught            | one line with what it says, files closed, 1        |
// | nobody reads the output any more           | writing fails: "Broken pipe", as any failed write  |
// | a file reaches the limit of its size       | writing fails: "File too large"                    |
// | Ctrl-C, SIGTERM, SIGHUP                    | it dies of them as ever; scratch files go with it  |
// | started without standard streams           | using them fails: "Bad file descriptor"; no file   |
// |                                            | that is opened later can take their place          |
#pragma once
#include <string_view>

namespace util {

/// Sets program_name and the above. To be called before anything else; a library never calls it.
/// errors   none
void start_program(std::string_view name);

/// A signal that ends the process takes its scratch files along. One that is ignored or handled
/// stays so.
void clean_up_at(int number);

}  // namespace util
