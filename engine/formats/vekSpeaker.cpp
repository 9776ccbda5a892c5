#include "formats/vekSpeaker.h"

#include <new>
#include <string>

#include "formats/formatRegistry.h"
#include "formats/vekReader.h"
#include "formats/vekWriter.h"
#include "network/network.h"

VEK_fileFormat* VEK_createVekSpeaker(VEK_network& net) { return new VEK_vekSpeaker(net); }

int VEK_vekSpeaker::ReadNetwork(const char* path) {
    if (!path) return Logger().LogError(VEK_OUT_OF_RANGE, "No file name given");
    int res = OpenInput(path);
    return res < 0 ? res : Read();
}

int VEK_vekSpeaker::ReadNetworkFromString(const char* text) {
    SetFileName(nullptr);
    SetInputText(text ? text : "");
    return Read();
}

int VEK_vekSpeaker::Read() {
    try {
        return VEK_readVekNetwork(*this);
    } catch (const std::bad_alloc&) {
        return Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while reading the network");
    }
}

// The text is made first, so that a network the format cannot hold leaves
// no partial file behind.
int VEK_vekSpeaker::WriteNetwork(const char* path) {
    if (!path) return Logger().LogError(VEK_OUT_OF_RANGE, "No file name given");
    std::string text;
    int res = WriteNetworkToString(text);
    if (res < 0) return res;
    if ((res = OpenOutput(path)) < 0) return res;
    Out().Write(text);
    return CloseOutput();
}

int VEK_vekSpeaker::WriteNetworkToString(std::string& out) {
    SetOutputString(out);
    return Write();
}

int VEK_vekSpeaker::Write() {
    int res;
    try {
        res = VEK_writeVekNetwork(*this);
    } catch (const std::bad_alloc&) {
        res = Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the network");
    }
    int closed = CloseOutput();
    return res < 0 ? res : closed;
}
