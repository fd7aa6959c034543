#pragma once

#include "packageRules.h"

#include <string>

/**
 * The technician's USB stick, where the panel's system mounts it. It may be slow, be pulled or not answer at
 * all: what touches it is done in a process of its own (childProcess.h).
 */
namespace usbStick {

inline const std::string PLACE = "/mnt/usb";
inline const std::string PACKAGE = PLACE + "/" + packageRules::ARCHIVE;

constexpr int NO_PACKAGE = 2;

/** Copies the package and what lies beside it onto the panel's card, unproven: 0, or NO_PACKAGE. */
int copyPackage();

/** True when a stick is mounted: `stick`, a descriptor of PLACE, is no folder of the panel's own card. */
bool isMounted(int stick);

/** From then on it may be pulled. Not 0 when there was none. */
int unmount();

} // namespace usbStick
