// Writing the text network format; the grammar is described in
// formats/vekSpeaker.h.
#pragma once

class VEK_fileFormat;

// Writes the speaker's network to its open output (Out()). 0, or a negative
// status (logged) for a node kind the format cannot hold.
[[nodiscard]] int VEK_writeVekNetwork(VEK_fileFormat& speaker);
