// Network methods: user properties of the network and of nodes, and node
// documentation (title, path) items.
#include <string>
#include <vector>

#include <pybind11/stl.h>

#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// The engine keeps C strings: a NUL would silently cut a name or value
// short, and a property without a name cannot be looked up or saved. The
// whole list is checked before anything changes.
void CheckProperties(const std::vector<UserProperty>& items, const char* function) {
    for (const UserProperty& p : items) {
        if (p.name.empty()) ThrowQuarnException(VEK_INVALID_VALUE, function, "Property name cannot be empty");
        if (p.name.find('\0') != std::string::npos || p.value.find('\0') != std::string::npos) {
            ThrowQuarnException(VEK_INVALID_VALUE, function, "Property name or value holds a NUL character");
        }
    }
}

void CheckDocumentation(const std::vector<DocItemInfo>& items, const char* function) {
    for (const DocItemInfo& d : items) {
        if (d.title.find('\0') != std::string::npos || d.path.find('\0') != std::string::npos) {
            ThrowQuarnException(VEK_INVALID_VALUE, function, "Documentation title or path holds a NUL character");
        }
    }
}

std::vector<PyUserProperty> WrpGetUserProperties(VEK_network* net) {
    return ToPyRecords<PyUserProperty>(UserPropertiesToVector(Deref(net).UserProperties()));
}

// Replaces the whole list. A name given twice keeps its last value, placed
// last, as when the engine adds the properties one by one.
void WrpSetUserProperties(VEK_network* net, const std::vector<PyUserProperty>& items) {
    VEK_network& n = Deref(net);
    auto props = FromPyRecords<UserProperty>(items);
    CheckProperties(props, "Network.SetUserProperties");
    VectorToUserProperties(props, n.UserProperties());
}

std::vector<PyUserProperty> WrpGetNodeUserProperties(VEK_network* net, int handle) {
    return ToPyRecords<PyUserProperty>(UserPropertiesToVector(GetNode(Deref(net), handle).Info().userProperties));
}

void WrpSetNodeUserProperties(VEK_network* net, int handle, const std::vector<PyUserProperty>& items) {
    VEK_node& node = GetNode(Deref(net), handle);
    auto props = FromPyRecords<UserProperty>(items);
    CheckProperties(props, "Network.SetNodeUserProperties");
    VectorToUserProperties(props, node.Info().userProperties);
}

std::vector<PyDocItemInfo> WrpGetNodeDocumentation(VEK_network* net, int handle) {
    return ToPyRecords<PyDocItemInfo>(DocumentationToVector(GetNode(Deref(net), handle).Info().documentation));
}

void WrpSetNodeDocumentation(VEK_network* net, int handle, const std::vector<PyDocItemInfo>& items) {
    VEK_node& node = GetNode(Deref(net), handle);
    auto doc = FromPyRecords<DocItemInfo>(items);
    CheckDocumentation(doc, "Network.SetNodeDocumentation");
    VectorToDocumentation(doc, node.Info().documentation);
}

}  // namespace
}  // namespace Wrp

void BindUserProperties(PyNetworkClass& cls) {
    using namespace Wrp;
    using BindUtil::DefNode;

    cls.def("get_user_properties", [](PyNetwork& self) { return WrpGetUserProperties(&self); },
            "Returns user-defined network properties");
    cls.def(
        "set_user_properties",
        [](PyNetwork& self, const std::vector<PyUserProperty>& items) { WrpSetUserProperties(&self, items); },
        py::arg("properties"), "Sets user-defined network properties");
    DefNode(cls, "get_node_user_properties", &WrpGetNodeUserProperties, "Returns user-defined properties for node");
    DefNode(cls, "set_node_user_properties", &WrpSetNodeUserProperties, "Sets user properties of node",
            py::arg("properties"));
    DefNode(cls, "get_node_documentation", &WrpGetNodeDocumentation, "Returns documentation of a node");
    DefNode(cls, "set_node_documentation", &WrpSetNodeDocumentation, "Sets node documentation",
            py::arg("documentation"));
}
