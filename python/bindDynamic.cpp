// Network methods of dynamic networks: slices, temporal types and arcs,
// temporal definitions, evidence per slice, unrolling and the temporal plate;
// and the UnrollResults record.
#include <pybind11/stl.h>

#include "bindPosition.h"
#include "bindUtil.h"
#include "dynamic/dynamicNet.h"
#include "dynamic/unroll.h"
#include "wrpCore.h"

namespace {

using namespace Wrp;

// The result of unroll(): the unrolled network and the map from (plate node
// id, slice) to the id of its copy.
struct PyUnrollResults : PyWrapper {
    py::object network;
    py::dict mapping;
};

std::string Quoted(const VEK_network& net, int handle) { return "'" + CopyConstCharPtr(net.GetNodeId(handle)) + "'"; }

void RequirePlate(const VEK_network& net, int handle, const char* function) {
    ValidateNodeHandle(net, handle);
    if (net.GetNode(handle)->GetTemporalType() != VEK_TEMPORAL_PLATE) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       "Node " + Quoted(net, handle) + " is not in the temporal plate");
    }
}

// Runs an engine call that logs its failures; the log joins the message.
template <class F>
void CallLogged(VEK_network& net, const char* function, F call) {
    ClearLog(net.Logger());
    const int res = call();
    if (res < 0) ThrowQuarnExceptionWithLog(res, function, net.Logger());
}

std::vector<PyTemporalInfo> ToInfos(const VEK_network& net, const std::vector<VEK_temporalArc>& arcs) {
    std::vector<PyTemporalInfo> out;
    for (const VEK_temporalArc& a : arcs) out.emplace_back(MakeTemporalInfo(net, a.node, a.order));
    return out;
}

// ---- slices and types

void WrpSetSliceCount(VEK_network* net, int count) {
    if (count < 1) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.SetNumberOfSlices", "Slice count must be at least 1");
    }
    ValidateResult(Deref(net).SetNumberOfSlices(count), "Network.SetNumberOfSlices");
}

NodeTemporalType::Value WrpGetNodeTemporalType(VEK_network* net, int handle) {
    return static_cast<NodeTemporalType::Value>(GetNode(Deref(net), handle).GetTemporalType());
}

void WrpSetNodeTemporalType(VEK_network* net, int handle, NodeTemporalType::Value type) {
    ValidateNodeHandle(Deref(net), handle);
    CallLogged(*net, "Network.SetNodeTemporalType", [&] { return net->SetTemporalType(handle, type); });
}

// ---- temporal arcs

void CheckOrder(int order, const char* function) {
    if (order < 1) ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "Temporal order must be at least 1");
}

void WrpAddTemporalArc(VEK_network* net, int parent, int child, int order) {
    const char* function = "Network.AddTemporalArc";
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    CheckOrder(order, function);
    RequirePlate(*net, parent, function);
    RequirePlate(*net, child, function);
    CallLogged(*net, function, [&] { return net->Dynamic().AddTemporalArc(parent, child, order); });
}

void WrpDeleteTemporalArc(VEK_network* net, int parent, int child, int order) {
    const char* function = "Network.RemoveTemporalArc";
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    if (!net->Dynamic().TemporalArcExists(parent, child, order)) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "Temporal arc does not exist");
    }
    ValidateResult(net->Dynamic().RemoveTemporalArc(parent, child, order), function);
}

bool WrpTemporalArcExists(VEK_network* net, int parent, int child, int order) {
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    return net->Dynamic().TemporalArcExists(parent, child, order);
}

int WrpGetMaxNodeTemporalOrder(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    return net->Dynamic().GetMaxNodeTemporalOrder(handle);
}

std::vector<int> WrpGetTemporalOrders(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    std::vector<int> out;
    net->Dynamic().GetTemporalOrders(handle, out);
    return out;
}

std::vector<PyTemporalInfo> WrpGetTemporalChildren(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    std::vector<VEK_temporalArc> arcs;
    net->Dynamic().GetTemporalChildren(handle, arcs);
    return ToInfos(*net, arcs);
}

