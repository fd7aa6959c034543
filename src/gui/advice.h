#pragma once

#include <QString>

/** What an operator can do about what was logged or shown, in the words of docs/messages.md. */
namespace advice {

/** A sentence, or an empty string for a text of which the document says nothing that could be done. */
QString about(const QString& text);

} // namespace advice
