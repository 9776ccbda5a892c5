// Hugin .net files: the net { } block, node / decision / utility
// declarations with their attributes (label, position, states, subtype,
// state_values, node_size and any string attribute, kept as a user
// property), and potentials whose data nest the parents in order with the
// child's states innermost. Also reads a single class { } in place of net.
#pragma once

#include <string>

#include "formats/fileFormat.h"
#include "formats/netDesc.h"

class VEK_huginSpeaker : public VEK_fileFormat, private VEK_descErrorSink {
public:
    explicit VEK_huginSpeaker(VEK_network& net) : VEK_fileFormat(net) {}

    [[nodiscard]] int ReadNetwork(const char* path) override;
    [[nodiscard]] int WriteNetwork(const char* path) override;
    [[nodiscard]] int ReadNetworkFromString(const char* text) override;
    [[nodiscard]] int WriteNetworkToString(std::string& out) override;
    // The reader checks cycles and ids for the whole file itself.
    bool SuppressAcyclic() const override { return true; }
    bool SuppressIdInUse() const override { return true; }

private:
    [[nodiscard]] int Read(std::string text, const std::string& defaultName);
    // -2 and the refusal message when the network holds what the format
    // cannot express; 0 otherwise.
    [[nodiscard]] int CheckWritable();
    void WriteText();
    void SpecError(int code, const VEK_descPos& pos, const std::string& message) override;
};
