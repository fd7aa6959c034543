#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/**
 * A trace of the bus as a file of text. It takes the place of the one before when it is whole, and two older
 * ones are kept, ".0" and ".1". Asks for no memory and takes no lock, so that a signal's handler may use it:
 * there is room for the text of one such file at a time.
 */
class traceFile {
public:
    /** The names are made beforehand, by who may ask for memory. */
    struct NAMES {
        explicit NAMES(const std::string& file) : newest(file) {}
        std::string newest;
        std::string older = newest + ".0";
        std::string oldest = newest + ".1";
        std::string temporary = newest + ".new";
        std::string folder = newest.substr(0, newest.find_last_of('/') + 1);
    };

    explicit traceFile(const NAMES& names);
    traceFile(const traceFile&) = delete;
    traceFile& operator=(const traceFile&) = delete;
    ~traceFile();

    /** False when the time is up, or when what the card has to spare is used: no more is to be added. */
    bool takesMore() const;
    /** A line of so many bytes as hexadecimal digits, or as text behind the mark '!'. */
    void line(std::uint64_t microseconds, char mark, const std::uint8_t* bytes, std::size_t size);
    /** Brings what was written onto the card. */
    void flush();
    /** Puts the file into its place. */
    bool keep();

private:
    void put(char c);
    void putNumber(std::uint64_t number, unsigned digits);
    void writeOut();

    const NAMES& names;
    int fd;
    bool failed;
    std::uint64_t deadline;
    std::uint64_t budget = 0; ///< bytes
    std::uint64_t written = 0;
    std::size_t used = 0;
    static std::array<char, std::size_t{64} * 1024> text;
};
