// Network methods: node enumeration, node identity and type, arcs.
#include <optional>

#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// Node types taken by the forms of add_node that name none.
constexpr int kDefaultNodeType = NodeType::CPT;

std::vector<int> WrpGetAllNodes(const VEK_network* net) {
    VEK_intArray handles;
    Deref(net).GetAllNodes(handles);
    return IntArrayToVector(handles);
}

int WrpGetNodeCount(const VEK_network* net) { return Deref(net).GetNumberOfNodes(); }

std::vector<std::string> WrpGetAllNodeIds(const VEK_network* net) {
    VEK_stringArray ids;
    ValidateResult(Deref(net).GetAllNodeIds(ids), "Network.GetAllNodeIds");
    return IdArrayToVector(ids);
}

// Walking the nodes: a negative handle (the engine's -2) ends the walk.
int WrpGetFirstNode(const VEK_network* net) { return Deref(net).GetFirstNode(); }

std::optional<std::string> IdOrNone(const VEK_network& net, int handle) {
    if (handle < 0) return std::nullopt;
    return CopyConstCharPtr(net.GetNodeId(handle));
}

std::optional<std::string> WrpGetFirstNodeId(const VEK_network* net) {
    return IdOrNone(Deref(net), Deref(net).GetFirstNode());
}

int WrpGetNextNode(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    return net->GetNextNode(handle);
}

std::optional<std::string> WrpGetNextNodeId(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    return IdOrNone(*net, net->GetNextNode(handle));
}

std::string WrpGetNodeName(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetNode(Deref(net), handle).Header().GetName());
}

NodeType::Value WrpGetNodeType(VEK_network* net, int handle) {
    return static_cast<NodeType::Value>(GetDef(Deref(net), handle).GetType());
}

std::vector<int> WrpGetParents(VEK_network* net, int handle) {
    return IntArrayToVector(GetNode(Deref(net), handle).Parents());
}

std::vector<std::string> WrpGetParentIds(VEK_network* net, int handle) {
    return HandlesToIds(*net, GetNode(Deref(net), handle).Parents());
}

std::vector<int> WrpGetChildren(VEK_network* net, int handle) {
    return IntArrayToVector(GetNode(Deref(net), handle).Children());
}

std::vector<std::string> WrpGetChildIds(VEK_network* net, int handle) {
    return HandlesToIds(*net, GetNode(Deref(net), handle).Children());
}

// A null id asks the engine for a generated one; a given id must be valid.
int WrpAddNode(VEK_network* net, int type, const std::string* id) {
    ValidateObject(net);
    if (id) ValidateId(*id);
    int res = net->AddNode(type, id ? id->c_str() : nullptr);
    if (res >= 0) return res;
    try {
        ThrowQuarnException(res, "Network.AddNode");
    } catch (quarn_exception& e) {
        if (res == VEK_OUT_OF_RANGE && id && net->IsThisIdentifierInUse(id->c_str(), -1)) {
            e.note = "The id '" + *id + "' is already used by a node or a submodel of this network";
        }
        throw;
    }
}

void WrpSetNodeName(VEK_network* net, int handle, const std::string& name) {
    ValidateText(name, "Network.SetNodeName", "Name");
    ValidateResult(GetNode(Deref(net), handle).Header().SetName(name.c_str()), "Network.SetNodeName");
}

int WrpGetNode(const VEK_network* net, const std::string& id) { return ValidateNodeId(Deref(net), id); }

std::string WrpGetNodeId(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetNode(Deref(net), handle).GetId());
}

void WrpSetNodeId(VEK_network* net, int handle, const std::string& id) {
    VEK_node& node = GetNode(Deref(net), handle);
    ValidateText(id, "Network.SetNodeId", "Identifier");
    ValidateResult(node.Header().SetId(id.c_str()), "Network.SetNodeId");
}

void WrpAddArc(VEK_network* net, int parent, int child) {
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    int res = net->AddArc(parent, child, 0);
    try {
        ValidateResult(res, "Network.AddArc");
    } catch (quarn_exception& e) {
        const std::string p = CopyConstCharPtr(net->GetNodeId(parent)), c = CopyConstCharPtr(net->GetNodeId(child));
        if (res == VEK_CYCLE) {
            e.note = "An arc from '" + p + "' to '" + c + "' would close a directed cycle: '" + c +
                     "' is already an ancestor of '" + p + "'";
        } else if (res == VEK_OUT_OF_RANGE && parent == child) {
            e.note = "A node cannot be its own parent";
        } else if (res == VEK_OUT_OF_RANGE) {
            e.note = "'" + p + "' and '" + c + "' are already joined by an arc";
        }
        throw;
    }
}

