// What a check found out, in one form for people and for programs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace package {

enum class Severity { Warning, Error };

// Where it is. Line and column count from 1; 0 stands for the file as a whole, or the line as a whole.
struct Place {
    std::string file;
    unsigned line = 0;
    unsigned column = 0;
};

// A kind of finding: what the panel does about it and what mends it. findingKinds.h has them all.
struct Kind {
    const char* id; // stable: programs may look for it
    Severity severity;
    const char* panel;
    const char* remedy;
};

struct Finding {
    const Kind* kind;
    Place place;
    std::string text;
};

class Findings {
public:
    // What the names of places are below from then on, so that an editor finds them.
    void setBase(const std::string& base) { base_ = base; }
    void add(const Kind& kind, Place place, std::string text);

    const std::vector<Finding>& all() const { return findings_; }
    std::size_t errors() const;
    std::size_t warnings() const { return findings_.size() - errors(); }

private:
    std::string base_;
    std::vector<Finding> findings_;
};

} // namespace package
