// Placeholder until the file formats exist: every file operation reports
// that no reader or writer is available.
#include "network/network.h"

VEK_fileFormat* VEK_network::CreateFileFormat(const char*, int& format) {
    format = VEK_OUT_OF_RANGE;
    logger_.LogError(VEK_OUT_OF_RANGE, "Unknown File Format");
    return nullptr;
}

int VEK_network::ReadFile(const char* path, int format, void*) {
    return CreateFileFormat(path, format) ? VEK_OKAY : VEK_OUT_OF_RANGE;
}

int VEK_network::WriteFile(const char* path, int format, void*) {
    return CreateFileFormat(path, format) ? VEK_OKAY : VEK_OUT_OF_RANGE;
}

int VEK_network::ReadString(const char*, void*) { return VEK_OUT_OF_RANGE; }

int VEK_network::WriteString(std::string& out, void*) {
    out.clear();
    return VEK_OUT_OF_RANGE;
}
