// Network methods that speak numpy: tables and posteriors as arrays shaped
// by the node's dimensions, a one-call query with evidence given as dicts,
// and batch inference over rows of evidence codes.
#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <pybind11/numpy.h>

#include "bindUtil.h"
#include "evidenceSnapshot.h"
#include "learning/expectedCounts.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

using DoubleArray = py::array_t<double, py::array::c_style | py::array::forcecast>;
using CodeArray = py::array_t<int, py::array::c_style | py::array::forcecast>;

// The matrix's dimensions; one dimension of all items when the matrix has
// none (or they do not multiply up to its size).
std::vector<py::ssize_t> ShapeOf(const VEK_Dmatrix& m) {
    std::vector<py::ssize_t> shape;
    long long items = 1;
    for (int d = 0; d < m.GetNumberOfDimensions(); ++d) {
        shape.push_back(m.GetSizeOfDimension(d));
        items *= m.GetSizeOfDimension(d);
    }
    if (shape.empty() || items != m.GetSize()) shape.assign(1, m.GetSize());
    return shape;
}

std::string ShapeText(const py::ssize_t* dims, size_t count) {
    std::string text = "(";
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) text += ", ";
        text += std::to_string(dims[i]);
    }
    return text + (count == 1 ? ",)" : ")");
}

// The engine's items are copied: a table moves when the network is edited,
// so a view into it could outlive it.
py::array ToArray(const VEK_Dmatrix& m) {
    DoubleArray out(ShapeOf(m));
    if (m.GetSize() > 0) std::copy_n(m.Items(), m.GetSize(), out.mutable_data());
    return out;
}

py::array WrpGetNodeDefinitionArray(VEK_network* net, int handle) {
    return ToArray(GetDef(Deref(net), handle).GetDefinition());
}

void WrpSetNodeDefinitionArray(VEK_network* net, int handle, const DoubleArray& items) {
    VEK_nodeDef& def = GetDef(Deref(net), handle);
    const std::vector<py::ssize_t> shape = ShapeOf(def.GetDefinition());
    if (!std::equal(shape.begin(), shape.end(), items.shape(), items.shape() + items.ndim())) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.SetNodeDefinitionArray",
                                       "Definition of node '" + CopyConstCharPtr(net->GetNodeId(handle)) +
                                           "' has shape " + ShapeText(shape.data(), shape.size()) +
                                           ", got an array of shape " +
                                           ShapeText(items.shape(), static_cast<size_t>(items.ndim())));
    }
    ValidateResult(def.SetDefinition(std::vector<double>(items.data(), items.data() + items.size())),
                   "Network.SetNodeDefinitionArray");
}

py::array NodeValueArray(PyNetwork& net, int handle) {
    EnsureNodeValueValid(net, handle);
    const VEK_Dmatrix* matrix = GetVal(net, handle).GetMatrix();
    if (matrix != nullptr) return ToArray(*matrix);
    // Continuous values (samples, discretized or temporal) keep the list
    // form's rules.
    py::object self = py::cast(&net, py::return_value_policy::reference);
    return py::cast<DoubleArray>(self.attr("get_node_value")(handle));
}

// A node named by id or by handle, as a key of the query dicts.
int NodeFromKey(const PyNetwork& net, py::handle key) {
    if (py::isinstance<py::str>(key)) return ValidateNodeId(net, key.cast<std::string>());
    if (!py::isinstance<py::float_>(key) && PyIndex_Check(key.ptr())) {
        int handle = key.cast<int>();
        ValidateNodeHandle(net, handle);
        return handle;
    }
    throw py::type_error("Nodes are named by id (str) or handle (int), got " +
                         std::string(py::str(py::type::handle_of(key).attr("__name__"))));
}

std::vector<int> NodesFromList(const PyNetwork& net, py::handle nodes) {
    if (py::isinstance<py::str>(nodes)) return {NodeFromKey(net, nodes)};
    std::vector<int> out;
    for (py::handle item : nodes) out.push_back(NodeFromKey(net, item));
    return out;
}

EvidenceSnapshot EvidenceFromItem(const PyNetwork& net, py::handle key, py::handle value) {
    EvidenceSnapshot s;
    s.handle = NodeFromKey(net, key);
    if (py::isinstance<py::str>(value)) {
        s.kind = EvidenceSnapshot::OUTCOME;
        s.outcome = ValidateOutcomeId(net, s.handle, value.cast<std::string>());
    } else if (py::isinstance<py::float_>(value)) {
        s.kind = EvidenceSnapshot::NUMBER;
        s.number = value.cast<double>();
    } else if (PyIndex_Check(value.ptr())) {
        s.kind = EvidenceSnapshot::OUTCOME;
        s.outcome = value.cast<int>();
        ValidateOutcomeIndex(net, s.handle, s.outcome);
    } else {
        throw py::type_error("Evidence is an outcome id (str), an outcome index (int) or a number (float), got " +
                             std::string(py::str(py::type::handle_of(value).attr("__name__"))));
    }
    return s;
}

