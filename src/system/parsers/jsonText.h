#pragma once

#include <rapidjson/reader.h>
#include <string>

/** What the readers of both manifests share. */
namespace jsonText {

/**
 * Feeds `text` to a SAX handler. False for a syntax error and for anything but white space behind the root
 * value; what the handler took before the error stays. However deep the text is nested, the stack does not
 * grow.
 */
template <class HANDLER>
bool parse(const std::string& text, HANDLER& handler) {
    if (text.find('\0') != std::string::npos) {
        return false; // to the reader a NUL is the end: it would not see what stands behind
    }
    rapidjson::StringStream stream(text.c_str());
    rapidjson::Reader reader;
    return !reader.Parse<rapidjson::kParseIterativeFlag>(stream, handler).IsError();
}

} // namespace jsonText
