// Network methods: outcome identifiers, adding, inserting, renaming and
// deleting outcomes, interval edges and point values.
#include <climits>

#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// Outcome count of a node as a table dimension (1 for nodes without outcomes).
long long DimensionOf(const VEK_network& net, int handle, int changed, int newCount) {
    if (handle == changed) return newCount;
    int n = net.GetDef(handle)->GetNumberOfOutcomes();
    return n > 0 ? n : 1;
}

// Size of the table over a node's parents and its own outcomes, with the
// outcome count of node `changed` taken as newCount; stops past the int range.
long long TableSize(const VEK_network& net, int handle, int changed, int newCount) {
    long long size = DimensionOf(net, handle, changed, newCount);
    for (int p : net.GetNode(handle)->Parents()) {
        size *= DimensionOf(net, p, changed, newCount);
        if (size > INT_MAX) break;
    }
    return size;
}

// Changing a node's outcome count resizes its table and its children's. A
// table whose size would not fit an int cannot be built, and the engine would
// stop half-way through the change: refuse it before anything changes.
void ValidateOutcomeCountChange(const VEK_network& net, int handle, long long newCount, const char* function) {
    if (newCount > INT_MAX) ThrowQuarnException(VEK_OUT_OF_MEMORY, function, "Table too large");
    int count = static_cast<int>(newCount);
    bool tooLarge = TableSize(net, handle, handle, count) > INT_MAX;
    for (int c : net.GetNode(handle)->Children()) tooLarge = tooLarge || TableSize(net, c, handle, count) > INT_MAX;
    if (tooLarge) ThrowQuarnException(VEK_OUT_OF_MEMORY, function, "Table too large");
}

std::vector<std::string> WrpGetOutcomeIds(VEK_network* net, int handle) {
    const VEK_idArray* ids = GetDef(Deref(net), handle).GetOutcomeIds();
    return ids ? IdArrayToVector(*ids) : std::vector<std::string>();
}

int WrpGetOutcomeCount(VEK_network* net, int handle) { return GetOutcomeCount(Deref(net), handle); }

void WrpAddOutcome(VEK_network* net, int handle, const std::string& id) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    // An invalid or used id is replaced by the engine with one made from the
    // outcome prefix; only a NUL, which would cut the id short, is refused.
    ValidateText(id, "Network.AddOutcome", "Outcome identifier");
    ValidateOutcomeCountChange(*net, handle, GetOutcomeCount(*net, handle) + 1LL, "Network.AddOutcome");
    ValidateResult(def.AddOutcome(id.c_str()), "Network.AddOutcome");
}

void WrpInsertOutcome(VEK_network* net, int handle, int position, const std::string& id) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    ValidateText(id, "Network.InsertOutcome", "Outcome identifier");
    ValidateOutcomeCountChange(*net, handle, GetOutcomeCount(*net, handle) + 1LL, "Network.InsertOutcome");
    ValidateResult(def.InsertOutcome(position, id.c_str()), "Network.InsertOutcome");
}

void WrpDeleteOutcome(VEK_network* net, int handle, int outcome) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    ValidateOutcomeIndex(*net, handle, outcome);
    int res = def.RemoveOutcome(outcome);
    try {
        ValidateResult(res, "Network.DeleteOutcome");
    } catch (quarn_exception& e) {
        if (res == VEK_OUT_OF_RANGE && GetOutcomeCount(*net, handle) <= 2) {
            e.note = "A node keeps at least two outcomes; '" + CopyConstCharPtr(net->GetNodeId(handle)) +
                     "' has only two";
        }
        throw;
    }
}

std::string WrpGetOutcomeId(VEK_network* net, int handle, int outcome) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    ValidateOutcomeIndex(*net, handle, outcome);
    return CopyConstCharPtr((*def.GetOutcomeIds())[outcome]);
}

void WrpSetOutcomeId(VEK_network* net, int handle, int outcome, const std::string& id) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    ValidateOutcomeIndex(*net, handle, outcome);
    ValidateId(id);
    ValidateResult(def.RenameOutcome(outcome, id.c_str()), "Network.SetOutcomeId");
}

bool WrpHasOutcomeIds(VEK_network* net, int handle) {
    const VEK_idArray* ids = GetDef(Deref(net), handle).GetOutcomeIds();
    return ids != nullptr && ids->GetSize() > 0;
}

