// calibrate_many: BPMs go to whichever thread is free. The caller's thread does none of the work:
// it tells the progress, so that whoever waits for it can stop the work at any time.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "butngain/calibration.hpp"
#include "input_of_bpm.hpp"
#include "interior.hpp"

namespace butngain {
namespace {

using namespace std::chrono_literals;
constexpr auto between_calls = 100ms;  // of the progress procedure, when no BPM is done

/// What the threads share; `mutex` guards it.
struct shared_work {
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t next = 0;  // BPM that nobody has begun
  std::size_t done = 0;
  bool stop = false;         // begin no more
  std::exception_ptr fault;  // the first one of a thread
};

void work_through(std::span<const calibration_input> inputs, std::vector<calibration>& made,
                  shared_work& work) {
  for (;;) {
    std::size_t i = 0;
    {
      const std::lock_guard lock(work.mutex);
      if (work.stop || work.next == inputs.size()) return;
      i = work.next++;
    }
    try {
      made[i] = calibrate_checked(inputs[i]);
      const std::lock_guard lock(work.mutex);
      ++work.done;
    } catch (...) {
      const std::lock_guard lock(work.mutex);
      if (!work.fault) work.fault = std::current_exception();
      work.stop = true;
    }
    work.changed.notify_one();
  }
}

/// Threads that are waited for, whatever happens; the BPMs in work are then finished.
struct crew {
  shared_work& work;
  std::vector<std::thread> thread;
  explicit crew(shared_work& shared) : work(shared) {}
  crew(const crew&) = delete;
  crew& operator=(const crew&) = delete;
  ~crew() {
    {
      const std::lock_guard lock(work.mutex);
      work.stop = true;
    }
    for (std::thread& one : thread) one.join();
  }
};

void wait_and_tell(shared_work& work, std::size_t of, const progress& tell) {
  for (;;) {
    std::size_t done = 0;
    {
      std::unique_lock lock(work.mutex);
      const std::size_t before = work.done;
      work.changed.wait_for(lock, between_calls, [&] { return work.fault || work.done != before; });
      if (work.fault) std::rethrow_exception(work.fault);
      done = work.done;
    }
    // Not with the lock held: the procedure is somebody else's and may take its time.
    tell_progress(tell, done, of);
    if (done == of) return;
  }
}

}  // namespace

std::vector<calibration> calibrate_many(std::span<const calibration_input> inputs, unsigned threads,
                                        const progress& tell) {
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    check_input(inputs[i], "inputs[" + std::to_string(i) + "].");
  }
  std::vector<calibration> made(inputs.size());
  if (inputs.empty()) return made;
  const std::size_t wanted =
      threads > 0 ? threads : std::max(1U, std::thread::hardware_concurrency());
  shared_work work;
  crew workers(work);
  for (std::size_t i = 0; i < std::min(wanted, inputs.size()); ++i) {
    workers.thread.emplace_back([&] { work_through(inputs, made, work); });
  }
  wait_and_tell(work, inputs.size(), tell);
  return made;
}

}  // namespace butngain
