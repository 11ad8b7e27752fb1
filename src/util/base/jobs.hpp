// jobs: work on several threads whose outcome is that of one.
//
// BPMs, files and pictures are made on whichever thread is free. What is printed and written stays
// with the thread that called, in the order of the list, so that every byte is the same however many
// threads there are. The caller's thread takes part: with one nothing is started at all.
//
// On the threads, and in `postponed` stretches of the caller's own, a fault that would end the run
// (run_time_error, no memory) is thrown instead: only who called may end it, when the order comes to
// that place.
#pragma once
#include <cstddef>
#include <functional>
#include <memory>

namespace util {

/// Threads that a long step of this process may use, the caller's included.
inline unsigned jobs = 1;

/// Sets it: by the command line, before the first thread begins.
void use_jobs(unsigned threads);

/// Cores that this process may run on, at least 1.
unsigned all_cores();

/// A list of work that is made side by side and taken one after the other.
struct ordered_work {
  std::size_t count = 0;
  /// Makes number i, on any thread. Returns the bytes that it holds until it is taken. What it throws
  /// ends the list, when it is number i's turn, by end_as_postponed.
  std::function<std::size_t(std::size_t i)> make;
  /// Takes number i, on the caller's thread: 0, 1, 2 and so on.
  std::function<void(std::size_t i)> take;
  /// Asked between two, on the caller's thread: true ends the list. What is begun by then is still
  /// made and taken. May be empty.
  std::function<bool()> stop;
};

/// Makes and takes the list.
/// returns  how many were taken
/// note     what waits to be taken holds a quarter of a megabyte a thread, or one number
/// note     where the system gives fewer threads, fewer work
std::size_t make_in_order(const ordered_work& work, unsigned threads);

/// Calls work(i) for 0..count - 1 on up to so many threads; returns when all are done.
/// errors   what a call throws, run-time errors included, is thrown again here: of several calls that
///          of the smallest i. The others are made all the same
void side_by_side(std::size_t count, unsigned threads,
                  const std::function<void(std::size_t)>& work);

/// Something that is made while the caller goes on, and waited for when this goes out of scope.
/// note     a fault ends it quietly, and so does a system that gives no thread: for work that is
///          made later, where it is needed, when it is not there
class meanwhile {
 public:
  /// given    wanted  false: it is not begun
  meanwhile(bool wanted, std::function<void()> work);
  meanwhile(const meanwhile&) = delete;
  meanwhile& operator=(const meanwhile&) = delete;
  ~meanwhile();

 private:
  struct running;
  std::unique_ptr<running> running_;
};

}  // namespace util
