// What a file is, by its content: names and their endings lie.
#pragma once

#include <filesystem>
#include <string>

namespace package {

enum class FileType {
    Absent, // or not to be read
    Directory,
    Special, // a device, pipe or socket
    Empty,
    IntelHex,
    SRecords,
    Elf,
    Script,
    Gzip,
    Json,
    Utf16,
    Text,
    Kernel, // an image that its start gives away
    Binary,
};

struct FileNature {
    FileType type;
    std::string name; // "Motorola S-records", for messages: "it is ..."
};

FileNature natureOf(const std::filesystem::path& path);

// What to do with a file that stands where Intel HEX is wanted, to go behind what it is: "; unpack it first".
std::string adviceOn(FileType type);

} // namespace package