EvidenceSnapshot VirtualFromItem(const PyNetwork& net, py::handle key, py::handle value) {
    EvidenceSnapshot s;
    s.handle = NodeFromKey(net, key);
    s.kind = EvidenceSnapshot::VIRTUAL;
    DoubleArray likelihoods = py::cast<DoubleArray>(value);
    const int count = GetOutcomeCount(net, s.handle);
    if (likelihoods.ndim() != 1 || likelihoods.size() != count) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.Query",
                                       "Virtual evidence of node '" + CopyConstCharPtr(net.GetNodeId(s.handle)) +
                                           "' needs " + std::to_string(count) + " likelihoods, got an array of shape " +
                                           ShapeText(likelihoods.shape(), static_cast<size_t>(likelihoods.ndim())));
    }
    s.likelihoods.assign(likelihoods.data(), likelihoods.data() + count);
    return s;
}

// Sets evidence and targets for the length of one call and puts the
// network's own back on every exit.
class ScopedEvidence {
public:
    explicit ScopedEvidence(VEK_network& net) : net_(net) {}
    ScopedEvidence(const ScopedEvidence&) = delete;
    ScopedEvidence& operator=(const ScopedEvidence&) = delete;

    void Set(const EvidenceSnapshot& s, const char* function) {
        Keep(s.handle);
        ValidateResult(s.Restore(net_), function);
    }
    void Keep(int handle) {
        for (const EvidenceSnapshot& k : kept_) {
            if (k.handle == handle) return;
        }
        kept_.push_back(EvidenceSnapshot::Take(net_, handle));
    }
    void SetTargets(const std::vector<int>& targets) {
        if (!targetsKept_) {
            for (int h = net_.GetFirstNode(); h >= 0; h = net_.GetNextNode(h)) {
                if (net_.IsTarget(h)) targets_.push_back(h);
            }
            targetsKept_ = true;
        }
        net_.ClearAllTargets();
        // Resolved handles and no targets left: a repeated handle stays a target.
        for (int h : targets) (void)net_.SetTarget(h, true);
    }
    ~ScopedEvidence() {
        for (auto it = kept_.rbegin(); it != kept_.rend(); ++it) it->Restore(net_);
        if (targetsKept_) {
            net_.ClearAllTargets();
            for (int h : targets_) (void)net_.SetTarget(h, true);  // the network's own, put back
        }
    }

private:
    VEK_network& net_;
    std::vector<EvidenceSnapshot> kept_;
    std::vector<int> targets_;
    bool targetsKept_ = false;
};

void UpdateOrThrow(VEK_network& net, const char* function) {
    VEK_logger& logger = net.Logger();
    ClearLog(logger);
    int res = net.UpdateBeliefs();
    if (res != 0) ThrowQuarnExceptionWithLog(res, function, logger);
}

py::dict WrpQuery(PyNetwork& net, const py::object& evidence, const py::object& virtualEvidence,
                  const py::object& targets) {
    // Everything is checked before the network is touched.
    std::vector<EvidenceSnapshot> settings;
    auto add = [&](const EvidenceSnapshot& s) {
        for (const EvidenceSnapshot& other : settings) {
            if (other.handle == s.handle) {
                ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.Query",
                                               "Node '" + CopyConstCharPtr(net.GetNodeId(s.handle)) +
                                                   "' is given evidence twice");
            }
        }
        settings.push_back(s);
    };
    for (const py::object* d : {&evidence, &virtualEvidence}) {
        if (!d->is_none() && !py::isinstance<py::dict>(*d)) {
            throw py::type_error("Evidence is a dict of node to outcome (or to likelihoods), got " +
                                 std::string(py::str(py::type::handle_of(*d).attr("__name__"))));
        }
    }
    if (!evidence.is_none()) {
        for (auto item : evidence.cast<py::dict>()) add(EvidenceFromItem(net, item.first, item.second));
    }
    if (!virtualEvidence.is_none()) {
        for (auto item : virtualEvidence.cast<py::dict>()) add(VirtualFromItem(net, item.first, item.second));
    }
    std::optional<std::vector<int>> wanted;
    if (!targets.is_none()) wanted = NodesFromList(net, targets);

    py::dict out;
    {
        ScopedEvidence scope(net);
        for (const EvidenceSnapshot& s : settings) scope.Set(s, "Network.Query");
        if (wanted) scope.SetTargets(*wanted);
        UpdateOrThrow(net, "Network.Query");
        if (wanted) {
            for (int h : *wanted) out[py::str(net.GetNodeId(h))] = NodeValueArray(net, h);
        } else {
            for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
                const VEK_nodeVal* val = net.GetVal(h);
                if (val && val->IsValueValid() && val->GetMatrix()) {
                    out[py::str(net.GetNodeId(h))] = ToArray(*val->GetMatrix());
                }
            }
        }
    }
    return out;
}

