#include "jsonWriter.h"

#include "lib/format.h"

namespace package {

namespace {

std::string asUtf8(const std::string& text) {
    std::string valid;
    for (std::size_t at = 0; at < text.size();) {
        rapidjson::StringStream rest(text.c_str() + at);
        rapidjson::StringBuffer ignored;
        const bool isValid = rapidjson::UTF8<>::Validate(rest, ignored);
        const std::size_t size = isValid ? rest.Tell() : 1;
        valid += isValid ? text.substr(at, size) : format("\\x%02X", static_cast<unsigned char>(text[at]));
        at += size;
    }
    return valid;
}

} // namespace

void JsonWriter::add(const char* key, const std::string& value) {
    const std::string text = asUtf8(value);
    name(key);
    writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

} // namespace package
