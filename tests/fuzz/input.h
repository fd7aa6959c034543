#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

/**
 * What the targets share. Each is called with one input after the other and aborts when a promise is broken.
 */
namespace input {

/** Ends the process, which the fuzzer takes for a found fault. */
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

inline std::string text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/** The path of a file that holds the input. */
inline std::string file(const std::uint8_t* data, std::size_t size, const std::string& path = "/tmp/input") {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text(data, size);
    return path;
}

} // namespace input
