#pragma once

#include <stdexcept>
#include <string>

namespace package {

// The work can't be done: nothing to do with the quality of a package. The text is for the person at the
// keyboard.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A file that says something wrong, and where (0: the file as a whole).
class BadFile : public Failure {
public:
    BadFile(const std::string& text, unsigned line = 0) : Failure(text), line_(line) {}
    unsigned line() const { return line_; }

private:
    unsigned line_;
};

} // namespace package
