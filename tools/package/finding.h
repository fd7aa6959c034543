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
    bool allowable = true; // false: something was not read, and would be missing in what is built
};

struct Finding {
    const Kind* kind;
    Place place;
    std::string text;
};

// A kind of finding that is meant, everywhere or in one file.
struct Allowance {
    std::string id;
    std::string file;   // its path, or the end of it; empty: any
    std::string reason; // empty when nobody gave one
};

struct Allowed {
    Finding finding;
    std::string reason;
};

class Findings {
public:
    // What the names of places are below from then on, so that an editor finds them.
    void setBase(const std::string& base) { base_ = base; }
    void add(const Kind& kind, Place place, std::string text);

    // Sets aside what is meant. What makes a description unreadable can't be.
    void allow(const std::vector<Allowance>& allowances);

    const std::vector<Finding>& all() const { return findings_; }
    const std::vector<Allowed>& allowed() const { return allowed_; }
    bool leavesOut() const; // something, whatever is forced: a kind that is not allowable
    std::size_t errors() const;
    std::size_t warnings() const { return findings_.size() - errors(); }

private:
    std::string base_;
    std::vector<Finding> findings_;
    std::vector<Allowed> allowed_;
};

} // namespace package
