// Network methods: definition tables, value indexing parents, MAU
// expressions and the external function list.
#include "bindUtil.h"
#include "equations/equation.h"
#include "network/mau.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

VEK_mau& GetMau(VEK_network& net, int handle, const char* function) {
    auto* mau = dynamic_cast<VEK_mau*>(&GetDef(net, handle));
    if (mau == nullptr) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       "Node '" + CopyConstCharPtr(net.GetNodeId(handle)) + "' is not a MAU node");
    }
    return *mau;
}

void WrpSetNodeDefinition(VEK_network* net, int handle, const std::vector<double>& items) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    int expected = def.GetParameters().GetSize();
    if (static_cast<int>(items.size()) != expected) {
        std::string message = "Definition of node '" + CopyConstCharPtr(net->GetNodeId(handle)) + "' needs ";
        VEK_appendInt(message, expected);
        message += " items, got ";
        VEK_appendInt(message, static_cast<long long>(items.size()));
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.SetNodeDefinition", message);
    }
    // The definition tells the network, so beliefs computed before are stale.
    ValidateResult(def.SetDefinition(items), "Network.SetNodeDefinition");
}

std::vector<double> WrpGetNodeDefinition(VEK_network* net, int handle) {
    return DoubleArrayToVector(GetDef(Deref(net), handle).GetDefinition());
}

std::vector<int> WrpGetValueIndexingParents(VEK_network* net, int handle) {
    return IntArrayToVector(GetVal(Deref(net), handle).GetIndexingParents());
}

std::vector<std::string> WrpGetValueIndexingParentIds(VEK_network* net, int handle) {
    return HandlesToIds(*net, GetVal(Deref(net), handle).GetIndexingParents());
}

std::vector<std::string> WrpGetMauExpressions(VEK_network* net, int handle) {
    return GetMau(Deref(net), handle, "Network.GetMauExpressions").GetExpressions();
}

void WrpSetMauExpressions(VEK_network* net, int handle, const std::vector<std::string>& expressions) {
    VEK_mau& mau = GetMau(Deref(net), handle, "Network.SetMauExpressions");
    for (const std::string& e : expressions) ValidateText(e, "Network.SetMauExpressions", "Expression");
    ValidateResult(mau.SetExpressions(expressions), "Network.SetMauExpressions");
}

void WrpSetExtFunctions(VEK_network* net, const std::vector<std::string>& functions) {
    for (const std::string& f : functions) ValidateText(f, "Network.SetExtFunctions", "Function");
    std::string message;
    const int res = VEK_setExtFunctions(Deref(net), functions, message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "Network.SetExtFunctions", message);
}

std::vector<std::string> WrpGetExtFunctions(const VEK_network* net) { return Deref(net).ExtFunctions(); }

}  // namespace
}  // namespace Wrp

void BindDefinitions(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    DefNode(cls, "set_node_definition", &WrpSetNodeDefinition, "Sets node definition table",
            py::arg("definition"));
    DefNode(cls, "get_node_definition", &WrpGetNodeDefinition, "Returns definition table of node");
    DefNode(cls, "get_value_indexing_parents", &WrpGetValueIndexingParents,
            "Returns parent handles for value indexing");
    DefNode(cls, "get_value_indexing_parent_ids", &WrpGetValueIndexingParentIds,
            "Returns parent IDs for value indexing");
    // The noisy and DeMorgan methods follow, registered by BindCanonical.
    DefNodeById(cls, "get_mau_expressions", &WrpGetMauExpressions, "Returns MAU expressions");
    DefNode(cls, "set_mau_expressions", &WrpSetMauExpressions, "Sets MAU expressions", py::arg("expressions"));
    cls.def(
        "set_ext_functions",
        [](PyNetwork& self, const std::vector<std::string>& functions) { WrpSetExtFunctions(&self, functions); },
        py::arg("functions"), "Sets external functions");
    cls.def(
        "get_ext_functions", [](const PyNetwork& self) { return WrpGetExtFunctions(&self); },
        "Returns external functions");
}
