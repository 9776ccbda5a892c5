// The classic text BIF grammar, read by the XMLBIF speaker when a file is
// not XML:
//
//   network NAME { property "..." ; }
//   variable NAME { type discrete [ N ] { s1, s2, ... }; property "..." ; }
//   probability ( CHILD | P1, P2 ) {
//     (p1state, p2state) v1, v2, ... ;   one row per parent configuration
//     default v1, v2, ... ;              rows not listed
//     table v1, v2, ... ;                the whole table, child slowest
//   }
//
// Names and states are bare words (any text up to space or punctuation,
// such as <5 or Asy/Patch) or quoted strings; commas are optional; the bar
// may be left out, the first name then being the child. A property
// "position = (x, y)" places the node.
#pragma once

#include <string>

#include "formats/netDesc.h"

class VEK_fileFormat;

// Fills desc from text; faults are logged through fmt with their position.
// Returns 0 or the negative code of the first fault.
[[nodiscard]] int VEK_readTextBif(std::string text, VEK_netDesc& desc, VEK_fileFormat& fmt);

// Reads "position = (x, y)" (spaces and comma optional); false otherwise.
[[nodiscard]] bool VEK_parsePositionProperty(const std::string& text, int& x, int& y);

// Splits "key = value" at the first '=' (both trimmed); without '=', the
// whole text is the key and the value is empty.
void VEK_splitProperty(const std::string& text, std::string& key, std::string& value);
