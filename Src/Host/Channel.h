/// \file Channel.h
/// A bounded queue between two threads.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace host {

/// One thread sends, one receives. The sender ends with Finish, or with Fail, which the receiver
/// gets as an exception after what was sent before. A receiver that gives up calls Abandon.
template<class T>
class Channel {
public:
    explicit Channel(std::size_t capacity) : capacity(capacity) {}

    /// Waits for room; false when nobody will receive.
    bool Send(T item) {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return items.size() < capacity || abandoned; });
        if (abandoned)
            return false;
        items.push_back(std::move(item));
        changed.notify_all();
        return true;
    }

    void Finish() { Fail(nullptr); }

    void Fail(const std::exception_ptr &reason) {
        const std::lock_guard guard(lock);
        finished = true;
        failure = reason;
        changed.notify_all();
    }

    /// Waits for an item; nothing when the sender has finished.
    std::optional<T> Receive() {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return !items.empty() || finished; });
        if (items.empty()) {
            if (failure)
                std::rethrow_exception(std::exchange(failure, nullptr));
            return {};
        }
        std::optional<T> item = std::move(items.front());
        items.pop_front();
        changed.notify_all();
        return item;
    }

    void Abandon() {
        const std::lock_guard guard(lock);
        abandoned = true;
        changed.notify_all();
    }

private:
    const std::size_t capacity;
    std::mutex lock;
    std::condition_variable changed;
    std::deque<T> items;
    std::exception_ptr failure;
    bool finished = false;
    bool abandoned = false;
};

/// Runs the work in a thread of its own; what it throws arrives at the receiver of its channel.
template<class Item, class Job>
std::jthread Stage(Channel<Item> &output, Job job) {
    return std::jthread([&output, job] {
        try {
            job();
            output.Finish();
        } catch (...) {
            output.Fail(std::current_exception());
        }
    });
}

} // namespace host
