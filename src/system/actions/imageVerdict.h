#pragma once

#include "../coreState.h"
#include "imageCheck.h"

#include <string>
#include <vector>

/** What the panel does about an image that would not reach its module as the file has it. */
namespace imageVerdict {

/**
 * Logs what was found, each text behind `prefix`. False when the image must not be sent: there is an error,
 * and the configuration wants no such images. Nothing has been sent to the module by then.
 */
bool accepts(coreState& core, const std::string& prefix, const std::vector<imageCheck::FINDING>& findings);

} // namespace imageVerdict
