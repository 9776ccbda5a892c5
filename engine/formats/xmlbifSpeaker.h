// XMLBIF 0.3 files (BIF / NETWORK / VARIABLE / DEFINITION), whatever their
// extension. VARIABLE TYPE "nature", "decision" and "utility" map to chance,
// decision and utility nodes; a TABLE lists the child's states fastest, then
// the GIVEN variables, the last one fastest. PROPERTY "position = (x, y)"
// places a node, any other PROPERTY "key = value" becomes a user property.
// A file that is not XML is read as text BIF (see bifTextReader.h).
#pragma once

#include <string>

#include "formats/fileFormat.h"
#include "formats/netDesc.h"

class VEK_xmlbifSpeaker : public VEK_fileFormat, private VEK_descErrorSink {
public:
    explicit VEK_xmlbifSpeaker(VEK_network& net) : VEK_fileFormat(net) {}

    [[nodiscard]] int ReadNetwork(const char* path) override;
    [[nodiscard]] int WriteNetwork(const char* path) override;
    [[nodiscard]] int ReadNetworkFromString(const char* text) override;
    [[nodiscard]] int WriteNetworkToString(std::string& out) override;
    bool SuppressAcyclic() const override { return true; }
    bool SuppressIdInUse() const override { return true; }

private:
    [[nodiscard]] int Read(std::string text);
    [[nodiscard]] int ReadXml(const std::string& text, VEK_netDesc& desc);
    [[nodiscard]] int CheckWritable();
    [[nodiscard]] int Write(const char* path, std::string* out);
    void SpecError(int code, const VEK_descPos& pos, const std::string& message) override;
};
