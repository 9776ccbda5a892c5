// Network methods: named evidence cases stored with the network. A case is
// given by its index or by its name; a node by handle or id.
#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include <pybind11/stl.h>

#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// An unknown name reports the engine's negative lookup result as the index.
int ValidateCaseName(const VEK_network& net, const std::string& name) {
    // The lookup reads a C string: a name holding a NUL must not match its prefix.
    int index = name.find('\0') == std::string::npos ? net.Cases().Find(name.c_str()) : VEK_OUT_OF_RANGE;
    ValidateCase(net, index);
    return index;
}

VEK_case& GetCase(VEK_network* net, int index) {
    ValidateCase(Deref(net), index);
    return *net->Cases().Get(index);
}

std::string NodeText(const VEK_network& net, int handle) {
    return "node '" + CopyConstCharPtr(net.GetNodeId(handle)) + "'";
}

// Why the engine refused a case name (it returns -2 for both).
void ThrowNameRefused(int code, const VEK_network& net, const std::string& name, const char* function) {
    if (name.empty()) ThrowQuarnException(code, function, "Case name cannot be empty");
    if (net.Cases().Find(name.c_str()) >= 0) {
        ThrowQuarnExceptionWithMessage(code, function, "Case '" + name + "' already exists");
    }
    ThrowQuarnException(code, function);
}

// Checks one evidence item for a node before a case stores it, so that the
// case can later be applied: an outcome of the node, a likelihood per outcome
// (as virtual evidence on the node itself requires), or a number for a node
// that maps numbers to outcomes or is continuous.
void ValidateCaseItem(VEK_network& net, int handle, const CaseEvidence& item, const char* function) {
    switch (item.type) {
        case CaseEvidenceType::DISCRETE:
            GetDiscDef(net, handle, function);
            ValidateOutcomeIndex(net, handle, item.outcome);
            break;
        case CaseEvidenceType::VIRTUAL: {
            GetDiscDef(net, handle, function);
            int count = GetOutcomeCount(net, handle);
            if (static_cast<int>(item.virtual_evidence.size()) != count) {
                std::string message = "Virtual evidence for " + NodeText(net, handle) + " needs ";
                VEK_appendInt(message, count);
                message += " values, got ";
                VEK_appendInt(message, static_cast<long long>(item.virtual_evidence.size()));
                ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, message);
            }
            double sum = 0.0;
            for (double v : item.virtual_evidence) {
                if (!(v >= 0.0 && v <= 1.0)) {
                    ThrowQuarnException(VEK_INVALID_VALUE, function, "Virtual evidence values must lie in [0, 1]");
                }
                sum += v;
            }
            if (sum == 0.0) ThrowQuarnException(VEK_NO_ITEM, function, "Virtual evidence values sum to 0");
            break;
        }
        case CaseEvidenceType::CONTINUOUS: {
            if (!std::isfinite(item.value)) {
                ThrowQuarnException(VEK_INVALID_VALUE, function, "Continuous evidence must be a finite number");
            }
            const VEK_nodeDef& def = GetDef(net, handle);
            if (def.GetType() == VEK_EQUATION) break;
            const auto* disc = dynamic_cast<const VEK_discDef*>(&def);
            if (!disc || !(disc->HasIntervals() || disc->HasPointValues())) {
                ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                               NodeText(net, handle) + " cannot take continuous evidence");
            }
            // A discrete node takes the number as the outcome it falls in,
            // found as evidence on the node itself finds it.
            int outcome = disc->HasIntervals() ? disc->Discretize(item.value)
                                               : disc->PointValueToOutcomeIndex(item.value);
            if (outcome < 0) {
                ThrowQuarnExceptionWithMessage(outcome, function,
                                               "The value matches no outcome of " + NodeText(net, handle));
            }
            break;
        }
        default:
            ThrowQuarnException(VEK_OUT_OF_RANGE, function, "Unknown case evidence type");
    }
}

int WrpAddCase(VEK_network* net, const std::string& name) {
    VEK_network& n = Deref(net);
    ValidateText(name, "Network.AddCase");
    int res = n.Cases().Add(name.c_str());
    if (res < 0) ThrowNameRefused(res, n, name, "Network.AddCase");
    return res;
}