std::vector<PyTemporalInfo> WrpGetTemporalParents(VEK_network* net, int handle, int order) {
    ValidateNodeHandle(Deref(net), handle);
    CheckOrder(order, "Network.GetTemporalParents");
    std::vector<VEK_temporalArc> arcs;
    net->Dynamic().GetTemporalParents(handle, order, arcs);
    return ToInfos(*net, arcs);
}

std::vector<PyTemporalInfo> WrpGetUnrolledParents(VEK_network* net, int handle, int order) {
    ValidateNodeHandle(Deref(net), handle);
    if (order < 0) ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.GetUnrolledParents", "Order cannot be negative");
    std::vector<VEK_temporalArc> arcs;
    (void)net->Dynamic().GetUnrolledParents(handle, order, arcs);  // node and order checked above
    return ToInfos(*net, arcs);
}

std::vector<PyTemporalInfo> WrpGetAllUnrolledParents(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    return WrpGetUnrolledParents(net, handle, net->Dynamic().GetMaxNodeTemporalOrder(handle));
}

// ---- temporal definitions

const VEK_Dmatrix& TemporalTable(VEK_network* net, int handle, int order, const char* function) {
    ValidateNodeHandle(Deref(net), handle);
    if (order < 0) ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "Order cannot be negative");
    const VEK_Dmatrix* m = net->Dynamic().GetTemporalParameters(handle, order);
    if (!m) {
        std::string text = "Node " + Quoted(*net, handle) + " has no temporal definition of order ";
        VEK_appendInt(text, order);
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, text);
    }
    return *m;
}

std::vector<double> WrpGetNodeTemporalDefinition(VEK_network* net, int handle, int order) {
    return DoubleArrayToVector(TemporalTable(net, handle, order, "Network.GetTemporalDefinition"));
}

void WrpSetNodeTemporalDefinition(VEK_network* net, int handle, int order, const std::vector<double>& values) {
    const char* function = "Network.SetTemporalDefinition";
    const VEK_Dmatrix& m = TemporalTable(net, handle, order, function);
    if (static_cast<int>(values.size()) != m.GetSize()) {
        std::string text = "Definition has ";
        VEK_appendInt(text, static_cast<int>(values.size()));
        text += " items, expected ";
        VEK_appendInt(text, m.GetSize());
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, text);
    }
    if (net->Dynamic().SetTemporalDefinition(handle, order, values) < 0) {
        const int type = net->GetDef(handle)->GetType();
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                       type == VEK_DEMORGAN ? "Weights and the prior belief must lie within [0, 1]"
                                       : type == VEK_NOISY_ADDER
                                           ? "Items must lie within [0, 1] and every free column must sum to 1"
                                           : "Items must lie within [0, 1] and every column must sum to 1");
    }
}

// ---- noisy-MAX strengths of temporal parents, one list per parent of the order

std::vector<std::vector<int>> WrpGetNoisyTemporalParentStrengths(VEK_network* net, int handle, int order) {
    const char* function = "Network.GetNoisyTemporalParentStrengths";
    RequirePlate(Deref(net), handle, function);
    std::vector<VEK_intArray> strengths;
    if (net->Dynamic().GetNoisyTemporalStrengths(handle, order, strengths) < 0) {
        std::string text = "Node " + Quoted(*net, handle) + " is no noisy-MAX node with temporal parents of order ";
        VEK_appendInt(text, order);
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, text);
    }
    std::vector<std::vector<int>> out;
    for (const VEK_intArray& s : strengths) out.push_back(IntArrayToVector(s));
    return out;
}

void WrpSetNoisyTemporalParentStrengths(VEK_network* net, int handle, int order,
                                        const std::vector<std::vector<int>>& strengths) {
    const char* function = "Network.SetNoisyTemporalParentStrengths";
    WrpGetNoisyTemporalParentStrengths(net, handle, order);
    std::vector<VEK_intArray> lists;
    for (const std::vector<int>& s : strengths) lists.push_back(VectorToIntArray(s));
    if (net->Dynamic().SetNoisyTemporalStrengths(handle, order, lists) < 0) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                       "Give one list per temporal parent of the order, each listing every outcome "
                                       "of its parent exactly once");
    }
}

