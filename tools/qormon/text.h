// Texts from elsewhere, made fit for a terminal or for a JSON document.
#pragma once

#include <string>

namespace qormon {

// The text with a question mark for everything that is no UTF-8, a control character, or one that
// changes lines or the writing direction: no server speaks to a terminal.
std::string printable(const std::string& text);

// The text as a JSON string with its quotes (RFC 8259), the same characters escaped. Bytes that are
// no UTF-8 are read as ISO 8859-1, so that the document stays valid whatever a server sends.
std::string jsonString(const std::string& text);

} // namespace qormon
