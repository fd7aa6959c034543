// Text that is made the way printf makes it.
#pragma once

#include <string>

namespace package {

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

} // namespace package
