#pragma once

#include <exception>
#include <iosfwd>
#include <map>
#include <sstream>
#include <string>

/**
 * A text file of "key = value" lines. Comments run to the end of their line; a line without delimiter that
 * follows a key line belongs to that key's value; reading stops at a line that holds the sentry. Malformed
 * lines are ignored. Read once by one thread.
 */
class ConfigFile {
public:
    /** The file could not be opened. */
    struct file_not_found : public std::exception {
        std::string filename;
        explicit file_not_found(const std::string& name);
        const char* what() const noexcept override { return message.c_str(); }

    private:
        std::string message;
    };

    ConfigFile();
    /** Reads the file. Throws file_not_found; nothing else is thrown for bad content. */
    ConfigFile(std::string filename, std::string delimiter, std::string comment, std::string sentry);

    /**
     * Converts the key's value into `var`; false, with `var` untouched, when the key is absent. A number is
     * read up to the first character that can't continue it, and text that starts with none gives 0.
     */
    template <class T>
    bool readInto(T& var, const std::string& key) const;

    bool keyExists(const std::string& key) const { return myContents.count(key) != 0; }
    void remove(const std::string& key) { myContents.erase(key); }

    std::string getDelimiter() const { return myDelimiter; }
    std::string getComment() const { return myComment; }
    std::string getSentry() const { return mySentry; }
    void setDelimiter(const std::string& s) { myDelimiter = s; }
    void setComment(const std::string& s) { myComment = s; }
    void setSentry(const std::string& s) { mySentry = s; }

    /** Removes white space at both ends. */
    static void trim(std::string& s);

    friend std::istream& operator>>(std::istream& is, ConfigFile& cf);
    friend std::ostream& operator<<(std::ostream& os, const ConfigFile& cf);

private:
    void cutComment(std::string& line) const;
    bool hasSentry(const std::string& line) const;
    void readContinuation(std::istream& is, std::string& value, std::string& readAhead) const;

    std::string myDelimiter;
    std::string myComment;
    std::string mySentry; ///< empty: none
    std::map<std::string, std::string> myContents;
};

template <class T>
bool ConfigFile::readInto(T& var, const std::string& key) const {
    const auto entry = myContents.find(key);
    if (entry == myContents.end()) {
        return false;
    }
    std::istringstream text(entry->second);
    T value{};
    text >> value;
    var = value;
    return true;
}

template <>
bool ConfigFile::readInto<std::string>(std::string& var, const std::string& key) const;