// Every node has a probability table: the rows can go through one tree
// compiled for the call, the way parameter learning reads its cases.
bool AllChanceTables(const VEK_network& net) {
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const VEK_nodeDef* def = net.GetDef(h);
        if (!def || !def->GetMatrix() || (def->GetType() & 6) == 0) return false;
    }
    return true;
}

// The rows through the expected-count tree of a copy of the network without
// evidence or targets: each target's family posterior, summed over its
// parents. False when the tree cannot be had; the caller then updates
// beliefs row by row.
bool QueryRowsByFamilies(const VEK_network& net, const int* data, py::ssize_t rows,
                         const std::vector<int>& columns, const std::vector<int>& targets,
                         const std::vector<int>& offsets, bool posteriors, py::array& out) {
    VEK_network work(net);
    work.ClearAllEvidence();
    work.ClearAllTargets();
    const size_t width = columns.size();
    std::vector<char> always(width, 1);
    for (py::ssize_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < width; ++c) always[c] = always[c] && data[r * width + c] >= 0;
    }
    std::vector<char> learnable(static_cast<size_t>(work.GetSlotCount()), 0);
    std::vector<int> sizes;
    for (int h : targets) {
        learnable[static_cast<size_t>(h)] = 1;
        sizes.push_back(work.GetDef(h)->GetMatrix()->GetSize());
    }
    VEK_expectedCounts tree;
    if (tree.Init(work, columns, always, learnable) != VEK_OKAY) {
        ClearLog(work.Logger());
        return false;
    }
    tree.StartPass();
    std::vector<int> codes(width);
    std::vector<double> posterior;
    for (py::ssize_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < width; ++c) codes[c] = std::max(data[r * width + c], -1);
        for (size_t t = 0; t < targets.size(); ++t) std::fill_n(tree.Counts(targets[t]), sizes[t], 0.0);
        double pe = 0.0;
        const bool ok = tree.AddCase(codes.data(), 1.0, pe) == VEK_OKAY;
        for (size_t t = 0; t < targets.size(); ++t) {
            const int n = offsets[t + 1] - offsets[t];
            posterior.assign(static_cast<size_t>(n), ok ? 0.0 : std::numeric_limits<double>::quiet_NaN());
            const double* counts = tree.Counts(targets[t]);
            double total = 0.0;
            for (int i = 0; ok && i < sizes[t]; ++i) {
                posterior[static_cast<size_t>(i % n)] += counts[i];
                total += counts[i];
            }
            if (ok) {
                for (double& p : posterior) p /= total;
            }
            if (posteriors) {
                std::copy(posterior.begin(), posterior.end(), static_cast<double*>(out.mutable_data(r)) + offsets[t]);
            } else {
                static_cast<int*>(out.mutable_data(r))[t] =
                    ok ? static_cast<int>(std::max_element(posterior.begin(), posterior.end()) - posterior.begin())
                       : -1;
            }
        }
    }
    ClearLog(work.Logger());
    return true;
}

