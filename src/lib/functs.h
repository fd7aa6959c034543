#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * String and file utilities. Stateless: any thread may use any instance at any time.
 *
 * Paths are taken as given, relative ones from the working directory. Nothing throws on a file-system
 * condition and nothing is printed: the result says it all. A directory given where a file is expected reads
 * as an empty file.
 */
class functs {
public:
    /**
     * The pieces between separators, empty ones included; an empty vector when the separator does not occur.
     */
    std::vector<std::string> split(const std::string& strValue, char separator);
    /** The same for a separator of several characters; an empty one occurs nowhere. */
    std::vector<std::string> split(const std::string& strValue, std::string separator);
    /** Every element followed by the separator, the last one too. */
    std::string join(const std::vector<std::string> cont, char separator);
    std::string strip_characters(std::string s, char c);
    std::string& ltrim(std::string& s);
    std::string& rtrim(std::string& s);
    std::string& trim(std::string& s);
    /** Upper or lower case in place, ASCII letters only. */
    void strCase(std::string& s, bool toUpper);

    /** Follow symbolic links; a missing path is neither. */
    bool isDirectory(std::string dir);
    bool isFile(std::string file);
    /** One level, mode 0755; false when it exists already. */
    bool makeDir(std::string dir);
    /** Bytes, 0 for a path that can't be examined; a file of 2 GiB or more reads as INT32_MAX. */
    std::int32_t getFileSize(std::string file);
    /** A file or an empty directory. */
    bool removeFile(std::string filename);
    /** The whole text, closed by a newline when there is any; empty when the file can't be read. */
    std::string getFileContents(std::string fileName);
    /** Replaces the file, or appends to it with `app`. True when it could be opened. */
    bool writeFileContents(std::string fileName, std::string content, bool app = false);
    /**
     * Copies the content, no permissions and no times. True when both files could be opened: whether all of
     * it arrived is for the caller to look at. `dest` is created or truncated even when `source` is missing.
     */
    bool copyFile(std::string source, std::string dest, bool bin, bool app = false);
    /**
     * Removes what is in `start`: all of it with `recursive`, else only files and empty directories. With
     * `recursive` and without `leaveTopDir` the directory itself goes too. False when it can't be listed.
     */
    bool rmDir(std::string start, bool recursive, bool leaveTopDir);
    /** Copies the files of a directory, with `recursive` the whole tree. False when it can't be listed. */
    bool copyDir(std::string source, std::string dest, bool recursive);

    /**
     * Appends the shell command's standard output to `response`; true when it exited with status 0. Blocks.
     */
    bool runProcess(std::string cmd, std::string& response);
};
