// Network methods: submodels, the tree of groups that nodes belong to.
// Submodel handles carry the bit 0x8000, so a node handle never passes for one.
#include <initializer_list>
#include <string>
#include <vector>

#include "bindPosition.h"
#include "bindUtil.h"
#include "network/identifier.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// Reported like a bad node handle: code -3 and the handle in the text.
void ValidateSubmodelHandle(const VEK_network& net, int handle) {
    if (!net.Submodels().IsValidSubmodel(handle)) {
        std::string text = "QUARN Error Occured. Invalid submodel handle: ";
        VEK_appendInt(text, handle);
        throw quarn_exception(VEK_NO_ITEM, text);
    }
}

// An unknown id reports the engine's negative lookup result as the handle.
int ValidateSubmodelId(const VEK_network& net, const std::string& id) {
    // The lookup reads a C string: an id holding a NUL must not match its prefix.
    int handle = id.find('\0') == std::string::npos ? net.Submodels().FindSubmodel(id.c_str()) : VEK_OUT_OF_RANGE;
    ValidateSubmodelHandle(net, handle);
    return handle;
}

VEK_submodel& GetSubmodel(VEK_network& net, int handle) {
    ValidateSubmodelHandle(net, handle);
    return *net.Submodels().Get(handle);
}

int WrpGetSubmodel(VEK_network* net, const std::string& id) { return ValidateSubmodelId(Deref(net), id); }

int WrpGetMainSubmodel(VEK_network* net) { return Deref(net).Submodels().GetMainSubmodel(); }

std::string WrpGetMainSubmodelId(VEK_network* net) {
    return CopyConstCharPtr(GetSubmodel(Deref(net), net->Submodels().GetMainSubmodel()).header.GetId());
}

int WrpGetSubmodelCount(VEK_network* net) { return Deref(net).Submodels().GetNumberOfSubmodels(); }

int WrpGetFirstSubmodel(VEK_network* net) { return Deref(net).Submodels().GetFirstSubmodel(); }

// As for nodes, the walk ends with the engine's negative result.
int WrpGetNextSubmodel(VEK_network* net, int handle) {
    ValidateSubmodelHandle(Deref(net), handle);
    return net->Submodels().GetNextSubmodel(handle);
}

int WrpAddSubmodel(VEK_network* net, int parent, const std::string& id) {
    ValidateSubmodelHandle(Deref(net), parent);
    // The engine would refuse a bad id too; checking here gives the same
    // message as add_node.
    ValidateId(id);
    int res = net->AddSubmodel(parent, id.c_str());
    if (res < 0) ThrowQuarnException(res, "Network.AddSubmodel");
    return res;
}

void WrpDeleteSubmodel(VEK_network* net, int handle) {
    ValidateSubmodelHandle(Deref(net), handle);
    ValidateResult(net->DeleteSubmodel(handle), "Network.DeleteSubmodel");
}

void WrpSetSubmodelId(VEK_network* net, int handle, const std::string& id) {
    ValidateSubmodelHandle(Deref(net), handle);
    ValidateId(id);
    ValidateResult(net->SetSubmodelId(handle, id.c_str()), "Network.SetSubmodelId");
}

std::string WrpGetSubmodelId(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetSubmodel(Deref(net), handle).header.GetId());
}

void WrpSetSubmodelName(VEK_network* net, int handle, const std::string& name) {
    VEK_submodel& s = GetSubmodel(Deref(net), handle);
    ValidateText(name, "Network.SetSubmodelName");
    ValidateResult(s.header.SetName(name.c_str()), "Network.SetSubmodelName");
}

std::string WrpGetSubmodelName(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetSubmodel(Deref(net), handle).header.GetName());
}

void WrpSetSubmodelDescription(VEK_network* net, int handle, const std::string& description) {
    VEK_submodel& s = GetSubmodel(Deref(net), handle);
    ValidateText(description, "Network.SetSubmodelDescription");
    ValidateResult(s.header.SetComment(description.c_str()), "Network.SetSubmodelDescription");
}