// Rows of evidence codes (an outcome index per column, negative for none)
// through the network: each row is the whole evidence of its case.
// posteriors: each row holds the targets' posteriors one after the other;
// otherwise the index of each target's most probable outcome. A row whose
// evidence is impossible gives NaN posteriors (index -1). Networks of other
// than chance nodes are updated row by row, their own evidence set aside.
py::array WrpQueryRows(PyNetwork& net, const CodeArray& codes, const std::vector<int>& columns,
                       const std::vector<int>& targets, bool posteriors) {
    const char* function = "Network.QueryBatch";
    if (codes.ndim() != 2 || codes.shape(1) != static_cast<py::ssize_t>(columns.size())) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "Evidence codes need one column per node");
    }
    const py::ssize_t rows = codes.shape(0);
    const size_t width = columns.size();
    std::vector<int> counts;
    for (int h : columns) {
        ValidateNodeHandle(net, h);
        counts.push_back(GetOutcomeCount(net, h));
    }
    const int* data = codes.data();
    for (py::ssize_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < width; ++c) {
            if (data[r * width + c] >= counts[c]) ValidateOutcomeIndex(net, columns[c], data[r * width + c]);
        }
    }
    std::vector<int> offsets{0};
    for (int h : targets) {
        ValidateNodeHandle(net, h);
        offsets.push_back(offsets.back() + GetOutcomeCount(net, h));
    }
    const py::ssize_t outWidth = posteriors ? offsets.back() : static_cast<py::ssize_t>(targets.size());
    py::array out = posteriors ? py::array(py::array_t<double>({rows, outWidth}))
                               : py::array(py::array_t<int>({rows, outWidth}));

    if (AllChanceTables(net) && QueryRowsByFamilies(net, data, rows, columns, targets, offsets, posteriors, out)) {
        return out;
    }
    ScopedEvidence scope(net);
    std::vector<int> current(width, -1);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        EvidenceSnapshot none;
        none.handle = h;
        const bool column = std::find(columns.begin(), columns.end(), h) != columns.end();
        if (column || EvidenceSnapshot::Take(net, h).kind != EvidenceSnapshot::NONE) scope.Set(none, function);
    }
    scope.SetTargets(targets);
    for (py::ssize_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < width; ++c) {
            const int code = std::max(data[r * width + c], -1);
            if (code == current[c]) continue;
            VEK_nodeVal& val = *net.GetVal(columns[c]);
            ValidateResult(code < 0 ? val.ClearEvidence() : val.SetEvidence(code), function);
            current[c] = code;
        }
        const bool ok = net.UpdateBeliefs() == 0;
        if (!ok) ClearLog(net.Logger());
        for (size_t t = 0; t < targets.size(); ++t) {
            const VEK_nodeVal* val = net.GetVal(targets[t]);
            const VEK_Dmatrix* m = ok && val->IsValueValid() ? val->GetMatrix() : nullptr;
            const int n = offsets[t + 1] - offsets[t];
            if (posteriors) {
                double* row = static_cast<double*>(out.mutable_data(r)) + offsets[t];
                if (m && m->GetSize() == n) {
                    std::copy_n(m->Items(), n, row);
                } else {
                    std::fill_n(row, n, std::numeric_limits<double>::quiet_NaN());
                }
            } else {
                int* row = static_cast<int*>(out.mutable_data(r));
                row[t] = m && m->GetSize() == n ? static_cast<int>(std::max_element(m->Items(), m->Items() + n) -
                                                                   m->Items())
                                                : -1;
            }
        }
    }
    return out;
}

}  // namespace
}  // namespace Wrp

void BindNumpy(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;
    DefNode(cls, "get_node_definition_array", &WrpGetNodeDefinitionArray,
            "Returns the node's definition as an array shaped (parent states..., own states)");
    DefNode(cls, "set_node_definition_array", &WrpSetNodeDefinitionArray,
            "Sets the node's definition from an array of the shape get_node_definition_array returns",
            py::arg("array"));
    cls.def(
        "get_node_value_array", [](PyNetwork& self, int h) { return NodeValueArray(self, h); },
        py::arg("node_handle"), "Returns the node's value (its posterior) as an array");
    cls.def(
        "get_node_value_array",
        [](PyNetwork& self, const std::string& id) { return NodeValueArray(self, ValidateNodeId(self, id)); },
        py::arg("node_id"), "Returns the node's value (its posterior) as an array");
    cls.def("query", &WrpQuery, py::arg("evidence") = py::none(), py::arg("virtual_evidence") = py::none(),
            py::arg("targets") = py::none(),
            "Updates beliefs with the given evidence added to the network's own and returns a dict of node id to "
            "posterior array; the network's evidence and targets are as they were after the call");
    cls.def("_query_rows", &WrpQueryRows, py::arg("codes"), py::arg("columns"), py::arg("targets"),
            py::arg("posteriors"));
    cls.def(
        "query_batch",
        [](py::object self, py::object frame, py::object targets, py::object kind) {
            return py::module_::import("pyquarn.frames").attr("query_batch")(self, frame, targets, kind);
        },
        py::arg("df"), py::arg("targets") = py::none(), py::arg("kind") = "posteriors",
        "Runs inference on every row of a DataFrame of evidence (outcome ids or indices, NaN where unobserved; "
        "each row is the whole evidence of its case) and returns a DataFrame of posteriors (kind='posteriors') or of the most probable outcome of each "
        "target (kind='mpe')");
}
