// Network methods: the influence-diagram algorithm, diagnostic attributes of
// nodes and outcomes (role, question, fix texts, labels, fault flags, default
// outcome), observation-cost arcs and cost tables.
#include <string>
#include <vector>

#include <pybind11/stl.h>

#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// The discrete layer of the node's definition with the outcome index checked:
// a node without outcomes is reported (-51) before the index.
VEK_discDef& OutcomeDef(VEK_network* net, int handle, int outcome, const char* function) {
    VEK_discDef& def = GetDiscDef(Deref(net), handle, function);
    ValidateOutcomeIndex(*net, handle, outcome);
    return def;
}

InfluenceDiagramAlgorithmType::Value WrpGetInfluenceDiagramAlgorithm(VEK_network* net) {
    return static_cast<InfluenceDiagramAlgorithmType::Value>(Deref(net).GetDefaultIDAlgorithm());
}

void WrpSetInfluenceDiagramAlgorithm(VEK_network* net, InfluenceDiagramAlgorithmType::Value algorithm) {
    Deref(net).SetDefaultIDAlgorithm(algorithm);
}

NodeDiagType::Value WrpGetNodeDiagType(VEK_network* net, int handle) {
    return static_cast<NodeDiagType::Value>(GetNode(Deref(net), handle).GetDiagType());
}

void WrpSetNodeDiagType(VEK_network* net, int handle, NodeDiagType::Value type) {
    ValidateResult(GetNode(Deref(net), handle).SetDiagType(type), "Network.SetNodeDiagType");
}

std::string WrpGetNodeQuestion(VEK_network* net, int handle) {
    return CopyConstCharPtr(GetNode(Deref(net), handle).GetQuestion());
}

void WrpSetNodeQuestion(VEK_network* net, int handle, const std::string& question) {
    VEK_node& node = GetNode(Deref(net), handle);
    ValidateText(question, "Network.SetNodeQuestion");
    node.SetQuestion(question.c_str());
}

std::string WrpGetOutcomeFix(VEK_network* net, int handle, int outcome) {
    return CopyConstCharPtr(OutcomeDef(net, handle, outcome, "Network.GetOutcomeFix").GetOutcomeFix(outcome));
}

void WrpSetOutcomeFix(VEK_network* net, int handle, int outcome, const std::string& fix) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.SetOutcomeFix");
    ValidateText(fix, "Network.SetOutcomeFix");
    ValidateResult(def.SetOutcomeFix(outcome, fix.c_str()), "Network.SetOutcomeFix");
}

// An outcome's description is the engine's outcome comment.
std::string WrpGetOutcomeDescription(VEK_network* net, int handle, int outcome) {
    return CopyConstCharPtr(
        OutcomeDef(net, handle, outcome, "Network.GetOutcomeDescription").GetOutcomeComment(outcome));
}

void WrpSetOutcomeDescription(VEK_network* net, int handle, int outcome, const std::string& description) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.SetOutcomeDescription");
    ValidateText(description, "Network.SetOutcomeDescription");
    ValidateResult(def.SetOutcomeComment(outcome, description.c_str()), "Network.SetOutcomeDescription");
}

std::string WrpGetOutcomeLabel(VEK_network* net, int handle, int outcome) {
    return CopyConstCharPtr(OutcomeDef(net, handle, outcome, "Network.GetOutcomeLabel").GetOutcomeLabel(outcome));
}

void WrpSetOutcomeLabel(VEK_network* net, int handle, int outcome, const std::string& label) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.SetOutcomeLabel");
    ValidateText(label, "Network.SetOutcomeLabel");
    ValidateResult(def.SetOutcomeLabel(outcome, label.c_str()), "Network.SetOutcomeLabel");
}

std::vector<PyDocItemInfo> WrpGetOutcomeDocumentation(VEK_network* net, int handle, int outcome) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.GetOutcomeDocumentation");
    std::vector<std::string> titles, paths;
    ValidateResult(def.GetOutcomeDocumentation(outcome, titles, paths), "Network.GetOutcomeDocumentation");
    std::vector<PyDocItemInfo> out;
    for (size_t i = 0; i < titles.size() && i < paths.size(); ++i) out.emplace_back(DocItemInfo{titles[i], paths[i]});
    return out;
}

