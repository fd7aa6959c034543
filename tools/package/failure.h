#pragma once

#include <stdexcept>

namespace package {

// The work can't be done: nothing to do with the quality of a package. The text is for the person at the
// keyboard.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace package
