/// A bounded queue between two threads of a pipeline.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

namespace lumivert::tool {

template <typename T>
class Queue {
public:
    explicit Queue(size_t capacity) : capacity_(capacity) {}

    /// Waits for room. False if the queue was closed.
    bool push(T item) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return closed_ || items_.size() < capacity_; });
        if (closed_) return false;
        items_.push_back(std::move(item));
        changed_.notify_all();
        return true;
    }

    /// Waits for an item. Nothing once the queue is closed and empty.
    std::optional<T> pop() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return closed_ || !items_.empty(); });
        if (items_.empty()) return std::nullopt;
        T item = std::move(items_.front());
        items_.pop_front();
        changed_.notify_all();
        return item;
    }

    /// Accepts no more items. `pop` still returns the queued ones.
    void close() {
        std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

private:
    const size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<T> items_;
    bool closed_ = false;
};

} // namespace lumivert::tool
