// The configuration file, read with the delimiters and for the keys of the panel's own.

#include "input.h"
#include "lib/ConfigFile.h"

#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ConfigFile config;
    config.setSentry("EndConfigFile");
    std::istringstream file(input::text(data, size));
    file >> config;
    for (const char* key : {"up_mbus", "ub_mbus", "dir", "debug", "log_max_size"}) {
        std::string text = "untouched";
        std::uint32_t number = 4711;
        input::require(config.readInto(text, key) == config.keyExists(key));
        input::require(config.readInto(number, key) == config.keyExists(key));
        input::require(config.keyExists(key) || (text == "untouched" && number == 4711));
        std::string trimmed = text;
        ConfigFile::trim(trimmed);
        input::require(trimmed == text && text.find('#') == std::string::npos);
    }
    std::ostringstream listing;
    listing << config;
    input::require(listing.str().find("EndConfigFile") == std::string::npos);
    return 0;
}
