#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace vellumline {

/// Does jobs on threads of its own, in the order in which they came, with a bound on how many there may be.
///
/// Standard threads and locks instead of QThreadPool: ThreadSanitizer sees what they put in order, and the
/// locks of Debian's Qt it does not.
///
/// Threads: `post` and `load` may be called from any thread, also out of a job. A thread is started when a
/// job comes and every other one is spoken for, and stays until the end: what a job keeps for its thread, a
/// connection to a database, is not made more often than needed.
///
/// Errors: a job that throws ends the program, as any exception that leaves a thread does: nobody could say
/// what it left half done.
///
/// End: `finish`, or the destructor, lets every accepted job be done, takes no further one, and returns when
/// the threads, with all that is local to them, are gone.
class WorkerPool {
  public:
    using Job = std::function<void()>;

    /// At most `threads` (one or more) at once. No more than `limit` jobs may wait or run; 0 is no limit.
    WorkerPool(int threads, int limit);
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;
    ~WorkerPool();

    /// Has `work` done, and then `after`, which the limit no longer counts: whoever learns from `after` that
    /// the work is done may post again at once. False, and neither is ever called, when there are as many
    /// jobs as there may be, when the pool ends, or when the system has not a single thread for it.
    bool post(Job work, Job after = {});
    /// How many jobs wait or run.
    int load() const;
    /// Not out of a job, which would wait for itself.
    void finish();

  private:
    struct Posted {
        Job work;
        Job after;
    };

    bool startThread();
    void serve() noexcept;
    size_t count() const { return waiting_.size() + running_; }

    const size_t most_;
    const size_t limit_;
    mutable std::mutex mutex_; ///< Of all that follows.
    std::condition_variable changed_;
    std::deque<Posted> waiting_;
    std::vector<std::thread> threads_;
    size_t running_ = 0;
    bool ending_ = false;
};

} // namespace vellumline
