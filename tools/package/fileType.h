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

} // namespace package
