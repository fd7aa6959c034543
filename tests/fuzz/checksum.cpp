// The checksum file beside a package: a file passes only when its own digest stands there.

#include "input.h"
#include "lib/functs.h"
#include "system/updateCoreLoader.h"

namespace {

const std::string FILE_NAME = "/tmp/package";
const std::string DIGEST = "a9993e364706816aba3e25717850c26c9cd0d89d"; // of "abc"

bool makePackage() {
    std::ofstream(FILE_NAME) << "abc";
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    [[maybe_unused]] static const bool made = makePackage();
    static updateCoreLoad loader;
    input::file(data, size, FILE_NAME + ".sha");
    std::string text = input::text(data, size);
    functs().strCase(text, false);
    if (loader.validateFile(FILE_NAME)) {
        input::require(text.find(DIGEST) != std::string::npos);
    } else {
        input::require(text.substr(0, DIGEST.size() + 1) != DIGEST + " " && text != DIGEST);
    }
    return 0;
}