void WrpSetOutcomeDocumentation(VEK_network* net, int handle, int outcome, const std::vector<PyDocItemInfo>& items) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.SetOutcomeDocumentation");
    std::vector<std::string> titles, paths;
    for (const DocItemInfo& d : items) {
        ValidateText(d.title, "Network.SetOutcomeDocumentation");
        ValidateText(d.path, "Network.SetOutcomeDocumentation");
        titles.push_back(d.title);
        paths.push_back(d.path);
    }
    ValidateResult(def.SetOutcomeDocumentation(outcome, titles, paths), "Network.SetOutcomeDocumentation");
}

bool WrpIsFaultOutcome(VEK_network* net, int handle, int outcome) {
    return OutcomeDef(net, handle, outcome, "Network.IsFaultOutcome").IsFaultOutcome(outcome);
}

void WrpSetFaultOutcome(VEK_network* net, int handle, int outcome, bool fault) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.SetFaultOutcome");
    ValidateResult(def.SetFaultOutcome(outcome, fault), "Network.SetFaultOutcome");
}

// The index of the default outcome, -1 when the node has none.
int WrpGetDefaultOutcome(VEK_network* net, int handle) {
    return GetDiscDef(Deref(net), handle, "Network.GetDefaultOutcome").GetDefaultOutcome();
}

// The empty string when the node has no default outcome.
std::string WrpGetDefaultOutcomeId(VEK_network* net, int handle) {
    VEK_discDef& def = GetDiscDef(Deref(net), handle, "Network.GetDefaultOutcomeId");
    int outcome = def.GetDefaultOutcome();
    const VEK_idArray* ids = def.GetOutcomeIds();
    if (outcome < 0 || !ids || !ids->IsValidIndex(outcome)) return std::string();
    return CopyConstCharPtr((*ids)[outcome]);
}

void WrpSetDefaultOutcome(VEK_network* net, int handle, int outcome) {
    VEK_discDef& def = OutcomeDef(net, handle, outcome, "Network.SetDefaultOutcome");
    ValidateResult(def.SetDefaultOutcome(outcome), "Network.SetDefaultOutcome");
}

bool WrpIsRanked(VEK_network* net, int handle) { return GetNode(Deref(net), handle).IsRanked(); }
void WrpSetRanked(VEK_network* net, int handle, bool ranked) { GetNode(Deref(net), handle).SetRanked(ranked); }
bool WrpIsMandatory(VEK_network* net, int handle) { return GetNode(Deref(net), handle).IsMandatory(); }
void WrpSetMandatory(VEK_network* net, int handle, bool mandatory) {
    GetNode(Deref(net), handle).SetMandatory(mandatory);
}

// Cost arcs are arcs of type 1; the engine may log why it refused one.
void WrpAddCostArc(VEK_network* net, int parent, int child) {
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    ClearLog(net->Logger());
    int res = net->AddArc(parent, child, 1);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.AddCostArc", net->Logger());
}

void WrpDeleteCostArc(VEK_network* net, int parent, int child) {
    ValidateNodeHandle(Deref(net), parent);
    ValidateNodeHandle(*net, child);
    ClearLog(net->Logger());
    int res = net->RemoveArc(parent, child, 1);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.DeleteCostArc", net->Logger());
}

std::vector<int> WrpGetCostParents(VEK_network* net, int handle) {
    return IntArrayToVector(GetNode(Deref(net), handle).CostParents());
}

std::vector<std::string> WrpGetCostParentIds(VEK_network* net, int handle) {
    const VEK_node& node = GetNode(Deref(net), handle);
    return HandlesToIds(*net, node.CostParents());
}

std::vector<int> WrpGetCostChildren(VEK_network* net, int handle) {
    return IntArrayToVector(GetNode(Deref(net), handle).CostChildren());
}

std::vector<std::string> WrpGetCostChildIds(VEK_network* net, int handle) {
    const VEK_node& node = GetNode(Deref(net), handle);
    return HandlesToIds(*net, node.CostChildren());
}

// One entry per combination of the cost parents' outcomes; entries not set
// hold the engine's not-available marker.
std::vector<double> WrpGetNodeCost(VEK_network* net, int handle) {
    return DoubleArrayToVector(GetNode(Deref(net), handle).GetCost());
}

void WrpSetNodeCost(VEK_network* net, int handle, const std::vector<double>& cost) {
    ValidateResult(GetNode(Deref(net), handle).SetCost(cost), "Network.SetNodeCost");
}

}  // namespace
}  // namespace Wrp

