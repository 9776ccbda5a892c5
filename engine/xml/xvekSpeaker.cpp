#include "xml/xvekSpeaker.h"

#include "formats/formatRegistry.h"
#include "network/network.h"
#include "xml/xmlNetLoader.h"
#include "xml/xmlNetworkSaver.h"

VEK_fileFormat* VEK_createXvekSpeaker(VEK_network& net) { return new VEK_xvekSpeaker(net); }

void VEK_xvekSpeaker::SetUserExtension(void* extension) { user_ = static_cast<XmlUserExtension*>(extension); }

int VEK_xvekSpeaker::ReadNetwork(const char* path) {
    if (!path) return Logger().LogError(VEK_OUT_OF_RANGE, "No file name given");
    return XmlLoad(path, nullptr, &Network(), user_ ? user_->loader : nullptr);
}

int VEK_xvekSpeaker::ReadNetworkFromString(const char* text) {
    return XmlLoad(nullptr, text ? text : "", &Network(), user_ ? user_->loader : nullptr);
}

int VEK_xvekSpeaker::WriteNetwork(const char* path) {
    if (!path) return Logger().LogError(VEK_OUT_OF_RANGE, "No file name given");
    return XmlSave(path, nullptr, &Network(), user_ ? user_->saver : nullptr);
}

int VEK_xvekSpeaker::WriteNetworkToString(std::string& out) {
    return XmlSave(nullptr, &out, &Network(), user_ ? user_->saver : nullptr);
}
