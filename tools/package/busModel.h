// What programming a module costs on the bus.
#pragma once

#include "processors.h"
#include "system/actions/busCost.h"

#include <filesystem>

namespace package {

using BusCost = busCost;

// Programming an image that is right. Throws Failure for one that the panel's reader refuses.
BusCost costOfImage(const std::filesystem::path& path, const Processor& processor, bool serial);

} // namespace package
