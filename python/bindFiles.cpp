// Network methods: identity (id, name, description), library build, log
// redirection and copying.
#include <cstdio>
#include <memory>

#include "bindUtil.h"
#include "fileName.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

std::string WrpGetId(const VEK_network* net) { return CopyConstCharPtr(Deref(net).Header().GetId()); }

std::string WrpGetName(const VEK_network* net) { return CopyConstCharPtr(Deref(net).Header().GetName()); }

std::string WrpGetDescription(const VEK_network* net) {
    return CopyConstCharPtr(Deref(net).Header().GetComment());
}

void WrpSetId(VEK_network* net, const std::string& id) {
    ValidateText(id, "Network.SetId", "Identifier");
    ValidateResult(Deref(net).Header().SetId(id.c_str()), "Network.SetId");
}

void WrpSetName(VEK_network* net, const std::string& name) {
    ValidateText(name, "Network.SetName", "Name");
    ValidateResult(Deref(net).Header().SetName(name.c_str()), "Network.SetName");
}

void WrpSetDescription(VEK_network* net, const std::string& description) {
    ValidateText(description, "Network.SetDescription", "Description");
    ValidateResult(Deref(net).Header().SetComment(description.c_str()), "Network.SetDescription");
}

std::string WrpGetLibraryBuild(const VEK_network* net) {
    ValidateObject(net);
    return kLibraryVersion;
}

void WrpRedirectLog(VEK_network* net, int fd) {
    VEK_logger& logger = Deref(net).Logger();
    if (fd == 1) {
        logger.Redirect(new LogTee(new VEK_loggerFileRedirect(stdout, nullptr, false)));
    } else if (fd == 2) {
        logger.Redirect(new LogTee(new VEK_loggerFileRedirect(stderr, nullptr, false)));
    } else {
        ThrowQuarnException(VEK_OUT_OF_RANGE, "Network.RedirectLog",
                            "Invalid file descriptor, only 1 (stdout) or 2 (stderr) are valid");
    }
}

void WrpRedirectLog(VEK_network* net, const std::string& filename) {
    ValidateText(filename, "Network.RedirectLog", "File name");
    // Opened by the engine, then wrapped; a failed open leaves the old redirect.
    VEK_logger opened;
    ValidateResult(opened.RedirectToFile(filename.c_str()), "Network.RedirectLog");
    Deref(net).Logger().Redirect(new LogTee(opened.ReleaseRedirect()));
}

// None: back to the logger that keeps its messages in memory.
void WrpRedirectLogToMemory(VEK_network* net) { Deref(net).Logger().Redirect(nullptr); }

// A full copy made by the copy constructor. The copy's logger keeps its own
// list: a redirect copied from the original would write to a stream that the
// original closes when it goes.
std::unique_ptr<PyNetwork> WrpCopy(const PyNetwork* net) {
    auto copy = std::make_unique<PyNetwork>(Deref(net));
    if (copy->Logger().IsRedirected()) copy->Logger().Redirect(nullptr);
    return copy;
}

}  // namespace
}  // namespace Wrp

void BindFilesAndIdentity(PyNetworkClass& cls) {
    using namespace Wrp;

    // read_file, read_string, write_string and write_file are registered by
    // BindFileIO.

    cls.def("get_id", [](const PyNetwork& self) { return WrpGetId(&self); }, "Returns network ID");
    cls.def("get_name", [](const PyNetwork& self) { return WrpGetName(&self); }, "Returns network name");
    cls.def(
        "get_description", [](const PyNetwork& self) { return WrpGetDescription(&self); },
        "Returns network description");
    cls.def(
        "get_library_build", [](const PyNetwork& self) { return WrpGetLibraryBuild(&self); },
        "Returns library build version");
    cls.def(
        "set_id", [](PyNetwork& self, const std::string& id) { WrpSetId(&self, id); }, py::arg("new_id"),
        "Sets network ID");
    cls.def(
        "set_name", [](PyNetwork& self, const std::string& name) { WrpSetName(&self, name); },
        py::arg("new_name"), "Sets network name");
    cls.def(
        "set_description",
        [](PyNetwork& self, const std::string& description) { WrpSetDescription(&self, description); },
        py::arg("new_description"), "Sets network description");
    cls.def(
        "redirect_log", [](PyNetwork& self, int fd) { WrpRedirectLog(&self, fd); }, py::arg("std_file_descriptor"),
        "Redirects QUARN log output");
    cls.def(
        "redirect_log", [](PyNetwork& self, const FileName& filename) { WrpRedirectLog(&self, filename.path); },
        py::arg("filename"), "Redirects QUARN log output");
    cls.def(
        "redirect_log", [](PyNetwork& self, py::none) { WrpRedirectLogToMemory(&self); }, py::arg("target"),
        "Redirects QUARN log output");
    cls.def(
        "__copy__", [](const PyNetwork& self) { return WrpCopy(&self); }, "Returns a full copy of the network");
    cls.def(
        "__deepcopy__", [](const PyNetwork& self, py::dict) { return WrpCopy(&self); }, py::arg("memo"),
        "Returns a full copy of the network");
}
