#include "VellumlineService/Service/WorkerPool.h"

#include <system_error>
#include <utility>

namespace vellumline {

WorkerPool::WorkerPool(int threads, int limit)
    : most_(static_cast<size_t>(threads)), limit_(static_cast<size_t>(limit)) {}

WorkerPool::~WorkerPool() {
    finish();
}

bool WorkerPool::post(Job work, Job after) {
    {
        const std::scoped_lock lock(mutex_);
        if (ending_ || (limit_ > 0 && count() >= limit_)) {
            return false;
        }
        if (count() >= threads_.size() && threads_.size() < most_ && !startThread()) {
            return false;
        }
        waiting_.push_back({std::move(work), std::move(after)});
    }
    changed_.notify_one();
    return true;
}

bool WorkerPool::startThread() {
    try {
        threads_.emplace_back([this] { serve(); });
        return true;
    } catch (const std::system_error&) {
        return !threads_.empty(); // The others do it, later.
    }
}

int WorkerPool::load() const {
    const std::scoped_lock lock(mutex_);
    return static_cast<int>(count());
}

void WorkerPool::finish() {
    std::vector<std::thread> ended;
    {
        const std::scoped_lock lock(mutex_);
        ending_ = true;
        ended.swap(threads_);
    }
    changed_.notify_all();
    for (std::thread& thread : ended) {
        thread.join();
    }
}

void WorkerPool::serve() noexcept {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        const Posted job = std::move(waiting_.front());
        waiting_.pop_front();
        ++running_;
        lock.unlock();
        job.work();
        lock.lock();
        --running_;
        lock.unlock();
        if (job.after) {
            job.after();
        }
        lock.lock();
    }
}

} // namespace vellumline