std::string WrpGetSubmodelDescription(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetSubmodel(Deref(net), handle).header.GetComment());
}

void WrpSetSubmodelOfNode(VEK_network* net, int node, int submodel) {
    // A handle that names no submodel is the engine's to refuse (-2).
    ValidateNodeHandle(Deref(net), node);
    ValidateResult(net->SetNodeSubmodel(node, submodel), "Network.SetSubmodelOfNode");
}

// Moving a submodel into itself or into one of its descendants is refused
// by the engine with -2.
void WrpSetSubmodelOfSubmodel(VEK_network* net, int submodel, int parent) {
    ValidateSubmodelHandle(Deref(net), submodel);
    ValidateSubmodelHandle(*net, parent);
    ValidateResult(net->MoveSubmodel(submodel, parent), "Network.SetSubmodelOfSubmodel");
}

int WrpGetSubmodelOfNode(VEK_network* net, int node) { return GetNode(Deref(net), node).GetSubmodel(); }

// The main submodel has no parent: the engine's negative result, as at the
// end of a walk.
int WrpGetSubmodelOfSubmodel(VEK_network* net, int submodel) {
    ValidateSubmodelHandle(Deref(net), submodel);
    return net->Submodels().GetParent(submodel);
}

std::vector<int> WrpGetSubmodelPosition(VEK_network* net, int handle) {
    return GetPosition(GetSubmodel(Deref(net), handle).info);
}

void WrpSetSubmodelPosition(VEK_network* net, int handle, int x, int y, int width, int height) {
    VEK_submodel& s = GetSubmodel(Deref(net), handle);
    s.info.position = BindPosition::CheckedRectangle(x, y, width, height, "Network.SetSubmodelPosition");
}

void WrpSetSubmodelPositionFromList(VEK_network* net, int handle, const std::vector<int>& rect) {
    VEK_submodel& s = GetSubmodel(Deref(net), handle);
    s.info.position = BindPosition::CheckedRectangle(
        rect, "pyquarn.Network.set_submodel_position(int, list) - rect array has invalid size",
        "Network.SetSubmodelPosition");
}

}  // namespace
}  // namespace Wrp

namespace {

enum class By { Handle, Id };

// fn(net, submodel, args...) registered as (int submodel_handle, args...)
// and/or (str submodel_id, args...), in the order given.
template <class R, class... Args, class... Extra>
void DefSubmodel(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, Args...), const char* doc,
                 std::initializer_list<By> forms, const Extra&... extra) {
    for (By form : forms) {
        if (form == By::Handle) {
            cls.def(
                name, [fn](PyNetwork& self, int h, Args... a) -> R { return fn(&self, h, std::forward<Args>(a)...); },
                py::arg("submodel_handle"), extra..., doc);
        } else {
            cls.def(
                name,
                [fn](PyNetwork& self, const std::string& id, Args... a) -> R {
                    return fn(&self, Wrp::ValidateSubmodelId(self, id), std::forward<Args>(a)...);
                },
                py::arg("submodel_id"), extra..., doc);
        }
    }
}

}  // namespace

