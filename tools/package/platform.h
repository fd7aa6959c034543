// What the tool needs of the operating system beyond the language's library. All of it is in platform.cpp: no
// other file of the tool calls the system itself.
#pragma once

#include <cstddef>
#include <filesystem>
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

// A new one that is nobody else's. Throws Failure.
std::filesystem::path makeTemporaryDirectory();

// From then on, a request to end the program is noted; a second one ends it at once.
void watchInterrupts();
bool isInterrupted();

constexpr int NOT_INSTALLED = 127;
// Runs a program with its arguments, on the same terminal. Its exit status, or NOT_INSTALLED.
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