// ---- evidence per slice

void CheckPlateSlice(VEK_network* net, int handle, int slice, const char* function) {
    RequirePlate(Deref(net), handle, function);
    ValidateSlice(*net, slice);
}

void WrpSetTemporalEvidence(VEK_network* net, int handle, int slice, int outcome) {
    const char* function = "Network.SetTemporalEvidence";
    CheckPlateSlice(net, handle, slice, function);
    ValidateOutcomeIndex(*net, handle, outcome);
    ValidateResult(net->Dynamic().SetTemporalEvidence(handle, slice, outcome), function);
}

int WrpGetTemporalEvidence(VEK_network* net, int handle, int slice) {
    CheckPlateSlice(net, handle, slice, "Network.GetTemporalEvidence");
    const int e = net->Dynamic().GetTemporalEvidence(handle, slice);
    if (e < 0) {
        std::string text = "Node " + Quoted(*net, handle) + " has no evidence in slice ";
        VEK_appendInt(text, slice);
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.GetTemporalEvidence", text);
    }
    return e;
}

std::string WrpGetTemporalEvidenceId(VEK_network* net, int handle, int slice) {
    return CopyConstCharPtr((*net->GetDef(handle)->GetOutcomeIds())[WrpGetTemporalEvidence(net, handle, slice)]);
}

bool WrpIsTemporalEvidence(VEK_network* net, int handle, int slice) {
    CheckPlateSlice(net, handle, slice, "Network.IsTemporalEvidence");
    return net->Dynamic().GetTemporalEvidence(handle, slice) >= 0;
}

bool WrpIsTemporalVirtualEvidence(VEK_network* net, int handle, int slice) {
    CheckPlateSlice(net, handle, slice, "Network.IsTemporalVirtualEvidence");
    return net->Dynamic().GetTemporalVirtualEvidence(handle, slice) != nullptr;
}

bool WrpHasTemporalEvidence(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    return net->Dynamic().HasTemporalEvidence(handle);
}

void WrpSetTemporalVirtualEvidence(VEK_network* net, int handle, int slice, const std::vector<double>& likelihoods) {
    const char* function = "Network.SetTemporalVirtualEvidence";
    CheckPlateSlice(net, handle, slice, function);
    const int res = net->Dynamic().SetTemporalVirtualEvidence(handle, slice, likelihoods);
    if (res < 0) {
        ThrowQuarnExceptionWithMessage(res, function,
                                       "Virtual evidence needs one likelihood in 0..1 per outcome, not all zero");
    }
}

std::vector<double> WrpGetTemporalVirtualEvidence(VEK_network* net, int handle, int slice) {
    CheckPlateSlice(net, handle, slice, "Network.GetTemporalVirtualEvidence");
    const std::vector<double>* v = net->Dynamic().GetTemporalVirtualEvidence(handle, slice);
    if (!v) {
        std::string text = "Node " + Quoted(*net, handle) + " has no virtual evidence in slice ";
        VEK_appendInt(text, slice);
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.GetTemporalVirtualEvidence", text);
    }
    return *v;
}

void WrpClearTemporalEvidence(VEK_network* net, int handle, int slice) {
    CheckPlateSlice(net, handle, slice, "Network.ClearTemporalEvidence");
    ValidateResult(net->Dynamic().ClearTemporalEvidence(handle, slice), "Network.ClearTemporalEvidence");
}

// ---- unrolling

