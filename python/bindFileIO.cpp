// Network methods: reading and writing network files and strings.
#include <string>

#include "bindUtil.h"
#include "fileName.h"
#include "formats/uaiSpeaker.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// Each clears the logger first, so a failure reports the messages of this
// call only.
// format: 0 picks the format by the file name's extension, 1 to 9 name it
// (files of other tools often carry a neutral extension such as .xml).
void WrpReadFile(VEK_network* net, const std::string& path, int format) {
    ValidateText(path, "Network.ReadFile", "File name");
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    int res = net->ReadFile(path.c_str(), format);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.ReadFile", logger);
}

void WrpReadString(VEK_network* net, const std::string& text) {
    ValidateText(text, "Network.ReadString", "Network text");
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    int res = net->ReadString(text.c_str());
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.ReadString", logger);
}

void WrpWriteFile(VEK_network* net, const std::string& path, int format) {
    ValidateText(path, "Network.WriteFile", "File name");
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    int res = net->WriteFile(path.c_str(), format);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.WriteFile", logger);
}

std::string WrpWriteString(VEK_network* net) {
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    std::string out;
    int res = net->WriteString(out);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.WriteString", logger);
    return out;
}

// The variables of the file are the nodes in their order; a faulty file
// sets nothing.
void WrpReadUaiEvidence(VEK_network* net, const std::string& path) {
    ValidateText(path, "Network.ReadUaiEvidence", "File name");
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    VEK_uaiSpeaker speaker(*net);
    int res = speaker.ReadEvidence(path.c_str());
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.ReadUaiEvidence", logger);
}

}  // namespace
}  // namespace Wrp

void BindFileIO(PyNetworkClass& cls) {
    using namespace Wrp;
    cls.def(
        "read_file", [](PyNetwork& self, const FileName& path, int format) { WrpReadFile(&self, path.path, format); },
        py::arg("xvek_file"), py::arg("format") = 0, "Reads network from a file");
    cls.def(
        "read_string", [](PyNetwork& self, const std::string& text) { WrpReadString(&self, text); },
        py::arg("xvek_string"), "Reads network from a string");
    cls.def(
        "write_string", [](PyNetwork& self) { return WrpWriteString(&self); },
        "Serializes network to a string");
    cls.def(
        "write_file", [](PyNetwork& self, const FileName& path, int format) { WrpWriteFile(&self, path.path, format); },
        py::arg("xvek_file"), py::arg("format") = 0, "Writes network to a file");
    cls.def(
        "read_uai_evidence", [](PyNetwork& self, const FileName& path) { WrpReadUaiEvidence(&self, path.path); },
        py::arg("filename"), "Sets the evidence of a UAI evidence file, its variables being the nodes in order");
}
