// Text encoding of what the readers take in. Every string in the engine is
// UTF-8. A file of another tool's format (or a data set field) that is not
// valid UTF-8 is taken to be Latin-1, the common older encoding, and
// converted; so no string that a reader stores can fail to decode.
#pragma once

#include <string>
#include <string_view>

bool VEK_isValidUtf8(std::string_view text);
// Each byte as the Latin-1 character it encodes.
std::string VEK_latin1ToUtf8(std::string_view text);
// Leaves valid UTF-8 as it is, converts anything else from Latin-1.
void VEK_ensureUtf8(std::string& text);
// The longest prefix of at most maxBytes bytes that does not cut a
// character in two.
size_t VEK_utf8Prefix(std::string_view text, size_t maxBytes);
