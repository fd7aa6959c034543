#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>

/** What `shared` is made of. */
template <class T>
class sharedCell {
public:
    constexpr sharedCell(T initial = T{})
        : value(initial) {} // NOLINT(google-explicit-constructor): like a plain T
    sharedCell(const sharedCell& other) : value(other.value.load()) {}
    sharedCell& operator=(const sharedCell& other) {
        value = other.value.load();
        return *this;
    }
    T operator=(T next) { return value = next; }
    operator T() const { return value; }

    // One step each, whatever other threads do meanwhile.
    T operator+=(T by) {
        return change([by](T now) { return now + by; });
    }
    T operator-=(T by) {
        return change([by](T now) { return now - by; });
    }
    T operator|=(T bits) {
        return change([bits](T now) { return now | bits; });
    }
    T operator&=(T bits) {
        return change([bits](T now) { return now & bits; });
    }
    T operator++() { return *this += T{1}; }
    T operator--() { return *this -= T{1}; }
    T operator++(int) { return static_cast<T>(++*this - 1); }
    T operator--(int) { return static_cast<T>(--*this + 1); }

private:
    template <class F>
    T change(F next) {
        T now = value;
        while (!value.compare_exchange_weak(now, static_cast<T>(next(now)))) {
        }
        return static_cast<T>(next(now));
    }

    std::atomic<T> value;
};

/**
 * A scalar that one thread writes while others read it. It reads and writes like the plain value and can be
 * copied with the record it stands in.
 *
 * An aggregate, and not made of a T by itself: so `condition ? field : value` knows that a T is meant, and a
 * record of such fields can still be listed as one of plain ones.
 */
template <class T>
struct shared : sharedCell<T> {
    using sharedCell<T>::operator=;
};

/** What a text can be compared with; false for a sharedText, which has no characters to look at in place. */
template <class T>
concept plainText = std::is_convertible_v<const T&, std::string_view>;

/** What can become part of a text. */
template <class T>
concept textPart = plainText<T> || std::is_same_v<T, char>;

/**
 * A text that one thread writes while others read it. It reads and writes like a std::string, except that
 * nothing refers into it: characters and results are copies, and for a loop over the characters one takes
 * get(). Made of a literal, but not of a std::string by itself (assign it), so that
 * `condition ? field : text` has one meaning.
 *
 * All of them share one guard, which is held for the copy of a string only, never across a blocking call, and
 * only while the thread can't be terminated.
 */
class sharedText {
public:
    static constexpr std::size_t npos = std::string::npos;

    sharedText() = default;
    sharedText(const char* initial) : text(initial) {} // NOLINT(google-explicit-constructor): like a string
    sharedText(const sharedText& other) : text(other.get()) {}
    sharedText& operator=(const sharedText& other) { return *this = other.get(); }
    template <textPart T>
    sharedText& operator=(const T& next) {
        const std::lock_guard<std::mutex> held(guard());
        text = next;
        return *this;
    }
    template <textPart T>
    sharedText& operator+=(const T& more) {
        const std::lock_guard<std::mutex> held(guard());
        text += more;
        return *this;
    }
    sharedText& operator+=(const sharedText& more) { return *this += more.get(); }
    void clear() { *this = ""; }

    std::string get() const {
        const std::lock_guard<std::mutex> held(guard());
        return text;
    }
    operator std::string() const { return get(); }
    bool empty() const { return size() == 0; }
    std::size_t size() const {
        const std::lock_guard<std::mutex> held(guard());
        return text.size();
    }
    std::size_t length() const { return size(); }
    char at(std::size_t index) const { return get().at(index); }
    char operator[](std::size_t index) const { return get()[index]; }
    std::string substr(std::size_t from = 0, std::size_t count = npos) const {
        return get().substr(from, count);
    }
    template <class T>
    std::size_t find(const T& what, std::size_t from = 0) const {
        return get().find(what, from);
    }
    template <class T>
    std::size_t rfind(const T& what, std::size_t from = npos) const {
        return get().rfind(what, from);
    }
    template <class T>
    int compare(const T& with) const {
        return get().compare(with);
    }
    template <class T>
    int compare(std::size_t from, std::size_t count, const T& with) const {
        return get().compare(from, count, with);
    }
    /**
     * The text as it is now, valid and unchanged as long as the program runs: every different text that was
     * asked for is kept once. For the few texts that are handed on to C.
     */
    const char* c_str() const {
        static std::set<std::string> kept;
        const std::lock_guard<std::mutex> held(guard());
        return kept.insert(text).first->c_str();
    }

    friend bool operator==(const sharedText& a, const sharedText& b) { return a.get() == b.get(); }
    friend auto operator<=>(const sharedText& a, const sharedText& b) { return a.get() <=> b.get(); }
    template <plainText T>
    friend bool operator==(const sharedText& a, const T& b) {
        return a.get() == b;
    }
    template <plainText T>
    friend auto operator<=>(const sharedText& a, const T& b) {
        return a.get() <=> b;
    }

    friend std::string operator+(const sharedText& a, const sharedText& b) { return a.get() += b.get(); }
    template <textPart T>
    friend std::string operator+(const sharedText& a, const T& b) {
        return a.get() += b;
    }
    template <textPart T>
    friend std::string operator+(const T& a, const sharedText& b) {
        return (std::string() += a) += b.get();
    }

    friend std::ostream& operator<<(std::ostream& out, const sharedText& value) { return out << value.get(); }

private:
    static std::mutex& guard() {
        static std::mutex one;
        return one;
    }
    std::string text;
};
