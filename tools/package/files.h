// File access of the tool. Failures throw Failure, whose text is for the person at the keyboard.
#pragma once

#include "failure.h"
#include "platform.h"

#include <cryptopp/sha.h>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace package {

// Throws Failure for anything that reading would not end of.
void requireFile(const std::filesystem::path& path);

// Of a file, or of all in a directory; of what can't be read, 0.
std::uint64_t sizeOf(const std::filesystem::path& path);
std::string shownSize(std::uint64_t bytes); // "1.5 MB"

// Hands on a file, piece by piece. Throws Failure when it can't be read, or the person interrupts.
void readPieces(const std::filesystem::path& path, const std::function<void(std::string_view)>& take);
// The digest in lower-case digits; with a progress bar for a large file. They throw as readPieces() does.
std::string sha1Of(const std::filesystem::path& path);
std::string sha256Of(const std::filesystem::path& path);

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& content);

// A file that is sure to be on its medium: written, forced there and read back.
class SafeFile {
public:
    explicit SafeFile(const std::filesystem::path& path) : path_(path), file_(path) {}

    void write(const void* data, std::size_t size);
    // The SHA-1 of what was written. Throws Failure when something else is read back.
    std::string finish();

private:
    const std::filesystem::path path_;
    platform::Output file_;
    CryptoPP::SHA1 hash_;
};

// Throws Failure when the file is not compressed by gzip from its start to its end, without damage.
void checkGzip(const std::filesystem::path& path);

// Throws Failure when the person wants the program to end.
void checkInterrupted();

// A directory that lives as long as this object.
class TemporaryDirectory {
public:
    TemporaryDirectory() = default;
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    const std::filesystem::path path_ = platform::makeTemporaryDirectory();
};

} // namespace package
