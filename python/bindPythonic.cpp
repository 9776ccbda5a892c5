// What a Python user expects of a network and a dataset beside the engine's
// own methods: len, in, iteration over node ids, repr, pickling, and
// records drawn from the network.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bindUtil.h"
#include "evidenceSnapshot.h"
#include "inference/randGen.h"
#include "learning/dataSampler.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// Bumped when the layout of a pickled state changes.
constexpr int kNetworkStateVersion = 1;
constexpr int kDataSetStateVersion = 1;

std::vector<std::string> NodeIds(const VEK_network& net) {
    std::vector<std::string> ids;
    ids.reserve(static_cast<size_t>(net.GetNumberOfNodes()));
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) ids.emplace_back(net.GetNodeId(h));
    return ids;
}

bool Contains(const VEK_network& net, const py::object& item) {
    if (py::isinstance<py::str>(item)) {
        const std::string id = item.cast<std::string>();
        return id.find('\0') == std::string::npos && net.FindNode(id.c_str()) >= 0;
    }
    return false;
}

std::string Repr(const VEK_network& net) {
    int arcs = 0;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) arcs += net.GetNode(h)->Parents().GetSize();
    const int nodes = net.GetNumberOfNodes();
    return "<pyquarn.Network '" + CopyConstCharPtr(net.Header().GetId()) + "' with " + std::to_string(nodes) +
           (nodes == 1 ? " node and " : " nodes and ") + std::to_string(arcs) + (arcs == 1 ? " arc>" : " arcs>");
}

// ---- pickling ----------------------------------------------------------------
// A network travels as its lossless XML text plus what the text does not
// hold: the inference settings, the evidence and the targets.

py::tuple Settings(const VEK_network& net) {
    const VEK_EPISParams& e = net.GetEPISParams();
    const VEK_LBPParams& l = net.GetLBPParams();
    const VEK_AnnealedMAPParams& a = const_cast<VEK_network&>(net).AnnealedMAPParams();
    return py::make_tuple(
        py::make_tuple(net.GetDefaultBNAlgorithm(), net.GetDefaultIDAlgorithm(), net.GetNumberOfSamples(),
                       net.GetNumberOfDiscretizationSamples(), net.GetFlags(), net.GetRelevanceMask(),
                       net.GetOptions(), net.IsZeroAvoidanceEnabled(), net.IsOutlierRejectionEnabled(),
                       net.IsNoisyDecompEnabled(), net.GetNoisyDecompLimit(), net.GetRandSeed()),
        py::make_tuple(e.propagationLength, e.numStateSmall, e.numStateMedium, e.numStateBig, e.stateSmallEpsil,
                       e.stateMediumEpsil, e.stateBigEpsil, e.stateOtherwise),
        py::make_tuple(l.propagationLength, l.maxIterations, l.tolerance, l.damping),
        py::make_tuple(a.speed, a.tMin, a.tInit, a.kReheat, a.kMAP, a.kRFactor, a.stopAfter,
                       a.iterationsPerTemperature));
}

void ApplySettings(VEK_network& net, const py::tuple& s, const char* function) {
    const py::tuple g = s[0], e = s[1], l = s[2], a = s[3];
    net.SetDefaultBNAlgorithm(g[0].cast<int>());
    net.SetDefaultIDAlgorithm(g[1].cast<int>());
    ValidateResult(net.SetNumberOfSamples(g[2].cast<int>()), function);
    ValidateResult(net.SetNumberOfDiscretizationSamples(g[3].cast<int>()), function);
    net.SetFlags(g[4].cast<unsigned>());
    net.SetRelevanceMask(g[5].cast<unsigned>());
    net.SetOptions(g[6].cast<unsigned>());
    net.EnableZeroAvoidance(g[7].cast<bool>());
    net.EnableOutlierRejection(g[8].cast<bool>());
    net.EnableNoisyDecomp(g[9].cast<bool>());
    net.SetNoisyDecompLimit(g[10].cast<int>());
    net.SetRandSeed(g[11].cast<int>());
    ValidateResult(net.SetEPISParams(VEK_EPISParams{e[0].cast<int>(), e[1].cast<int>(), e[2].cast<int>(),
                                                    e[3].cast<int>(), e[4].cast<double>(), e[5].cast<double>(),
                                                    e[6].cast<double>(), e[7].cast<double>()}),
                   function);
    ValidateResult(
        net.SetLBPParams(VEK_LBPParams{l[0].cast<int>(), l[1].cast<int>(), l[2].cast<double>(), l[3].cast<double>()}),
        function);
    net.AnnealedMAPParams() = VEK_AnnealedMAPParams{a[0].cast<double>(), a[1].cast<double>(), a[2].cast<double>(),
                                                    a[3].cast<double>(), a[4].cast<int>(),    a[5].cast<double>(),
                                                    a[6].cast<int>(),    a[7].cast<int>()};
}