int WrpFindCase(VEK_network* net, const std::string& name) { return ValidateCaseName(Deref(net), name); }

void WrpDeleteCase(VEK_network* net, int index) {
    ValidateCase(Deref(net), index);
    ValidateResult(net->Cases().Delete(index), "Network.DeleteCase");
}

void WrpDeleteAllCases(VEK_network* net) { Deref(net).Cases().DeleteAll(); }

int WrpGetCaseCount(VEK_network* net) { return Deref(net).Cases().GetCount(); }

void WrpEnableCaseSync(VEK_network* net, bool on) { Deref(net).Cases().EnableSync(on); }

bool WrpIsCaseSyncEnabled(VEK_network* net) { return Deref(net).Cases().IsSyncEnabled(); }

std::vector<std::string> WrpGetAllCaseNames(VEK_network* net) {
    const VEK_caseManager& cases = Deref(net).Cases();
    std::vector<std::string> names;
    for (int i = 0; i < cases.GetCount(); ++i) names.push_back(cases.Get(i)->name);
    return names;
}

void WrpSetCaseName(VEK_network* net, int index, const std::string& name) {
    ValidateCase(Deref(net), index);
    ValidateText(name, "Network.SetCaseName");
    int res = net->Cases().SetName(index, name.c_str());
    if (res < 0) ThrowNameRefused(res, *net, name, "Network.SetCaseName");
}

std::string WrpGetCaseDescription(VEK_network* net, int index) { return GetCase(net, index).description; }

void WrpSetCaseDescription(VEK_network* net, int index, const std::string& description) {
    GetCase(net, index).description = description;
}

std::string WrpGetCaseCategory(VEK_network* net, int index) { return GetCase(net, index).category; }

void WrpSetCaseCategory(VEK_network* net, int index, const std::string& category) {
    GetCase(net, index).category = category;
}

long long WrpGetCaseCreated(VEK_network* net, int index) { return GetCase(net, index).created; }

void WrpSetCaseCreated(VEK_network* net, int index, long long created) { GetCase(net, index).created = created; }

long long WrpGetCaseLastModified(VEK_network* net, int index) { return GetCase(net, index).lastModified; }

void WrpSetCaseLastModified(VEK_network* net, int index, long long modified) {
    GetCase(net, index).lastModified = modified;
}

// Every item counts, temporal ones included.
int WrpGetCaseEvidenceCount(VEK_network* net, int index) {
    return static_cast<int>(GetCase(net, index).evidence.size());
}

// Removes every item of the node, temporal ones included.
void WrpDeleteCaseEvidence(VEK_network* net, int index, int node) {
    VEK_case& c = GetCase(net, index);
    ValidateNodeHandle(*net, node);
    if (c.DeleteEvidence(node) != VEK_OKAY) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.DeleteCaseEvidence",
                                       "Case '" + c.name + "' holds no evidence for " + NodeText(*net, node));
    }
}

bool WrpIsCaseTarget(VEK_network* net, int index, int node) {
    const VEK_case& c = GetCase(net, index);
    ValidateNodeHandle(*net, node);
    return std::find(c.targets.begin(), c.targets.end(), node) != c.targets.end();
}

int WrpGetCaseTargetCount(VEK_network* net, int index) { return static_cast<int>(GetCase(net, index).targets.size()); }

void WrpSetCaseTargets(VEK_network* net, int index, const std::vector<int>& targets) {
    VEK_case& c = GetCase(net, index);
    for (size_t i = 0; i < targets.size(); ++i) {
        ValidateNodeHandle(*net, targets[i]);
        if (std::find(targets.begin(), targets.begin() + i, targets[i]) != targets.begin() + i) {
            ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.SetCaseTargets",
                                           NodeText(*net, targets[i]) + " is listed twice");
        }
    }
    c.targets = targets;
}

std::vector<int> WrpGetCaseTargets(VEK_network* net, int index) { return GetCase(net, index).targets; }

std::vector<std::string> WrpGetCaseTargetIds(VEK_network* net, int index) {
    const VEK_case& c = GetCase(net, index);
    return HandlesToIds(*net, c.targets);
}

