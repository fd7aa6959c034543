// A signature and a public key in minisign's form: nothing but the right texts is taken, and what is taken
// has the form that it is written in.

#include "input.h"
#include "lib/minisign.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = input::text(data, size);
    const auto lines = std::count(text.begin(), text.end(), '\n');
    if (const auto signature = minisign::readSignature(text)) {
        input::require(size <= minisign::LONGEST && (lines == 3 || lines == 4));
        input::require(text.find("trusted comment: " + signature->comment) != std::string::npos);
        const minisign::KEY nobodys{signature->key, {}};
        minisign::signsComment(nobodys, *signature);
    }
    if (const auto key = minisign::readKey(text)) {
        input::require(size <= minisign::LONGEST && (lines == 1 || lines == 2));
        input::require(minisign::nameOf(key->id).size() == 16);
    }
    return 0;
}
