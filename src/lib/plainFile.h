#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

/**
 * A file that somebody else brought, on a stick or in a package, open for reading with nothing to fear: a
 * regular one, within `tree` whatever links lead to it, of at most `most` bytes. Opening one never waits for
 * a pipe and touches no device. For one thread at a time.
 */
class plainFile {
public:
    static constexpr std::uint64_t ANY_SIZE = UINT64_MAX;

    /** Not open when it is none of that, when its name holds a NUL, or when it can't be read. */
    plainFile(const std::string& path, const std::string& tree, std::uint64_t most = ANY_SIZE);
    ~plainFile();
    plainFile(const plainFile&) = delete;
    plainFile& operator=(const plainFile&) = delete;

    bool isOpen() const { return descriptor >= 0; }
    std::uint64_t size() const { return bytes; }
    /**
     * Hands on what is left of it, piece by piece. False when it ends before its size or behind it, or can't
     * be read; or when `take` returns false, which ends it.
     */
    bool read(const std::function<bool(std::string_view)>& take);
    /** Its content as a new file, or nothing. `goOn` is asked between the pieces. */
    bool copyTo(const std::string& target, const std::function<bool()>& goOn = nullptr);

    /** Whether `path`, a file or a folder, is in `tree` or `tree` itself, whatever links lead to it. */
    static bool isWithin(const std::string& path, const std::string& tree);
    /** The content of such a file; nothing when it is none. */
    static std::optional<std::string> contents(const std::string& path, const std::string& tree,
                                               std::uint64_t most);

private:
    int descriptor = -1;
    std::uint64_t bytes = 0;
};