// The engine applies what it can and reports the first failure, so a case
// that clashes with the network (evidence made impossible by deterministic
// relations, say) would leave it half-changed. The case is therefore tried
// on a copy first; the network itself only sees a case that applies cleanly.
void WrpApplyCaseToNetwork(VEK_network* net, int index) {
    ValidateCase(Deref(net), index);
    {
        VEK_network trial(*net);
        ClearLog(trial.Logger());
        int res = trial.Cases().ApplyToNetwork(index, trial);
        if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.ApplyCaseToNetwork", trial.Logger());
    }
    ClearLog(net->Logger());
    int res = net->Cases().ApplyToNetwork(index, *net);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.ApplyCaseToNetwork", net->Logger());
}

void WrpSaveNetworkToCase(VEK_network* net, int index) {
    ValidateCase(Deref(net), index);
    ValidateResult(net->Cases().SaveFromNetwork(index, *net), "Network.SaveNetworkToCase");
}

// Each node once, in the order of its first item.
std::vector<int> WrpGetCaseEvidenceNodes(VEK_network* net, int index) {
    std::vector<int> nodes;
    for (const VEK_caseEvidence& e : GetCase(net, index).evidence) {
        if (std::find(nodes.begin(), nodes.end(), e.node) == nodes.end()) nodes.push_back(e.node);
    }
    return nodes;
}

std::vector<std::string> WrpGetCaseEvidenceNodeIds(VEK_network* net, int index) {
    std::vector<int> nodes = WrpGetCaseEvidenceNodes(net, index);
    return HandlesToIds(*net, nodes);
}

PyCaseEvidenceInfo WrpGetCaseEvidence(VEK_network* net, int index, int node) {
    const VEK_case& c = GetCase(net, index);
    ValidateNodeHandle(*net, node);
    int i = c.FindEvidence(node, -1);
    if (i < 0) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.GetCaseEvidence",
                                       "Case '" + c.name + "' holds no evidence for " + NodeText(*net, node));
    }
    return PyCaseEvidenceInfo(CaseEvidenceFromEngine(c.evidence[i]));
}

// The item is the node's non-temporal evidence (slice -1); it replaces the
// node's earlier one.
void WrpSetCaseEvidence(VEK_network* net, int index, int node, const PyCaseEvidenceInfo& info) {
    const char* function = "Network.SetCaseEvidence";
    VEK_case& c = GetCase(net, index);
    ValidateNodeHandle(*net, node);
    const CaseEvidence& item = info;
    if (item.slice != -1) {
        ThrowQuarnException(VEK_OUT_OF_RANGE, function, "Slice must be -1 for evidence that is not temporal");
    }
    ValidateCaseItem(*net, node, item, function);
    ValidateResult(c.SetEvidence(CaseEvidenceToEngine(item, node)), function);
}

// The node's temporal items, in stored order.
std::vector<PyCaseEvidenceInfo> WrpGetCaseTemporalEvidence(VEK_network* net, int index, int node) {
    const VEK_case& c = GetCase(net, index);
    ValidateNodeHandle(*net, node);
    std::vector<PyCaseEvidenceInfo> out;
    for (const VEK_caseEvidence& e : c.evidence) {
        if (e.node == node && e.slice >= 0) out.emplace_back(CaseEvidenceFromEngine(e));
    }
    return out;
}

// Replaces all temporal items of a plate node: one item per slice at most.
// Everything is checked before the case changes.
void WrpSetCaseTemporalEvidence(VEK_network* net, int index, int node, const std::vector<PyCaseEvidenceInfo>& items) {
    const char* function = "Network.SetCaseTemporalEvidence";
    VEK_case& c = GetCase(net, index);
    const VEK_node& n = GetNode(*net, node);
    if (n.GetTemporalType() != NodeTemporalType::PLATE && !items.empty()) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       NodeText(*net, node) + " is not in the temporal plate");
    }
    std::vector<int> slices;
    for (const CaseEvidence& item : items) {
        ValidateSlice(*net, item.slice);
        if (std::find(slices.begin(), slices.end(), item.slice) != slices.end()) {
            std::string message = "Slice ";
            VEK_appendInt(message, item.slice);
            message += " is given twice";
            ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, message);
        }
        slices.push_back(item.slice);
        ValidateCaseItem(*net, node, item, function);
    }
    std::erase_if(c.evidence, [node](const VEK_caseEvidence& e) { return e.node == node && e.slice >= 0; });
    for (const CaseEvidence& item : items) c.evidence.push_back(CaseEvidenceToEngine(item, node));
}

}  // namespace
}  // namespace Wrp

