#include "functs.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <dirent.h>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <sys/stat.h>

namespace {

bool isBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

constexpr std::size_t COPY_BYTES = 0x10000; // read and written at once

bool examine(const std::string& path, struct stat& info) {
    return stat(path.c_str(), &info) == 0;
}

struct CLOSE_DIR {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DIRECTORY = std::unique_ptr<DIR, CLOSE_DIR>;

/** The next entry that is not the directory itself or its parent, or null. */
const dirent* nextEntry(DIR* dir) {
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            return entry;
        }
    }
    return nullptr;
}

} // namespace

std::vector<std::string> functs::split(const std::string& strValue, char separator) {
    return split(strValue, std::string(1, separator));
}

std::vector<std::string> functs::split(const std::string& strValue, std::string separator) {
    std::vector<std::string> pieces;
    if (separator.empty()) {
        return pieces;
    }
    std::string::size_type begin = 0;
    std::string::size_type end = strValue.find(separator);
    if (end == std::string::npos) {
        return pieces;
    }
    while (end != std::string::npos) {
        pieces.push_back(strValue.substr(begin, end - begin));
        begin = end + separator.size();
        end = strValue.find(separator, begin);
    }
    pieces.push_back(strValue.substr(begin));
    return pieces;
}

std::string functs::join(const std::vector<std::string> cont, char separator) {
    std::string joined;
    for (const std::string& element : cont) {
        joined += element;
        joined += separator;
    }
    return joined;
}

std::string functs::strip_characters(std::string s, char c) {
    s.erase(std::remove(s.begin(), s.end(), c), s.end());
    return s;
}

std::string& functs::ltrim(std::string& s) {
    s.erase(s.begin(), std::find_if_not(s.begin(), s.end(), isBlank));
    return s;
}

std::string& functs::rtrim(std::string& s) {
    s.erase(std::find_if_not(s.rbegin(), s.rend(), isBlank).base(), s.end());
    return s;
}

std::string& functs::trim(std::string& s) {
    return rtrim(ltrim(s));
}

void functs::strCase(std::string& s, bool toUpper) {
    const char first = toUpper ? 'a' : 'A';
    const char last = toUpper ? 'z' : 'Z';
    for (char& c : s) {
        if (c >= first && c <= last) {
            c = static_cast<char>(c ^ 0x20);
        }
    }
}

bool functs::isDirectory(std::string dir) {
    struct stat info {};
    return examine(dir, info) && S_ISDIR(info.st_mode);
}

bool functs::isFile(std::string file) {
    struct stat info {};
    return examine(file, info) && S_ISREG(info.st_mode);
}

bool functs::makeDir(std::string dir) {
    return mkdir(dir.c_str(), 0755) == 0;
}

std::int32_t functs::getFileSize(std::string file) {
    struct stat info {};
    if (!examine(file, info)) {
        return 0;
    }
    return static_cast<std::int32_t>(std::min<off_t>(info.st_size, std::numeric_limits<std::int32_t>::max()));
}

bool functs::removeFile(std::string filename) {
    return std::remove(filename.c_str()) == 0;
}

std::string functs::getFileContents(std::string fileName) {
    std::ifstream in(fileName);
    std::ostringstream contents;
    if (in.peek() != std::ifstream::traits_type::eof()) { // which is also what a directory reads as
        contents << in.rdbuf();                           // up to a read error, should there be one
    }
    std::string text = contents.str();
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    return text;
}

bool functs::writeFileContents(std::string fileName, std::string content, bool app) {
    std::ofstream out(fileName, app ? std::ios::app : std::ios::trunc);
    if (!out) {
        return false;
    }
    out << content;
    return true;
}

bool functs::copyFile(std::string source, std::string dest, bool bin, bool app) {
    const std::ios::openmode binary = bin ? std::ios::binary : std::ios::openmode{};
    std::vector<char> room(COPY_BYTES + 1); // of which the stream leaves one byte unused
    std::ifstream in;
    in.rdbuf()->pubsetbuf(room.data(), static_cast<std::streamsize>(room.size()));
    in.open(source, std::ios::in | binary);
    std::ofstream out(dest, (app ? std::ios::app : std::ios::trunc) | binary);
    if (!in || !out) {
        return false;
    }
    if (in.peek() != std::ifstream::traits_type::eof()) {
        out << in.rdbuf();
    }
    return true;
}

bool functs::rmDir(std::string start, bool recursive, bool leaveTopDir) {
    const DIRECTORY dir(opendir(start.c_str()));
    if (!dir) {
        return false;
    }
    while (const dirent* entry = nextEntry(dir.get())) {
        const std::string child = start + "/" + entry->d_name;
        if (recursive && entry->d_type == DT_DIR) {
            rmDir(child, true, false);
        }
        removeFile(child);
    }
    if (recursive && !leaveTopDir) {
        removeFile(start);
    }
    return true;
}

bool functs::copyDir(std::string source, std::string dest, bool recursive) {
    if (!isDirectory(dest)) {
        makeDir(dest);
    }
    const DIRECTORY dir(opendir(source.c_str()));
    if (!dir) {
        return false;
    }
    while (const dirent* entry = nextEntry(dir.get())) {
        const std::string from = source + "/" + entry->d_name;
        const std::string to = dest + "/" + entry->d_name;
        if (recursive && isDirectory(from)) {
            copyDir(from, to, true);
        } else {
            copyFile(from, to, true);
        }
    }
    return true;
}

bool functs::runProcess(std::string cmd, std::string& response) {
    FILE* pipe = popen(cmd.c_str(), "r");
    if (pipe == nullptr) {
        return false;
    }
    std::array<char, 64> chunk{};
    while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        response.append(chunk.data(), count);
    }
    return pclose(pipe) == 0;
}