bool WrpHasIntervals(VEK_network* net, int handle) {
    auto* disc = dynamic_cast<VEK_discDef*>(&GetDef(Deref(net), handle));
    return disc != nullptr && disc->HasIntervals();
}

void WrpRemoveIntervals(VEK_network* net, int handle) {
    GetDiscDef(Deref(net), handle, "Network.RemoveIntervals").RemoveIntervals();
}

std::vector<double> WrpGetIntervals(VEK_network* net, int handle) {
    return GetDiscDef(Deref(net), handle, "Network.GetIntervals").GetIntervals();
}

void WrpSetIntervals(VEK_network* net, int handle, const std::vector<double>& edges, bool adjustCount) {
    VEK_discDef& disc = GetDiscDef(Deref(net), handle, "Network.SetIntervals");
    long long count = static_cast<long long>(edges.size()) - 1;
    if (adjustCount && count >= 2 && count != disc.GetNumberOfOutcomes()) {
        ValidateOutcomeCountChange(*net, handle, count, "Network.SetIntervals");
    }
    ValidateResult(disc.SetIntervals(edges, adjustCount), "Network.SetIntervals");
}

bool WrpHasPointValues(VEK_network* net, int handle) {
    auto* disc = dynamic_cast<VEK_discDef*>(&GetDef(Deref(net), handle));
    return disc != nullptr && disc->HasPointValues();
}

void WrpSetPointValues(VEK_network* net, int handle, const std::vector<double>& values) {
    VEK_discDef& disc = GetDiscDef(Deref(net), handle, "Network.SetPointValues");
    ValidateResult(disc.SetPointValues(values), "Network.SetPointValues");
}

void WrpRemovePointValues(VEK_network* net, int handle) {
    GetDiscDef(Deref(net), handle, "Network.RemovePointValues").RemovePointValues();
}

std::vector<double> WrpGetPointValues(VEK_network* net, int handle) {
    return GetDiscDef(Deref(net), handle, "Network.GetPointValues").GetPointValues();
}

}  // namespace
}  // namespace Wrp

void BindOutcomes(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    DefNodeById(cls, "get_outcome_ids", &WrpGetOutcomeIds, "Returns all outcome IDs");
    DefNode(cls, "get_outcome_count", &WrpGetOutcomeCount, "Returns number of outcomes for a node");
    DefNode(cls, "add_outcome", &WrpAddOutcome, "Adds an outcome to a node", py::arg("outcome_id"));
    DefNodeOutcome(cls, "delete_outcome", &WrpDeleteOutcome, "Deletes an outcome from a node",
                   {kHI, kII, kHH, kIH});
    DefNodeOutcome(cls, "get_outcome_id", &WrpGetOutcomeId, "Returns ID of outcome", {kIH});
    DefNode(cls, "has_outcome_ids", &WrpHasOutcomeIds, "Returns true if node uses outcome IDs");
    DefNode(cls, "has_intervals", &WrpHasIntervals, "Returns true if node has intervals");
    DefNode(cls, "remove_intervals", &WrpRemoveIntervals, "Removes interval values");
    DefNode(cls, "has_point_values", &WrpHasPointValues, "Returns true if node has point values");
    DefNode(cls, "set_point_values", &WrpSetPointValues, "Sets point values for a node", py::arg("point_values"));
    DefNode(cls, "remove_point_values", &WrpRemovePointValues, "Removes point values");

    DefNode(cls, "insert_outcome", &WrpInsertOutcome, "Inserts an outcome at a position in a node",
            py::arg("position"), py::arg("outcome_id"));
    DefNodeOutcome(cls, "set_outcome_id", &WrpSetOutcomeId, "Sets ID of an outcome", {kHH, kHI, kIH, kII},
                   py::arg("new_outcome_id"));
    DefNode(cls, "get_intervals", &WrpGetIntervals, "Returns interval edges of a node");
    DefNode(cls, "set_intervals", &WrpSetIntervals, "Sets interval edges of a node", py::arg("intervals"),
            py::arg("adjust_count").noconvert() = true);
    DefNode(cls, "get_point_values", &WrpGetPointValues, "Returns point values of a node");
}