namespace {

enum class CaseBy { Index, Name };

// fn(net, case, args...) as (int case_index, args...) and/or (str case_name, args...).
template <class R, class... Args, class... Extra>
void DefCase(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, Args...), const char* doc,
             std::initializer_list<CaseBy> forms, const Extra&... extra) {
    for (CaseBy form : forms) {
        if (form == CaseBy::Index) {
            cls.def(
                name, [fn](PyNetwork& self, int c, Args... a) -> R { return fn(&self, c, std::forward<Args>(a)...); },
                py::arg("case_index"), extra..., doc);
        } else {
            cls.def(
                name,
                [fn](PyNetwork& self, const std::string& c, Args... a) -> R {
                    return fn(&self, Wrp::ValidateCaseName(self, c), std::forward<Args>(a)...);
                },
                py::arg("case_name"), extra..., doc);
        }
    }
}

// fn(net, case, node, args...) in the four forms (int, int), (int, str),
// (str, int), (str, str); the case is resolved before the node.
template <class R, class... Args, class... Extra>
void DefCaseNode(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, int, Args...), const char* doc,
                 const Extra&... extra) {
    cls.def(
        name,
        [fn](PyNetwork& self, int c, int h, Args... a) -> R { return fn(&self, c, h, std::forward<Args>(a)...); },
        py::arg("case_index"), py::arg("node_handle"), extra..., doc);
    cls.def(
        name,
        [fn](PyNetwork& self, int c, const std::string& id, Args... a) -> R {
            Wrp::ValidateCase(self, c);
            return fn(&self, c, Wrp::ValidateNodeId(self, id), std::forward<Args>(a)...);
        },
        py::arg("case_index"), py::arg("node_id"), extra..., doc);
    cls.def(
        name,
        [fn](PyNetwork& self, const std::string& c, int h, Args... a) -> R {
            return fn(&self, Wrp::ValidateCaseName(self, c), h, std::forward<Args>(a)...);
        },
        py::arg("case_name"), py::arg("node_handle"), extra..., doc);
    cls.def(
        name,
        [fn](PyNetwork& self, const std::string& c, const std::string& id, Args... a) -> R {
            int index = Wrp::ValidateCaseName(self, c);
            return fn(&self, index, Wrp::ValidateNodeId(self, id), std::forward<Args>(a)...);
        },
        py::arg("case_name"), py::arg("node_id"), extra..., doc);
}

}  // namespace