void BindSubmodels(PyNetworkClass& cls) {
    using namespace Wrp;
    const auto both = {By::Handle, By::Id};

    cls.def("get_submodel", [](PyNetwork& self, const std::string& id) { return WrpGetSubmodel(&self, id); },
            py::arg("submodel_id"), "Returns handle to submodel");
    cls.def("get_main_submodel", [](PyNetwork& self) { return WrpGetMainSubmodel(&self); },
            "Returns main submodel handle");
    cls.def("get_main_submodel_id", [](PyNetwork& self) { return WrpGetMainSubmodelId(&self); },
            "Returns ID of main submodel");
    cls.def("get_submodel_count", [](PyNetwork& self) { return WrpGetSubmodelCount(&self); },
            "Returns number of submodels");
    cls.def("get_first_submodel", [](PyNetwork& self) { return WrpGetFirstSubmodel(&self); },
            "Returns handle to first submodel");
    DefSubmodel(cls, "get_next_submodel", &WrpGetNextSubmodel, "Returns next submodel handle", {By::Handle});

    const char* addDoc = "Adds a submodel to the network";
    cls.def(
        "add_submodel",
        [](PyNetwork& self, int parent, const std::string& id) { return WrpAddSubmodel(&self, parent, id); },
        py::arg("parent_handle"), py::arg("submodel_id"), addDoc);
    cls.def(
        "add_submodel",
        [](PyNetwork& self, const std::string& parent, const std::string& id) {
            return WrpAddSubmodel(&self, ValidateSubmodelId(self, parent), id);
        },
        py::arg("parent_id"), py::arg("submodel_id"), addDoc);

    DefSubmodel(cls, "delete_submodel", &WrpDeleteSubmodel, "Deletes a submodel", both);
    DefSubmodel(cls, "set_submodel_id", &WrpSetSubmodelId, "Sets submodel ID", {By::Handle}, py::arg("new_id"));
    DefSubmodel(cls, "get_submodel_id", &WrpGetSubmodelId, "Returns ID of submodel", {By::Handle});
    DefSubmodel(cls, "set_submodel_name", &WrpSetSubmodelName, "Sets submodel name", both, py::arg("new_name"));
    DefSubmodel(cls, "get_submodel_name", &WrpGetSubmodelName, "Returns name of submodel", {By::Id});
    DefSubmodel(cls, "set_submodel_description", &WrpSetSubmodelDescription, "Sets submodel description", both,
                py::arg("new_description"));
    DefSubmodel(cls, "get_submodel_description", &WrpGetSubmodelDescription, "Returns description of submodel",
                {By::Id});

    const char* nodeDoc = "Assigns node to submodel";
    cls.def(
        "set_submodel_of_node",
        [](PyNetwork& self, int node, int submodel) { WrpSetSubmodelOfNode(&self, node, submodel); },
        py::arg("node_handle"), py::arg("submodel_handle"), nodeDoc);
    cls.def(
        "set_submodel_of_node",
        [](PyNetwork& self, const std::string& node, const std::string& submodel) {
            int h = ValidateNodeId(self, node);
            WrpSetSubmodelOfNode(&self, h, ValidateSubmodelId(self, submodel));
        },
        py::arg("node_id"), py::arg("submodel_id"), nodeDoc);

    const char* subDoc = "Assigns submodel to parent submodel";
    cls.def(
        "set_submodel_of_submodel",
        [](PyNetwork& self, int submodel, int parent) { WrpSetSubmodelOfSubmodel(&self, submodel, parent); },
        py::arg("submodel_handle"), py::arg("parent_handle"), subDoc);
    cls.def(
        "set_submodel_of_submodel",
        [](PyNetwork& self, const std::string& submodel, const std::string& parent) {
            int h = ValidateSubmodelId(self, submodel);
            WrpSetSubmodelOfSubmodel(&self, h, ValidateSubmodelId(self, parent));
        },
        py::arg("submodel_id"), py::arg("parent_id"), subDoc);

    BindUtil::DefNode(cls, "get_submodel_of_node", &WrpGetSubmodelOfNode,
                      "Returns submodel handle containing a given node");
    DefSubmodel(cls, "get_submodel_of_submodel", &WrpGetSubmodelOfSubmodel, "Returns parent submodel", both);
    DefSubmodel(cls, "get_submodel_position", &WrpGetSubmodelPosition, "Returns position of submodel", both);

    const char* posDoc = "Sets submodel position";
    DefSubmodel(cls, "set_submodel_position", &WrpSetSubmodelPosition, posDoc, both, py::arg("x"), py::arg("y"),
                py::arg("width"), py::arg("height"));
    DefSubmodel(cls, "set_submodel_position", &WrpSetSubmodelPositionFromList, posDoc, both, py::arg("position"));
}
