#include "ConfigFile.h"

#include <fstream>

ConfigFile::file_not_found::file_not_found(const std::string& name)
    : filename(name), message("Configuration file not found: " + name) {}

ConfigFile::ConfigFile() : myDelimiter("="), myComment("#") {}

ConfigFile::ConfigFile(std::string filename, std::string delimiter, std::string comment, std::string sentry)
    : myDelimiter(delimiter), myComment(comment), mySentry(sentry) {
    std::ifstream in(filename);
    if (!in) {
        throw file_not_found(filename);
    }
    in >> *this;
}

template <>
bool ConfigFile::readInto<std::string>(std::string& var, const std::string& key) const {
    const auto entry = myContents.find(key);
    if (entry == myContents.end()) {
        return false;
    }
    var = entry->second;
    return true;
}

void ConfigFile::trim(std::string& s) {
    static const char* const WHITE_SPACE = " \n\t\v\r\f";
    s.erase(0, s.find_first_not_of(WHITE_SPACE));
    s.erase(s.find_last_not_of(WHITE_SPACE) + 1);
}

void ConfigFile::cutComment(std::string& line) const {
    const std::string::size_type comment = line.find(myComment);
    if (comment != std::string::npos) {
        line.erase(comment);
    }
}

bool ConfigFile::hasSentry(const std::string& line) const {
    return !mySentry.empty() && line.find(mySentry) != std::string::npos;
}

/** Appends the lines that belong to `value`; the line that does not is left in `readAhead`. */
void ConfigFile::readContinuation(std::istream& is, std::string& value, std::string& readAhead) const {
    while (is) {
        std::string line;
        std::getline(is, line);
        readAhead = line;
        std::string trimmed = line;
        trim(trimmed);
        if (trimmed.empty()) {
            return;
        }
        cutComment(line);
        readAhead = line;
        if (line.find(myDelimiter) != std::string::npos || hasSentry(line)) {
            return;
        }
        trimmed = line;
        trim(trimmed);
        if (!trimmed.empty()) {
            value += "\n";
        }
        value += line;
        readAhead.clear();
    }
}

std::istream& operator>>(std::istream& is, ConfigFile& cf) {
    std::string readAhead;
    while (is || !readAhead.empty()) {
        std::string line;
        if (readAhead.empty()) {
            std::getline(is, line);
        } else {
            line.swap(readAhead);
        }
        cf.cutComment(line);
        if (cf.hasSentry(line)) {
            return is;
        }
        const std::string::size_type delimiter = line.find(cf.myDelimiter);
        if (delimiter == std::string::npos) {
            continue;
        }
        std::string key = line.substr(0, delimiter);
        std::string value = line.substr(delimiter + cf.myDelimiter.size());
        cf.readContinuation(is, value, readAhead);
        ConfigFile::trim(key);
        ConfigFile::trim(value);
        cf.myContents[key] = value;
    }
    return is;
}

std::ostream& operator<<(std::ostream& os, const ConfigFile& cf) {
    for (const auto& [key, value] : cf.myContents) {
        os << key << " " << cf.myDelimiter << " " << value << "\n";
    }
    return os;
}
