// Reading the text network format; the grammar is described in
// formats/vekSpeaker.h.
#pragma once

class VEK_fileFormat;

// Reads a network from the speaker's tokenizer (its text already set) into
// the speaker's network, which should be empty. 0, or a negative status with
// a positioned message in the network's logger; on failure the network may
// be partly filled (the file dispatch throws it away).
[[nodiscard]] int VEK_readVekNetwork(VEK_fileFormat& speaker);