PyUnrollResults WrpUnroll(VEK_network* net) {
    auto* out = new PyNetwork();
    py::object owner = py::cast(out, py::return_value_policy::take_ownership);
    std::vector<VEK_unrolledNode> mapping;
    CallLogged(Deref(net), "Network.Unroll", [&] { return VEK_Unroll(*net, *out, mapping); });
    PyUnrollResults r;
    r.network = owner;
    for (const VEK_unrolledNode& m : mapping) {
        r.mapping[py::make_tuple(CopyConstCharPtr(net->GetNodeId(m.node)), m.slice)] =
            CopyConstCharPtr(out->GetNodeId(m.unrolled));
    }
    return r;
}

}  // namespace

void RegisterUnrollResults(py::module_& m) {
    py::class_<PyUnrollResults> cls(m, "UnrollResults", "Results of temporal unrolling of a dynamic network");
    cls.def_readonly("network", &PyUnrollResults::network, "The unrolled static network");
    cls.def_readonly("mapping", &PyUnrollResults::mapping,
                     "Dictionary from (plate node id, slice) to the id of its copy in the unrolled network");
    cls.def("__copy__", [](const PyUnrollResults& self) { return self; });
    cls.def(
        "__deepcopy__",
        [](const PyUnrollResults& self, py::dict memo) {
            PyUnrollResults r;
            r.network = py::module_::import("copy").attr("deepcopy")(self.network, memo);
            r.mapping = py::dict(self.mapping);
            return r;
        },
        py::arg("memo"));
}

