// Ergo .erg files: a positional list of numbers and names. In order: the
// number of variables; the number of states of each; for each variable its
// number of parents and their indices (0-based); for each variable the
// number of table entries and the entries (parents in listed order, the
// variable's own states fastest); the variables' names; and for each
// variable the names of its states. Names are whitespace-delimited (or
// quoted); /* */ and // comments may stand anywhere between tokens.
//
// Holds discrete chance nodes only; canonical and deterministic nodes are
// written as their probability tables.
#pragma once

#include "formats/textSpeaker.h"

class VEK_ergoSpeaker : public VEK_textSpeaker {
public:
    explicit VEK_ergoSpeaker(VEK_network& net) : VEK_textSpeaker(net, "Ergo") {}

protected:
    [[nodiscard]] int Parse(VEK_netDesc& desc) override;
    std::string CheckWritable() override;
    void WriteText() override;
};
