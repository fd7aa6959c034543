#pragma once

#include <string>

/** What can be done about what was logged or shown, in the words of docs/messages.md. */
namespace advice {

/** A sentence, or an empty string for a text of which the document says nothing that could be done. */
std::string about(const std::string& text);

} // namespace advice
