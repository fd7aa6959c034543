// What the tool needs of the operating system beyond the language's library. All of it is in platform.cpp: no
// other file of the tool calls the system itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace package::platform {

enum class Stream { Output, Errors };

bool isTerminal(Stream stream);

bool isReadable(const std::filesystem::path& path); // a directory: its names and what they stand for

// A file by its number, which some libraries ask for.
class Descriptor {
public:
    explicit Descriptor(const std::filesystem::path& path); // to be read
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; } // negative when it could not be opened

protected:
    explicit Descriptor(int number) : number_(number) {}

private:
    const int number_;
};

// A file to be written, empty at first. Throws Failure.
class Output : public Descriptor {
public:
    explicit Output(const std::filesystem::path& path);

    void write(const void* data, std::size_t size);
    // Forces everything onto the medium; what is read back comes from there.
    void force();

private:
    const std::filesystem::path path_;
};

// Forces the names in a directory onto the medium. Throws Failure.
void forceDirectory(const std::filesystem::path& path);

// The content of a regular file that lies in `tree`, wherever links lead; none when it is not such a one, has
// more than `most` bytes or can't be read. Waits for no pipe.
std::optional<std::string> readWithin(const std::filesystem::path& tree, const std::filesystem::path& path,
                                      std::uint64_t most);

// A new one that is nobody else's. Throws Failure.
std::filesystem::path makeTemporaryDirectory();

// From then on, a request to end the program is noted; a second one ends it at once. What was to be ignored
// stays so (nohup).
void watchInterrupts();
bool isInterrupted();

// No request ends the program while this object lives: what is cleaned up is cleaned up whole.
class Uninterrupted {
public:
    Uninterrupted();
    ~Uninterrupted();
    Uninterrupted(const Uninterrupted&) = delete;
    Uninterrupted& operator=(const Uninterrupted&) = delete;

private:
    static void block(int how);
};

constexpr int NOT_INSTALLED = 127;
// Runs a program with its arguments, on the same terminal. Its exit status, or NOT_INSTALLED. Throws Failure
// when it has none: it was not started, or a signal ended it.
int run(const std::vector<std::string>& words);

// Standard output leads nowhere while this object lives.
class Silence {
public:
    Silence();
    ~Silence();
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    const int kept_;
};

} // namespace package::platform