void BindCases(PyNetworkClass& cls) {
    using namespace Wrp;
    const auto both = {CaseBy::Index, CaseBy::Name};
    const auto byName = {CaseBy::Name};

    cls.def("add_case", [](PyNetwork& self, const std::string& name) { return WrpAddCase(&self, name); },
            py::arg("case_name"), "Adds a new case to the network");
    cls.def("find_case", [](PyNetwork& self, const std::string& name) { return WrpFindCase(&self, name); },
            py::arg("case_name"), "Finds the index of a case by name");
    DefCase(cls, "delete_case", &WrpDeleteCase, "Deletes a case", both);
    cls.def("delete_all_cases", [](PyNetwork& self) { WrpDeleteAllCases(&self); }, "Deletes all stored cases");
    cls.def("get_case_count", [](PyNetwork& self) { return WrpGetCaseCount(&self); },
            "Returns the total number of cases in the network");
    cls.def(
        "enable_case_sync", [](PyNetwork& self, bool on) { WrpEnableCaseSync(&self, on); }, py::arg("enabled").noconvert(),
        "Enables or disables case-to-network synchronization");
    cls.def("is_case_sync_enabled", [](PyNetwork& self) { return WrpIsCaseSyncEnabled(&self); },
            "Checks whether case synchronization is enabled");
    cls.def("get_all_case_names", [](PyNetwork& self) { return WrpGetAllCaseNames(&self); },
            "Returns a list of all case names");

    DefCase(cls, "set_case_name", &WrpSetCaseName, "Sets the name of a case", both, py::arg("new_name"));
    DefCase(cls, "get_case_description", &WrpGetCaseDescription, "Returns the description of a case", byName);
    DefCase(cls, "set_case_description", &WrpSetCaseDescription, "Sets the description of a case", both,
            py::arg("new_description"));
    DefCase(cls, "get_case_category", &WrpGetCaseCategory, "Returns the category of a case", byName);
    DefCase(cls, "set_case_category", &WrpSetCaseCategory, "Sets the category of a case", both,
            py::arg("category"));
    DefCase(cls, "get_case_created", &WrpGetCaseCreated, "Returns the creation timestamp of a case", both);
    DefCase(cls, "set_case_created", &WrpSetCaseCreated, "Sets the creation timestamp of a case", both,
            py::arg("created"));
    DefCase(cls, "get_case_last_modified", &WrpGetCaseLastModified, "Returns the last modified timestamp of a case",
            both);
    DefCase(cls, "set_case_last_modified", &WrpSetCaseLastModified, "Sets the last modified timestamp of a case",
            both, py::arg("last_modified"));
    DefCase(cls, "get_case_evidence_count", &WrpGetCaseEvidenceCount,
            "Returns the number of evidence entries in a case", both);
    DefCaseNode(cls, "delete_case_evidence", &WrpDeleteCaseEvidence, "Deletes all evidence for a case");
    DefCaseNode(cls, "is_case_target", &WrpIsCaseTarget, "Checks whether a node is a target in the given case");
    DefCase(cls, "get_case_target_count", &WrpGetCaseTargetCount, "Returns the number of target nodes in a case",
            both);

    const char* targetsDoc = "Sets target nodes for a case";
    DefCase(cls, "set_case_targets", &WrpSetCaseTargets, targetsDoc, both, py::arg("node_handles"));
    cls.def(
        "set_case_targets",
        [](PyNetwork& self, int c, const std::vector<std::string>& ids) {
            ValidateCase(self, c);
            WrpSetCaseTargets(&self, c, IdsToHandles(self, ids));
        },
        py::arg("case_index"), py::arg("node_ids"), targetsDoc);
    cls.def(
        "set_case_targets",
        [](PyNetwork& self, const std::string& name, const std::vector<std::string>& ids) {
            int c = ValidateCaseName(self, name);
            WrpSetCaseTargets(&self, c, IdsToHandles(self, ids));
        },
        py::arg("case_name"), py::arg("node_ids"), targetsDoc);
    DefCase(cls, "get_case_targets", &WrpGetCaseTargets, "Returns handles of target nodes in a case", both);
    DefCase(cls, "get_case_target_ids", &WrpGetCaseTargetIds, "Returns the IDs of target nodes in a case", byName);

    DefCase(cls, "apply_case_to_network", &WrpApplyCaseToNetwork,
            "Applies case evidence to the current network state", both);
    DefCase(cls, "save_network_to_case", &WrpSaveNetworkToCase, "Saves current network state to a case", both);
    DefCase(cls, "get_case_evidence_nodes", &WrpGetCaseEvidenceNodes,
            "Returns handles of nodes with evidence in a case", both);
    DefCase(cls, "get_case_evidence_node_ids", &WrpGetCaseEvidenceNodeIds,
            "Returns IDs of nodes with evidence in a case", byName);

    DefCaseNode(cls, "get_case_evidence", &WrpGetCaseEvidence, "Returns the evidence of a node in a case");
    DefCaseNode(cls, "set_case_evidence", &WrpSetCaseEvidence, "Sets the evidence of a node in a case",
                py::arg("evidence"));
    DefCaseNode(cls, "get_case_temporal_evidence", &WrpGetCaseTemporalEvidence,
                "Returns the temporal evidence of a node in a case");
    DefCaseNode(cls, "set_case_temporal_evidence", &WrpSetCaseTemporalEvidence,
                "Sets the temporal evidence of a node in a case", py::arg("evidence"));
}