py::tuple GetNetworkState(PyNetwork& net) {
    VEK_logger& logger = net.Logger();
    ClearLog(logger);
    std::string xml;
    int res = net.WriteString(xml);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.GetState", logger);
    py::list evidence, targets;
    bool beliefs = false;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const EvidenceSnapshot s = EvidenceSnapshot::Take(net, h);
        const char* id = net.GetNodeId(h);
        if (s.kind == EvidenceSnapshot::OUTCOME) evidence.append(py::make_tuple(id, s.outcome));
        if (s.kind == EvidenceSnapshot::NUMBER) evidence.append(py::make_tuple(id, s.number));
        if (s.kind == EvidenceSnapshot::VIRTUAL) evidence.append(py::make_tuple(id, s.likelihoods));
        if (net.IsTarget(h)) targets.append(id);
        beliefs = beliefs || net.GetVal(h)->IsValueValid();
    }
    return py::make_tuple(kNetworkStateVersion, py::bytes(xml), Settings(net), evidence, targets, beliefs);
}

std::unique_ptr<PyNetwork> SetNetworkState(const py::tuple& state) {
    const char* function = "Network.SetState";
    if (state.size() != 6 || state[0].cast<int>() != kNetworkStateVersion) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function, "Not a pickled network of this version");
    }
    auto owned = std::make_unique<PyNetwork>();
    PyNetwork& net = *owned;
    const std::string xml = state[1].cast<std::string>();
    ValidateText(xml, function, "Network text");
    if (int res = net.ReadString(xml.c_str()); res != VEK_OKAY) {
        ThrowQuarnExceptionWithLog(res, function, net.Logger());
    }
    ApplySettings(net, state[2], function);
    for (py::handle item : state[3].cast<py::list>()) {
        const py::tuple t = item.cast<py::tuple>();
        EvidenceSnapshot s;
        s.handle = ValidateNodeId(net, t[0].cast<std::string>());
        if (py::isinstance<py::int_>(t[1])) {
            s.kind = EvidenceSnapshot::OUTCOME;
            s.outcome = t[1].cast<int>();
        } else if (py::isinstance<py::float_>(t[1])) {
            s.kind = EvidenceSnapshot::NUMBER;
            s.number = t[1].cast<double>();
        } else {
            s.kind = EvidenceSnapshot::VIRTUAL;
            s.likelihoods = t[1].cast<std::vector<double>>();
        }
        ValidateResult(s.Restore(net), function);
    }
    // The text may hold the targets already.
    for (py::handle id : state[4].cast<py::list>()) {
        const int h = ValidateNodeId(net, id.cast<std::string>());
        if (!net.IsTarget(h)) ValidateResult(net.SetTarget(h, true), function);
    }
    // Beliefs that were valid are valid again; an update that fails now
    // failed then too and leaves them invalid, as they were not.
    if (state[5].cast<bool>()) {
        (void)net.UpdateBeliefs();
        ClearLog(net.Logger());
    }
    return owned;
}

// A dataset travels column by column: id, kind, missing marker, state names
// and the cells as raw bytes.
py::tuple GetDataSetState(const PyDataset& self) {
    const VEK_dataset& data = self.data;
    py::list columns;
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) {
        const VEK_dataset::Variable& var = data.GetVariable(v);
        const char* cells = var.discrete ? reinterpret_cast<const char*>(var.intData.data())
                                         : reinterpret_cast<const char*>(var.floatData.data());
        const size_t bytes = var.discrete ? var.intData.size() * sizeof(int) : var.floatData.size() * sizeof(float);
        columns.append(py::make_tuple(var.id, var.discrete, var.missingInt, var.missingFloat, var.stateNames,
                                      py::bytes(cells, bytes)));
    }
    return py::make_tuple(kDataSetStateVersion, data.GetNumberOfRecords(), columns);
}

