#include "jobs.hpp"

#include <malloc.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "run_time.hpp"

namespace util {
namespace {

/// What the threads of one list share; `mutex` guards it.
struct shared_list {
  explicit shared_list(const ordered_work& all)
      : work(all), made(all.count), fault(all.count), holds(all.count) {}
  const ordered_work& work;
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t next = 0;   // nobody has begun it
  std::size_t taken = 0;  // all before it are
  std::vector<char> made;
  std::vector<std::exception_ptr> fault;  // that the making of it threw
  std::vector<std::size_t> holds;         // [bytes]
  std::size_t held = 0;                   // by all that are made and not taken
  std::size_t limit = 0;
  bool no_more = false;
};

// The one that is taken next may always begin: else a list of large ones would stand still.
bool may_begin(const shared_list& list) {
  return !list.no_more && list.next < list.work.count &&
         (list.held < list.limit || list.next == list.taken);
}

bool all_begun(const shared_list& list) { return list.no_more || list.next == list.work.count; }

// Makes the next one. The lock is open meanwhile.
void make_next(shared_list& list, std::unique_lock<std::mutex>& lock) {
  const std::size_t i = list.next++;
  lock.unlock();
  std::size_t bytes = 0;
  try {
    bytes = list.work.make(i);
  } catch (...) {
    list.fault[i] = std::current_exception();
  }
  lock.lock();
  list.made[i] = 1;
  list.holds[i] = bytes;
  list.held += bytes;
  list.changed.notify_all();
}

void help(shared_list& list) {
  postpone_end = true;
  std::unique_lock lock(list.mutex);
  while (!all_begun(list)) {
    if (may_begin(list)) {
      make_next(list, lock);
    } else {
      list.changed.wait(lock);
    }
  }
}

void take_next(shared_list& list, std::unique_lock<std::mutex>& lock) {
  const std::size_t i = list.taken;
  lock.unlock();
  if (list.fault[i]) end_as_postponed(list.fault[i]);
  list.work.take(i);
  lock.lock();
  list.held -= list.holds[i];
  ++list.taken;
  list.changed.notify_all();
}

void lead(shared_list& list) {
  std::unique_lock lock(list.mutex);
  for (;;) {
    if (!list.no_more && list.work.stop && list.work.stop()) {
      list.no_more = true;
      list.changed.notify_all();
    }
    if (list.taken < list.next && list.made[list.taken] != 0) {
      take_next(list, lock);
    } else if (may_begin(list)) {
      const bool before = std::exchange(postpone_end, true);
      make_next(list, lock);
      postpone_end = before;
    } else if (list.taken < list.next) {
      list.changed.wait(lock);
    } else {
      return;  // what was begun is taken, and no more will be
    }
  }
}

// What a thread has freed stays with the heap that it had to itself: the others' find no use for it.
void give_back_memory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

// Starts a thread that no signal interrupts: they are the caller's, whose loop looks for them.
std::thread quiet_thread(std::function<void()> work) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread made;
  try {
    made = std::thread(std::move(work));
  } catch (const std::system_error&) {
    // No thread: whoever wanted one goes on without.
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return made;
}

/// The threads beside the caller's; waited for, whatever happens.
struct crew {
  shared_list& list;
  std::vector<std::thread> thread;
  crew(shared_list& of, unsigned count) : list(of) {
    for (unsigned i = 0; i < count; ++i) {
      std::thread made = quiet_thread([this] { help(list); });
      if (!made.joinable()) break;
      thread.push_back(std::move(made));
    }
  }
  crew(const crew&) = delete;
  crew& operator=(const crew&) = delete;
  ~crew() {
    {
      const std::lock_guard lock(list.mutex);
      list.no_more = true;
    }
    list.changed.notify_all();
    for (std::thread& one : thread) one.join();
    if (!thread.empty()) give_back_memory();
  }
};

}  // namespace

unsigned all_cores() { return std::max(1U, std::thread::hardware_concurrency()); }

void use_jobs(unsigned threads) {
  jobs = threads;
#ifdef __GLIBC__
  // Eight threads share a heap: each with one of its own would keep what it freed last, two
  // megabytes, and ask for memory too seldom to wait for the others.
  constexpr unsigned threads_of_heap = 8;
  mallopt(M_ARENA_MAX, static_cast<int>(1 + (threads - 1) / threads_of_heap));
#endif
}

std::size_t make_in_order(const ordered_work& work, unsigned threads) {
  constexpr std::size_t held_by_thread = std::size_t{128} * 1024;
  shared_list list(work);
  list.limit = std::max(1U, threads) * held_by_thread;
  const std::size_t useful = std::min<std::size_t>(threads, work.count);
  const crew helpers(list, useful > 1 ? static_cast<unsigned>(useful) - 1 : 0);
  lead(list);
  return list.taken;
}

void side_by_side(std::size_t count, unsigned threads,
                  const std::function<void(std::size_t)>& work) {
  std::vector<std::exception_ptr> fault(count);
  const auto make = [&](std::size_t i) {
    try {
      work(i);
    } catch (...) {
      fault[i] = std::current_exception();
    }
    return std::size_t{0};
  };
  make_in_order({.count = count, .make = make, .take = [](std::size_t) {}, .stop = {}}, threads);
  for (const std::exception_ptr& one : fault) {
    if (one) end_as_postponed(one);
  }
}

struct meanwhile::running {
  std::thread thread;
};

meanwhile::meanwhile(bool wanted, std::function<void()> work)
    : running_(std::make_unique<running>()) {
  if (!wanted) return;
  running_->thread = quiet_thread([work = std::move(work)] {
    postpone_end = true;
    try {
      work();
    } catch (...) {
      // Made where it is needed, which meets the same fault and tells it.
    }
  });
}

meanwhile::~meanwhile() {
  if (!running_->thread.joinable()) return;
  running_->thread.join();
  give_back_memory();
}

}  // namespace util
