// Identifier rules shared by nodes, submodels, outcomes and networks.
#pragma once
#include <string>

// A first character must be an ASCII letter or a byte >= 128; later ones may
// also be digits or the underscore. Bytes >= 128 pass so UTF-8 ids work.
bool VEK_isCharValidForIdentifier(char c, bool first);
bool VEK_isValidIdentifier(const char* id);
inline bool VEK_isValidIdentifier(const std::string& id) { return VEK_isValidIdentifier(id.c_str()); }

// Repairs in place: a bad first character becomes 'x', later bad ones '_'.
// Returns false for an empty string.
bool VEK_makeValidId(std::string& text);
bool VEK_makeValidId(char* text);

// Appends the decimal form of value.
void VEK_appendInt(std::string& out, long long value);

// fopen that accepts UTF-8 paths; returns null on failure.
#include <cstdio>
FILE* VEK_fopen(const char* path, const char* mode);
