// The XML network format (.xvek, .qvek): the speaker that the format dispatch
// creates, and the caller-supplied extension it accepts.
#pragma once

#include <string>

#include "formats/fileFormat.h"

class IXmlBinding;
class IXmlWriterExtension;

// What VEK_network::ReadFile / WriteFile / ReadString / WriteString take as
// their extension argument for this format: a binding hung under
// <extensions> when reading and a writer of the extension's subtree when
// writing, used instead of the built-in graphical extension. Either may be
// null (then nothing is read or written there). The caller owns both.
struct XmlUserExtension {
    IXmlBinding* loader = nullptr;
    IXmlWriterExtension* saver = nullptr;
};

class VEK_xvekSpeaker : public VEK_fileFormat {
public:
    explicit VEK_xvekSpeaker(VEK_network& net) : VEK_fileFormat(net) {}

    [[nodiscard]] int ReadNetwork(const char* path) override;
    [[nodiscard]] int WriteNetwork(const char* path) override;
    [[nodiscard]] int ReadNetworkFromString(const char* text) override;
    [[nodiscard]] int WriteNetworkToString(std::string& out) override;
    // Takes an XmlUserExtension* (or null for the built-in extension).
    void SetUserExtension(void* extension) override;
    // Parents are listed before their children, so reading never closes a
    // cycle; the loader checks id uniqueness with its own index.
    bool SuppressAcyclic() const override { return true; }
    bool SuppressIdInUse() const override { return true; }

private:
    XmlUserExtension* user_ = nullptr;
};
