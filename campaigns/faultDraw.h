#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

// Faults for the simulator, drawn from a seed, as lines of its fault script.

using Lines = std::vector<std::string>;

/** Replies of one module lost, late, doubled and corrupted: together this share of all. */
Lines drawReplyFaults(std::uint8_t module, double share, std::mt19937_64& random);

/** One to four faults of any kind, each on one of the modules or on all. */
Lines drawMixedFaults(const std::vector<std::uint8_t>& modules, std::mt19937_64& random);