void BindDiagnostics(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    cls.def("get_influence_diagram_algorithm", [](PyNetwork& self) { return WrpGetInfluenceDiagramAlgorithm(&self); },
            "Returns influence diagram algorithm");
    cls.def(
        "set_influence_diagram_algorithm",
        [](PyNetwork& self, InfluenceDiagramAlgorithmType::Value algorithm) {
            WrpSetInfluenceDiagramAlgorithm(&self, algorithm);
        },
        py::arg("influence_diagram_algorithm"), "Sets influence diagram algorithm");

    DefNode(cls, "get_node_diag_type", &WrpGetNodeDiagType, "Returns diagnostic type of node");
    DefNode(cls, "set_node_diag_type", &WrpSetNodeDiagType, "Sets node diagnostic type", py::arg("diag_type"));
    DefNodeById(cls, "get_node_question", &WrpGetNodeQuestion, "Returns question string of node");
    DefNode(cls, "set_node_question", &WrpSetNodeQuestion, "Sets question string", py::arg("question"));

    const auto getForms = {kIH, kHI, kII};
    const auto allForms = {kHH, kIH, kHI, kII};
    DefNodeOutcome(cls, "get_outcome_fix", &WrpGetOutcomeFix, "Returns fix flag for an outcome", getForms);
    DefNodeOutcome(cls, "set_outcome_fix", &WrpSetOutcomeFix, "Fixes an outcome value", allForms, py::arg("fix"));
    DefNodeOutcome(cls, "get_outcome_description", &WrpGetOutcomeDescription, "Returns description for an outcome",
                   getForms);
    DefNodeOutcome(cls, "set_outcome_description", &WrpSetOutcomeDescription, "Sets description of an outcome",
                   allForms, py::arg("new_description"));
    DefNodeOutcome(cls, "get_outcome_label", &WrpGetOutcomeLabel, "Returns label of an outcome", getForms);
    DefNodeOutcome(cls, "set_outcome_label", &WrpSetOutcomeLabel, "Sets label of an outcome", allForms,
                   py::arg("label"));
    DefNodeOutcome(cls, "get_outcome_documentation", &WrpGetOutcomeDocumentation,
                   "Returns documentation of an outcome", allForms);
    DefNodeOutcome(cls, "set_outcome_documentation", &WrpSetOutcomeDocumentation, "Sets documentation of an outcome",
                   allForms, py::arg("documentation"));
    DefNodeOutcome(cls, "is_fault_outcome", &WrpIsFaultOutcome, "Returns true if outcome is fault", allForms);
    DefNodeOutcome(cls, "set_fault_outcome", &WrpSetFaultOutcome, "Marks or unmarks an outcome as fault", allForms,
                   py::arg("fault").noconvert());

    DefNode(cls, "get_default_outcome", &WrpGetDefaultOutcome, "Returns the default outcome label");
    DefNodeById(cls, "get_default_outcome_id", &WrpGetDefaultOutcomeId, "Returns the ID of the default outcome");
    DefNodeOutcome(cls, "set_default_outcome", &WrpSetDefaultOutcome, "Sets default outcome", allForms);

    DefNode(cls, "is_ranked", &WrpIsRanked, "Returns true if node is ranked");
    DefNode(cls, "set_ranked", &WrpSetRanked, "Sets ranking mode", py::arg("ranked").noconvert());
    DefNode(cls, "is_mandatory", &WrpIsMandatory, "Returns true if node is mandatory");
    DefNode(cls, "set_mandatory", &WrpSetMandatory, "Sets node as mandatory", py::arg("mandatory").noconvert());

    DefNodePair(cls, "add_cost_arc", &WrpAddCostArc, "Adds a cost arc between two nodes", "parent", "child");
    DefNodePair(cls, "delete_cost_arc", &WrpDeleteCostArc, "Removes a cost arc between nodes", "parent", "child");
    DefNode(cls, "get_cost_parents", &WrpGetCostParents, "Returns parent node handles in cost arcs");
    DefNodeById(cls, "get_cost_parent_ids", &WrpGetCostParentIds, "Returns parent node IDs in cost arcs");
    DefNode(cls, "get_cost_children", &WrpGetCostChildren, "Returns child node handles in cost arcs");
    DefNodeById(cls, "get_cost_child_ids", &WrpGetCostChildIds, "Returns child node IDs in cost arcs");
    DefNode(cls, "get_node_cost", &WrpGetNodeCost, "Returns cost value of node");
    DefNode(cls, "set_node_cost", &WrpSetNodeCost, "Sets node cost", py::arg("cost"));
}
