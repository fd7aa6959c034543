#pragma once

#include <string>

/** Text that is made the way printf makes it; as long as it comes out. Any thread may call it. */
[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);
