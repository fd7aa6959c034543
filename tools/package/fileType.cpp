#include "fileType.h"

#include "elfFile.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

namespace package {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t LOOKED_AT = 0x10000;

std::string startOf(const fs::path& path) {
    std::string start(LOOKED_AT, '\0');
    std::ifstream in(path, std::ios::binary);
    in.read(start.data(), LOOKED_AT);
    start.resize(static_cast<std::size_t>(in.gcount()));
    return start;
}

// A line that begins with the mark and as many hexadecimal digits.
bool hasLine(const std::string& text, char mark, std::size_t digits) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > digits && line[0] == mark &&
            std::all_of(line.begin() + 1, line.begin() + 1 + static_cast<std::ptrdiff_t>(digits),
                        [](unsigned char each) { return std::isxdigit(each) != 0; }))
            return true;
    }
    return false;
}

bool isText(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](unsigned char each) {
        return (each < ' ' && each != '\n' && each != '\r' && each != '\t' && each != '\f') || each == 0x7F;
    });
}

bool isUtf16(const std::string& text) {
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF"))
        return true;
    std::string halves[2];
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        halves[0] += text[i];
        halves[1] += text[i + 1];
    }
    const auto isNothing = [](const std::string& half) { return half.find_first_not_of('\0') == half.npos; };
    return text.size() >= 4 &&
           ((isNothing(halves[1]) && isText(halves[0])) || (isNothing(halves[0]) && isText(halves[1])));
}

struct Magic {
    std::size_t at;
    std::string bytes;
    FileType type;
    const char* name;
};

const Magic* magicOf(const std::string& start) {
    static const Magic MAGICS[] = {
        {0, "\x1F\x8B", FileType::Gzip, "data compressed by gzip"},
        {0, "\x28\xB5\x2F\xFD", FileType::Binary, "data compressed by zstd"},
        {0,
         "\xFD"
         "7zXZ",
         FileType::Binary, "data compressed by xz"},
        {0, "BZh", FileType::Binary, "data compressed by bzip2"},
        {0, "PK\x03\x04", FileType::Binary, "a ZIP archive"},
        {257, "ustar", FileType::Binary, "a tar archive that is not compressed"},
        {0, "\x27\x05\x19\x56", FileType::Kernel, "a uImage"},
        {36, "\x18\x28\x6F\x01", FileType::Kernel, "a zImage"},
        {56, "ARM\x64", FileType::Kernel, "a kernel Image for 64-bit ARM"},
        {0x202, "HdrS", FileType::Kernel, "a kernel image for x86"},
        {0, "#!", FileType::Script, "a script"},
    };
    const auto found = std::find_if(std::begin(MAGICS), std::end(MAGICS), [&](const Magic& each) {
        return start.size() >= each.at && start.compare(each.at, each.bytes.size(), each.bytes) == 0;
    });
    return found == std::end(MAGICS) ? nullptr : &*found;
}

FileNature natureOfText(const std::string& start) {
    const bool marked = start.starts_with("\xEF\xBB\xBF");
    const std::size_t first = start.find_first_not_of(" \t\r\n", marked ? 3 : 0);
    const char letter = first == start.npos ? '\0' : start[first];
    if (letter == '{' || letter == '[')
        return {FileType::Json, "JSON text"};
    return {FileType::Text, letter == '\0' ? "white space only" : "text"};
}

} // namespace

FileNature natureOf(const fs::path& path) {
    std::error_code broken;
    const fs::file_status status = fs::status(path, broken);
    if (fs::is_directory(status))
        return {FileType::Directory, "a directory"};
    if (!fs::exists(status))
        return {FileType::Absent, "missing"};
    if (!fs::is_regular_file(status))
        return {FileType::Special, "no regular file"};
    const std::string start = startOf(path);
    if (start.empty())
        return {FileType::Empty, "empty"};
    if (start.starts_with("\x7F"
                          "ELF")) {
        const auto facts = readElfFacts(path);
        return {FileType::Elf, !facts       ? "a damaged ELF file"
                               : facts->cut ? "a damaged ELF file: it ends before its content"
                                            : "an ELF file for " + facts->machineName()};
    }
    if (const Magic* magic = magicOf(start))
        return {magic->type, magic->name};
    if (isUtf16(start))
        return {FileType::Utf16, "text in UTF-16"};
    if (hasLine(start, ':', 10))
        return {FileType::IntelHex, "Intel HEX"};
    if (hasLine(start, 'S', 7))
        return {FileType::SRecords, "Motorola S-records"};
    if (isText(start))
        return natureOfText(start);
    const bool zeros = start.find_first_not_of('\0') == start.npos;
    return {FileType::Binary, zeros ? "nothing but zeros" : "raw binary data"};
}

std::string adviceOn(FileType type) {
    switch (type) {
    case FileType::Gzip:
        return "; unpack it first: gunzip";
    case FileType::Utf16:
        return "; save it as UTF-8: iconv -f UTF-16 -t UTF-8";
    case FileType::Elf:
    case FileType::SRecords:
        return "; keldra-package convert makes that of it";
    case FileType::Directory:
        return "; name a file in it";
    case FileType::Empty:
        return "; copy it again";
    case FileType::IntelHex:
        return "";
    default:
        return "; take what the linker wrote, an ELF file, say";
    }
}

} // namespace package