std::unique_ptr<PyDataset> SetDataSetState(const py::tuple& state) {
    const char* function = "DataSet.SetState";
    if (state.size() != 3 || state[0].cast<int>() != kDataSetStateVersion) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function, "Not a pickled dataset of this version");
    }
    const int records = state[1].cast<int>();
    auto out = std::make_unique<PyDataset>();
    VEK_dataset& data = out->data;
    std::vector<std::vector<std::string>> names;
    for (py::handle item : state[2].cast<py::list>()) {
        const py::tuple c = item.cast<py::tuple>();
        const std::string id = c[0].cast<std::string>();
        ValidateText(id, function, "Variable id");
        const bool discrete = c[1].cast<bool>();
        int v = discrete ? data.AddIntVariable(id.c_str(), c[2].cast<int>())
                         : data.AddFloatVariable(id.c_str(), c[3].cast<float>());
        ValidateResult(v < 0 ? v : 0, function);
        const std::string cells = c[5].cast<std::string>();
        const size_t size = discrete ? sizeof(int) : sizeof(float);
        if (records < 0 || cells.size() != static_cast<size_t>(records) * size) {
            ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function, "Column '" + id + "' has the wrong size");
        }
        VEK_dataset::Variable& var = data.Variables()[static_cast<size_t>(v)];
        if (discrete) {
            var.intData.resize(static_cast<size_t>(records));
            if (!cells.empty()) std::memcpy(var.intData.data(), cells.data(), cells.size());
        } else {
            var.floatData.resize(static_cast<size_t>(records));
            if (!cells.empty()) std::memcpy(var.floatData.data(), cells.data(), cells.size());
        }
        names.push_back(c[4].cast<std::vector<std::string>>());
    }
    data.SetRecordCount(records);
    // State names go last: they are checked against the cells.
    for (size_t v = 0; v < names.size(); ++v) {
        if (!names[v].empty()) ValidateResult(data.SetStateNames(static_cast<int>(v), names[v]), function);
    }
    return out;
}

// A state of the wrong make (altered, or from another program) is refused
// like any bad argument.
template <class T>
std::unique_ptr<T> Unpickle(const py::tuple& state, const char* function,
                            std::unique_ptr<T> (*make)(const py::tuple&)) {
    try {
        return make(state);
    } catch (const py::cast_error&) {
    } catch (const py::error_already_set&) {
    }
    ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function, "The pickled state is damaged");
}

// ---- sampling ----------------------------------------------------------------

PyDataset WrpSample(const PyNetwork& net, int records, const py::object& seed) {
    const char* function = "Network.Sample";
    if (records < 0) ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "The record count is negative");
    VEK_randGen gen(static_cast<unsigned>(seed.is_none() ? net.GetRandSeed() : seed.cast<int>()));
    PyDataset out;
    int res = VEK_sampleDataset(net, records, gen, 0.0, out.data);
    if (res == VEK_WRONG_NODE_TYPE) {
        ThrowQuarnExceptionWithMessage(res, function, "Only networks whose nodes all have probability tables can "
                                                      "be sampled");
    }
    ValidateResult(res, function);
    int v = 0;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h), ++v) {
        const VEK_idArray* ids = net.GetDef(h)->GetOutcomeIds();
        if (ids) ValidateResult(out.data.SetStateNames(v, IdArrayToVector(*ids)), function);
    }
    return out;
}

}  // namespace
}  // namespace Wrp

void BindPythonic(PyNetworkClass& cls, py::module_& learning) {
    using namespace Wrp;
    cls.def("__len__", [](const PyNetwork& self) { return self.GetNumberOfNodes(); }, "Number of nodes");
    cls.def("__contains__", [](const PyNetwork& self, const py::object& id) { return Contains(self, id); },
            py::arg("node_id"), "Whether a node bears the id");
    cls.def("__iter__", [](const PyNetwork& self) -> py::iterator { return py::iter(py::cast(NodeIds(self))); },
            "Iterates over the node ids in handle order");
    cls.def("__repr__", [](const PyNetwork& self) { return Repr(self); });
    cls.def(py::pickle(&GetNetworkState, [](const py::tuple& state) {
        return Unpickle(state, "Network.SetState", &SetNetworkState);
    }));
    cls.def(
        "sample",
        [](const PyNetwork& self, int n, const py::object& seed, bool as_dataframe) -> py::object {
            py::object data = py::cast(WrpSample(self, n, seed));
            if (!as_dataframe) return data;
            return py::module_::import("pyquarn.frames").attr("dataset_frame")(data);
        },
        py::arg("n"), py::arg("seed") = py::none(), py::arg("as_dataframe") = false,
        "Draws n records from the network's tables (forward sampling) into a DataSet, or a DataFrame of "
        "outcome ids; seed defaults to the network's random seed");

    auto dataset = py::reinterpret_borrow<py::class_<PyDataset>>(learning.attr("DataSet"));
    dataset.def(py::pickle(&GetDataSetState, [](const py::tuple& state) {
        return Unpickle(state, "DataSet.SetState", &SetDataSetState);
    }));
}
