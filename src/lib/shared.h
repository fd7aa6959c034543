#pragma once

#include <atomic>
#include <mutex>
#include <string>

/**
 * A scalar that one thread writes while others read it. It reads and writes like the plain value and can be
 * copied with the record it stands in.
 */
template <class T>
class shared {
public:
    constexpr shared(T initial = T{})
        : value(initial) {} // NOLINT(google-explicit-constructor): like a plain T
    shared(const shared& other) : value(other.value.load()) {}
    shared& operator=(const shared& other) {
        value = other.value.load();
        return *this;
    }
    T operator=(T next) { return value = next; }
    operator T() const { return value; }

private:
    std::atomic<T> value;
};

/**
 * A text that one thread writes while others read it. All of them share one guard, which is held for the copy
 * of a string only, never across a blocking call, and only while the thread can't be terminated.
 */
class sharedText {
public:
    sharedText() = default;
    sharedText(const sharedText& other) : text(other.get()) {}
    sharedText& operator=(const sharedText& other) { return *this = other.get(); }
    sharedText& operator=(const std::string& next) {
        const std::lock_guard<std::mutex> held(guard());
        text = next;
        return *this;
    }
    std::string get() const {
        const std::lock_guard<std::mutex> held(guard());
        return text;
    }
    operator std::string() const { return get(); }

private:
    static std::mutex& guard() {
        static std::mutex one;
        return one;
    }
    std::string text;
};