void BindDynamic(PyNetworkClass& cls) {
    using namespace BindUtil;
    cls.def("get_slice_count", [](PyNetwork& self) { return self.GetNumberOfSlices(); }, "Returns number of time slices");
    cls.def(
        "set_slice_count", [](PyNetwork& self, int count) { WrpSetSliceCount(&self, count); }, py::arg("slice_count"),
        "Sets number of time slices");
    DefNode(cls, "get_node_temporal_type", &WrpGetNodeTemporalType, "Returns temporal type of node");
    DefNode(cls, "set_node_temporal_type", &WrpSetNodeTemporalType, "Sets temporal type", py::arg("temporal_type"));
    DefNodePair(cls, "add_temporal_arc", &WrpAddTemporalArc, "Adds a temporal arc", "parent", "child", py::arg("order"));
    DefNodePair(cls, "temporal_arc_exists", &WrpTemporalArcExists, "Returns true if the temporal arc exists", "parent",
                "child", py::arg("order"));
    DefNodePair(cls, "delete_temporal_arc", &WrpDeleteTemporalArc, "Deletes a temporal arc", "parent", "child",
                py::arg("order"));
    cls.def(
        "get_max_temporal_order", [](PyNetwork& self) { return self.Dynamic().GetMaxTemporalOrder(); },
        "Returns max temporal order in the network");
    DefNode(cls, "get_max_node_temporal_order", &WrpGetMaxNodeTemporalOrder, "Returns max temporal order of a node");
    DefNode(cls, "get_temporal_orders", &WrpGetTemporalOrders, "Returns temporal orders");

    DefNode(cls, "is_temporal_virtual_evidence", &WrpIsTemporalVirtualEvidence,
            "Returns true if node has temporal virtual evidence", py::arg("slice"));
    DefNode(cls, "set_temporal_virtual_evidence", &WrpSetTemporalVirtualEvidence, "Sets temporal virtual evidence",
            py::arg("slice"), py::arg("evidence"));
    DefNode(cls, "get_temporal_virtual_evidence", &WrpGetTemporalVirtualEvidence, "Returns temporal virtual evidence",
            py::arg("slice"));
    DefNode(cls, "has_temporal_evidence", &WrpHasTemporalEvidence, "Returns true if temporal evidence exists");
    DefNode(cls, "is_temporal_evidence", &WrpIsTemporalEvidence, "Returns true if node has temporal evidence",
            py::arg("slice"));
    DefNode(cls, "get_temporal_evidence", &WrpGetTemporalEvidence, "Returns temporal evidence values", py::arg("slice"));
    DefNodeById(cls, "get_temporal_evidence_id", &WrpGetTemporalEvidenceId, "Returns ID of temporal evidence",
                py::arg("slice"));
    DefNode(cls, "set_temporal_evidence", &WrpSetTemporalEvidence, "Sets temporal evidence", py::arg("slice"),
            py::arg("outcome_index"));
    const char* setDoc = "Sets temporal evidence";
    cls.def(
        "set_temporal_evidence",
        [](PyNetwork& self, int h, int slice, const std::string& outcome) {
            ValidateNodeHandle(self, h);
            WrpSetTemporalEvidence(&self, h, slice, ValidateOutcomeId(self, h, outcome));
        },
        py::arg("node_handle"), py::arg("slice"), py::arg("outcome_id"), setDoc);
    cls.def(
        "set_temporal_evidence",
        [](PyNetwork& self, const std::string& id, int slice, const std::string& outcome) {
            const int h = ValidateNodeId(self, id);
            WrpSetTemporalEvidence(&self, h, slice, ValidateOutcomeId(self, h, outcome));
        },
        py::arg("node_id"), py::arg("slice"), py::arg("outcome_id"), setDoc);
    DefNode(cls, "clear_temporal_evidence", &WrpClearTemporalEvidence, "Clears temporal evidence in a node",
            py::arg("slice"));

    DefNode(cls, "get_node_temporal_definition", &WrpGetNodeTemporalDefinition, "Returns temporal definition table",
            py::arg("order"));
    DefNode(cls, "set_node_temporal_definition", &WrpSetNodeTemporalDefinition, "Sets temporal definition table",
            py::arg("order"), py::arg("definition"));
    DefNode(cls, "get_noisy_temporal_parent_strengths", &WrpGetNoisyTemporalParentStrengths,
            "Returns noisy temporal parent outcome strengths", py::arg("order"));
    DefNode(cls, "set_noisy_temporal_parent_strengths", &WrpSetNoisyTemporalParentStrengths,
            "Sets noisy temporal parent outcome strengths", py::arg("order"), py::arg("strengths"));
    DefNode(cls, "get_temporal_children", &WrpGetTemporalChildren, "Returns temporal child nodes");
    DefNode(cls, "get_temporal_parents", &WrpGetTemporalParents, "Returns temporal parent nodes", py::arg("order"));
    DefNode(cls, "get_unrolled_parents", &WrpGetUnrolledParents, "Returns unrolled parent nodes", py::arg("order"));
    DefNode(cls, "get_unrolled_parents", &WrpGetAllUnrolledParents, "Returns unrolled parent nodes");
    cls.def("unroll", [](PyNetwork& self) { return WrpUnroll(&self); }, "Unrolls the temporal network");

    const char* posDoc = "Sets Temporal Plate Position";
    cls.def(
        "set_temporal_plate_position",
        [](PyNetwork& self, int x, int y, int width, int height) {
            self.Dynamic().PlatePosition() =
                BindPosition::CheckedRectangle(x, y, width, height, "Network.SetTemporalPlatePosition");
        },
        py::arg("x"), py::arg("y"), py::arg("width"), py::arg("height"), posDoc);
    cls.def(
        "set_temporal_plate_position",
        [](PyNetwork& self, const std::vector<int>& rect) {
            self.Dynamic().PlatePosition() = BindPosition::CheckedRectangle(
                rect, "pyquarn.Network.set_temporal_plate_position(int, list) - rect array has invalid size",
                "Network.SetTemporalPlatePosition");
        },
        py::arg("position"), posDoc);
    cls.def(
        "get_temporal_plate_position", [](PyNetwork& self) { return GetPosition(self.Dynamic().PlatePosition()); },
        "Returns Temporal Plate Position");
    cls.def(
        "set_temporal_plate_widths",
        [](PyNetwork& self, int left, int right) { self.Dynamic().SetPlateWidths(left, right); }, py::arg("left_width"),
        py::arg("right_width"), "Sets Temporal Plate Widths");
    cls.def(
        "get_temporal_plate_widths",
        [](PyNetwork& self) {
            return std::vector<int>{self.Dynamic().GetLeftWidth(), self.Dynamic().GetRightWidth()};
        },
        "Returns Temporal Plate Widths");
}
