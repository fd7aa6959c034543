#pragma once

#include "firmware.h"
#include "sim/flash.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Images for modules of the simulator, and what is in a module's flash before and after an update with one.

struct Firmware {
    std::string path; ///< of its HEX file
    const Kind* kind = nullptr;
    Memory image;
    sim::Flash before;             ///< full of OLD bytes
    std::vector<sim::Bytes> after; ///< either of these, from the first region's start on
};

/** What may be in flash after an update, with pages that the bootloader does not let change. */
std::vector<sim::Bytes> cellsAfter(const Kind& kind, const Memory& image,
                                   const std::set<std::uint32_t>& ignoredPages = {});
/**
 * None when the flash is one of these, and nothing else is programmed; else where it differs from the first,
 * as the address of a HEX file.
 */
std::optional<std::uint32_t> wrongAddress(const sim::Flash& flash, const Kind& kind,
                                          const std::vector<sim::Bytes>& accepted);

/** Makes each image once; owns a directory with their files. */
class FirmwareStore {
public:
    using Maker = std::function<Memory(std::mt19937_64&)>;

    FirmwareStore();
    FirmwareStore(const FirmwareStore&) = delete;
    FirmwareStore& operator=(const FirmwareStore&) = delete;
    ~FirmwareStore();

    /** The image of that name, which `make` makes from numbers that depend on the name alone. */
    const Firmware& get(const std::string& name, const Kind& kind, const Maker& make);

private:
    std::filesystem::path directory_;
    std::map<std::string, Firmware> made_;
};