void WrpDeleteArc(VEK_network* net, int parent, int child) {
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    ValidateResult(net->RemoveArc(parent, child, 0), "Network.DeleteArc");
}

// A bad handle goes to the engine unchecked; its -2 is raised.
void WrpDeleteNode(VEK_network* net, int handle) { ValidateResult(Deref(net).DeleteNode(handle), "Network.DeleteNode"); }

void WrpSetNodeType(VEK_network* net, int handle, int type) {
    ValidateNodeHandle(Deref(net), handle);
    ValidateResult(net->ChangeNodeType(handle, type), "Network.SetNodeType");
}

void WrpSetNodeDescription(VEK_network* net, int handle, const std::string& description) {
    ValidateText(description, "Network.SetNodeDescription", "Description");
    ValidateResult(GetNode(Deref(net), handle).Header().SetComment(description.c_str()),
                   "Network.SetNodeDescription");
}

std::string WrpGetNodeDescription(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetNode(Deref(net), handle).Header().GetComment());
}

}  // namespace
}  // namespace Wrp

void BindNodesAndArcs(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    cls.def("get_all_nodes", [](const PyNetwork& self) { return WrpGetAllNodes(&self); },
            "Returns handles to all nodes");
    cls.def("get_node_count", [](const PyNetwork& self) { return WrpGetNodeCount(&self); },
            "Returns number of nodes in network");
    cls.def("get_all_node_ids", [](const PyNetwork& self) { return WrpGetAllNodeIds(&self); },
            "Returns IDs of all nodes");
    cls.def("get_first_node", [](const PyNetwork& self) { return WrpGetFirstNode(&self); },
            "Returns handle to first node");
    cls.def("get_first_node_id", [](const PyNetwork& self) { return WrpGetFirstNodeId(&self); },
            "Returns ID of first node");
    DefNode(cls, "get_next_node", &WrpGetNextNode, "Returns next node handle");
    DefNode(cls, "get_next_node_id", &WrpGetNextNodeId, "Returns next node ID");
    DefNodeById(cls, "get_node_name", &WrpGetNodeName, "Returns node name");
    DefNode(cls, "get_node_type", &WrpGetNodeType, "Returns node type");
    DefNode(cls, "get_parents", &WrpGetParents, "Returns parent node handles");
    DefNode(cls, "get_parent_ids", &WrpGetParentIds, "Returns parent node IDs");
    DefNode(cls, "get_children", &WrpGetChildren, "Returns child node handles");
    DefNode(cls, "get_child_ids", &WrpGetChildIds, "Returns child node IDs");

    const char* addNodeDoc = "Adds a node to the network";
    cls.def(
        "add_node",
        [](PyNetwork& self, NodeType::Value type, const std::string& id) { return WrpAddNode(&self, type, &id); },
        py::arg("node_type"), py::arg("node_id"), addNodeDoc);
    cls.def(
        "add_node", [](PyNetwork& self, NodeType::Value type) { return WrpAddNode(&self, type, nullptr); },
        py::arg("node_type"), addNodeDoc);
    cls.def(
        "add_node",
        [](PyNetwork& self, const std::string& id) { return WrpAddNode(&self, kDefaultNodeType, &id); },
        py::arg("node_id"), addNodeDoc);
    cls.def(
        "add_node", [](PyNetwork& self) { return WrpAddNode(&self, kDefaultNodeType, nullptr); }, addNodeDoc);

    DefNode(cls, "set_node_name", &WrpSetNodeName, "Sets name of a node", py::arg("new_name"));
    cls.def(
        "get_node", [](const PyNetwork& self, const std::string& id) { return WrpGetNode(&self, id); },
        py::arg("node_id"), "Returns node handle");
    DefNodeByHandle(cls, "get_node_id", &WrpGetNodeId, "Returns ID of node");
    DefNode(cls, "set_node_id", &WrpSetNodeId, "Sets ID of a node", py::arg("new_id"));
    DefNodePair(cls, "add_arc", &WrpAddArc, "Adds a directed arc between two nodes", "parent", "child");
    DefNodePair(cls, "delete_arc", &WrpDeleteArc, "Removes an arc between two nodes", "parent", "child");
    DefNode(cls, "delete_node", &WrpDeleteNode, "Deletes a node");
    DefNode(cls, "set_node_type", &WrpSetNodeType, "Sets type of node", py::arg("node_type"));
    DefNode(cls, "set_node_description", &WrpSetNodeDescription, "Sets node description",
            py::arg("new_description"));
    DefNodeById(cls, "get_node_description", &WrpGetNodeDescription, "Returns description of a node");
}
