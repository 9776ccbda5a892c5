// Network.distributed_helper_em and pyquarn.learning.EMHelper: the steps of
// EM as separate calls over parts of the data, exchanging numpy arrays, so
// that pyquarn.distributed can run them on a cluster.
#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "dynamic/dynamicNet.h"
#include "inference/randGen.h"
#include "learning/datasetMatcher.h"
#include "learning/emStatistics.h"
#include "network/nodeDef.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace {

using namespace Wrp;

constexpr const char* kCreate = "Network.DistributedHelperEM";
constexpr const char* kEStep = "EMHelper.EStep";
constexpr const char* kCombine = "EMHelper.Combine";
constexpr const char* kMStep = "EMHelper.MStep";

// E-steps run without the GIL, so that the threads of a Dask worker or of
// the local scheduler count partitions side by side. Each runs in a lane of
// its own (a copy of the working network with its compiled trees); stats
// keeps the tables every lane is brought up to. The pool is only touched
// with the GIL held.
struct Lane {
    VEK_emStatistics stats;
    unsigned long long version = 0;
};

class PyEMHelper : public PyWrapper {
public:
    VEK_emStatistics stats;
    VEK_randGen gen;
    std::vector<std::string> fixedIds;
    int seed = 0;
    unsigned long long version = 1;  // of the tables in stats
    std::vector<std::unique_ptr<Lane>> idle;

    void TablesChanged() { ++version; }
};

// A lane with the current tables: an idle one, or a new copy of stats.
std::unique_ptr<Lane> TakeLane(PyEMHelper& self) {
    std::unique_ptr<Lane> lane;
    if (!self.idle.empty()) {
        lane = std::move(self.idle.back());
        self.idle.pop_back();
    } else {
        lane = std::make_unique<Lane>();
        const VEK_network& work = self.stats.Work();
        const int res = lane->stats.Init(work, IdsToHandles(work, self.fixedIds), self.stats.GetEquivalentSampleSize(),
                                         self.stats.GetRelevance(), self.stats.GetSliceCount());
        if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, kEStep, lane->stats.Work().Logger());
    }
    if (lane->version != self.version) {
        std::vector<double> tables;
        self.stats.GetTables(tables, false);
        // Same network, same sizes: this cannot fail.
        (void)lane->stats.SetTables(tables, false);
        lane->version = self.version;
    }
    return lane;
}

void Init(PyEMHelper& helper, const VEK_network& net, const std::vector<int>& fixed, float ess, bool relevance,
          int slices, const char* function) {
    // The helper's copy logs; the caller's network is left alone.
    const int res = helper.stats.Init(net, fixed, ess, relevance, slices);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, function, helper.stats.Work().Logger());
    helper.fixedIds = HandlesToIds(net, fixed);
}

// A column names a node by its id, or a plate node in slice t by id + "_" + t.
VEK_datasetMatch MatchColumn(const VEK_network& net, const std::string& column, int index, const char* function) {
    VEK_datasetMatch m{net.FindNode(column.c_str()), 0, index};
    if (m.node < 0) m.node = VEK_findPlateSlice(net, column, m.slice);
    if (m.node < 0) {
        ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, function, "Column '" + column + "' matches no node of the network");
    }
    return m;
}

void CheckSlice(const PyEMHelper& helper, const VEK_datasetMatch& m, const std::string& column, const char* function) {
    const int slices = std::max(helper.stats.GetSliceCount(), 1);
    if (m.slice >= slices) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                       "Column '" + column + "' names slice " + std::to_string(m.slice) +
                                           ", but the helper learns over " + std::to_string(slices) + " slices");
    }
}

// With auto slices a dynamic network is unrolled to as many slices as the
// columns name, as EM does; otherwise to its own slice count.
std::unique_ptr<PyEMHelper> WrpCreate(PyNetwork& net, const std::vector<std::string>& fixedNodes, int ess,
                                      bool relevance, bool autoSlices, const std::vector<std::string>& columns) {
    const std::vector<int> fixed = IdsToHandles(net, fixedNodes);
    if (ess < 0) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, kCreate, "The equivalent sample size can't be negative");
    }
    std::vector<VEK_datasetMatch> named;
    int slices = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
        named.push_back(MatchColumn(net, columns[i], static_cast<int>(i), kCreate));
        if (autoSlices) slices = std::max(slices, named.back().slice + 1);
    }
    auto helper = std::make_unique<PyEMHelper>();
    Init(*helper, net, fixed, static_cast<float>(ess), relevance, slices, kCreate);
    for (size_t i = 0; i < columns.size(); ++i) CheckSlice(*helper, named[i], columns[i], kCreate);
    return helper;
}

std::vector<VEK_datasetMatch> MatchById(const PyEMHelper& helper, const VEK_dataset& data) {
    const VEK_network& work = helper.stats.Work();
    std::vector<VEK_datasetMatch> matching;
    for (int c = 0; c < data.GetNumberOfVariables(); ++c) {
        const std::string column = data.GetId(c);
        matching.push_back(MatchColumn(work, column, c, kEStep));
        CheckSlice(helper, matching.back(), column, kEStep);
    }
    return matching;
}

py::array_t<double> ToArray(const double* items, size_t n) {
    py::array_t<double> out(static_cast<py::ssize_t>(n));
    std::copy(items, items + n, out.mutable_data());
    return out;
}

// The statistics of a part of the data: expected counts per learnt node (its
// table's layout, flat), their log-likelihood and the number of records.
py::dict MakeStatistics(const PyEMHelper& helper, const std::vector<double>& counts, double ll, long long records) {
    const auto& offsets = helper.stats.Offsets();
    py::list arrays;
    for (size_t i = 0; i < offsets.size(); ++i) {
        const size_t end = i + 1 < offsets.size() ? offsets[i + 1] : counts.size();
        arrays.append(ToArray(counts.data() + offsets[i], end - offsets[i]));
    }
    py::dict out;
    out["counts"] = arrays;
    out["log_likelihood"] = ll;
    out["records"] = records;
    return out;
}

struct Statistics {
    std::vector<double> counts;
    double ll = 0.0;
    long long records = 0;
};

Statistics ReadStatistics(const PyEMHelper& helper, const py::handle& obj, const char* function) {
    const auto& offsets = helper.stats.Offsets();
    const size_t size = helper.stats.CountSize();
    Statistics s;
    try {
        if (!py::isinstance<py::dict>(obj)) throw py::type_error("");
        py::dict d = py::reinterpret_borrow<py::dict>(obj);
        if (!d.contains("counts") || !d.contains("log_likelihood") || !d.contains("records")) {
            throw py::type_error("");
        }
        py::list arrays = d["counts"].cast<py::list>();
        s.ll = d["log_likelihood"].cast<double>();
        s.records = d["records"].cast<long long>();
        if (arrays.size() != offsets.size()) throw py::value_error("");
        s.counts.reserve(size);
        for (size_t i = 0; i < offsets.size(); ++i) {
            const size_t end = i + 1 < offsets.size() ? offsets[i + 1] : size;
            auto a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(arrays[i]);
            if (!a || a.ndim() != 1 || static_cast<size_t>(a.size()) != end - offsets[i]) throw py::value_error("");
            s.counts.insert(s.counts.end(), a.data(), a.data() + a.size());
        }
    } catch (const py::error_already_set&) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function,
                                       "Statistics must be what e_step or combine returned for this network");
    } catch (const py::cast_error&) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function,
                                       "Statistics must be what e_step or combine returned for this network");
    } catch (const py::builtin_exception&) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function,
                                       "Statistics must be what e_step or combine returned for this network");
    }
    return s;
}

py::dict WrpEStep(PyEMHelper& self, const py::object& partition) {
    py::object keep;
    const PyDataset* data = nullptr;
    if (py::isinstance<PyDataset>(partition)) {
        data = &partition.cast<const PyDataset&>();
    } else {
        keep = py::module_::import("pyquarn._frames").attr("from_pandas")(partition);
        data = &keep.cast<const PyDataset&>();
    }
    if (data->data.GetNumberOfRecords() == 0) {
        ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, kEStep, "The partition holds no records");
    }
    const std::vector<VEK_datasetMatch> matching = MatchById(self, data->data);
    std::unique_ptr<Lane> lane = TakeLane(self);
    VEK_logger& log = lane->stats.Work().Logger();
    ClearLog(log);
    VEK_emRecords records;
    std::vector<int> matched;
    int res = lane->stats.ReadRecords(data->data, matching, records, matched);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, kEStep, log);
    std::vector<double> counts;
    double ll = 0.0;
    {
        py::gil_scoped_release released;
        records.Group();
        res = lane->stats.EStep(records, matched, counts, ll);
    }
    // A lane whose pass failed is dropped rather than trusted again.
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, kEStep, log);
    self.idle.push_back(std::move(lane));
    return MakeStatistics(self, counts, ll, data->data.GetNumberOfRecords());
}

py::dict WrpCombine(const PyEMHelper& self, const py::object& a, const py::object& b) {
    Statistics x = ReadStatistics(self, a, kCombine);
    const Statistics y = ReadStatistics(self, b, kCombine);
    for (size_t i = 0; i < x.counts.size(); ++i) x.counts[i] += y.counts[i];
    return MakeStatistics(self, x.counts, x.ll + y.ll, x.records + y.records);
}

double WrpMStep(PyEMHelper& self, const py::object& total) {
    Statistics s = ReadStatistics(self, total, kMStep);
    for (double c : s.counts) {
        if (!(c >= 0.0) || !std::isfinite(c)) {
            ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, kMStep, "Counts must be finite and not negative");
        }
    }
    self.stats.MStep(s.counts);
    self.TablesChanged();
    return s.ll;
}

void WrpApply(const PyEMHelper& self, PyNetwork& net) {
    VEK_logger& logger = net.Logger();
    ClearLog(logger);
    const int res = self.stats.Apply(net);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.Apply", logger);
}

py::list Tables(const PyEMHelper& self, bool priors) {
    std::vector<double> flat;
    self.stats.GetTables(flat, priors);
    return MakeStatistics(self, flat, 0.0, 0)["counts"];
}

// The working copy with the current tables as text, then every table
// exactly (the text rounds numbers), temporal ones keyed (id, order), the
// priors, the settings and the slice count.
py::tuple GetState(const PyEMHelper& self) {
    VEK_network copy(self.stats.Work());
    std::string text;
    int res = self.stats.Apply(copy);
    if (res == VEK_OKAY) res = copy.WriteString(text);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.GetState", copy.Logger());
    py::dict tables;
    const VEK_dynamicNet* dyn = copy.GetDynamic();
    std::vector<int> orders;
    for (int h = copy.GetFirstNode(); h >= 0; h = copy.GetNextNode(h)) {
        const VEK_Dmatrix& m = copy.GetDef(h)->GetParameters();
        tables[py::str(copy.GetNodeId(h))] = ToArray(m.Items(), static_cast<size_t>(m.GetSize()));
        if (dyn) dyn->GetTemporalOrders(h, orders);
        for (int k = 0; dyn && k < static_cast<int>(orders.size()); ++k) {
            if (const VEK_Dmatrix* t = dyn->GetTemporalParameters(h, orders[k])) {
                tables[py::make_tuple(copy.GetNodeId(h), orders[k])] = ToArray(t->Items(), static_cast<size_t>(t->GetSize()));
            }
        }
    }
    std::vector<double> priors;
    self.stats.GetTables(priors, true);
    return py::make_tuple(py::bytes(text), tables, ToArray(priors.data(), priors.size()), self.fixedIds,
                          static_cast<double>(self.stats.GetEquivalentSampleSize()), self.stats.GetRelevance(),
                          self.seed, self.stats.GetSliceCount());
}

std::unique_ptr<PyEMHelper> SetState(const py::tuple& state) {
    const char* bad = "The helper's state is damaged";
    if (state.size() != 8) ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, "EMHelper.SetState", bad);
    VEK_network net;
    const std::string text = state[0].cast<std::string>();
    int res = net.ReadString(text.c_str());
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.SetState", net.Logger());
    for (auto item : state[1].cast<py::dict>()) {
        const bool temporal = py::isinstance<py::tuple>(item.first);
        const py::object key = temporal ? item.first.cast<py::tuple>()[0] : py::reinterpret_borrow<py::object>(item.first);
        const int h = net.FindNode(key.cast<std::string>().c_str());
        auto a = item.second.cast<py::array_t<double, py::array::c_style | py::array::forcecast>>();
        if (temporal && h >= 0 && net.GetDynamic()) {
            res = net.GetDynamic()->SetTemporalDefinition(h, item.first.cast<py::tuple>()[1].cast<int>(),
                                                          std::vector<double>(a.data(), a.data() + a.size()));
            if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, "EMHelper.SetState", bad);
            continue;
        }
        if (temporal || h < 0 || a.size() != net.GetDef(h)->GetParameters().GetSize()) {
            ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, "EMHelper.SetState", bad);
        }
        net.GetDef(h)->GetWriteableParameters().FillFrom(a.data());
        net.GetDef(h)->OnParametersChanged();
    }
    auto helper = std::make_unique<PyEMHelper>();
    Init(*helper, net, IdsToHandles(net, state[3].cast<std::vector<std::string>>()),
         static_cast<float>(state[4].cast<double>()), state[5].cast<bool>(), state[7].cast<int>(), "EMHelper.SetState");
    auto priors = state[2].cast<std::vector<double>>();
    if (helper->stats.SetTables(priors, true) != VEK_OKAY) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, "EMHelper.SetState", bad);
    }
    helper->seed = state[6].cast<int>();
    helper->gen.Init(static_cast<unsigned>(helper->seed));
    return helper;
}

}  // namespace

void RegisterEMHelper(py::module_& learning) {
    py::class_<PyEMHelper> cls(learning, "EMHelper",
                               "Steps of EM over parts of the data, for learning on a cluster");
    cls.def(
        "e_step", &WrpEStep, py::arg("partition"),
        "Expected counts of a partition (DataSet or pandas DataFrame, columns matched to nodes by id, or to plate "
        "nodes in slice t by id_t) under the current parameters: a dict of 'counts' (one array per learnt table, "
        "in get_layout's order, laid out as the table), 'log_likelihood' and 'records'");
    cls.def("combine", &WrpCombine, py::arg("a"), py::arg("b"), "Adds two statistics");
    cls.def("m_step", &WrpMStep, py::arg("total"),
            "Sets the parameters from total statistics; returns their log-likelihood");
    cls.def("apply", &WrpApply, py::arg("net"), "Writes the learnt parameters into a network");
    cls.def(
        "get_learnt_nodes",
        [](const PyEMHelper& self) { return HandlesToIds(self.stats.Work(), self.stats.Learnable()); },
        "Gets the node id of each learnt table, in the order of the counts");
    cls.def(
        "get_layout",
        [](const PyEMHelper& self) {
            const std::vector<std::string> ids = HandlesToIds(self.stats.Work(), self.stats.Learnable());
            std::vector<std::pair<std::string, int>> out;
            for (size_t i = 0; i < ids.size(); ++i) out.emplace_back(ids[i], self.stats.TableOrder(i));
            return out;
        },
        "Gets (node id, temporal order) of each learnt table, in the order of the counts; order 0 is the "
        "node's ordinary definition");
    cls.def(
        "get_slice_count", [](const PyEMHelper& self) { return self.stats.GetSliceCount(); },
        "Gets the number of slices a dynamic network is unrolled to (0 for a static network)");
    cls.def(
        "get_parameters", [](const PyEMHelper& self) { return Tables(self, false); },
        "Gets the current tables of the learnt nodes");
    cls.def(
        "set_seed",
        [](PyEMHelper& self, int seed) {
            self.seed = seed;
            self.gen.Init(static_cast<unsigned>(seed));
        },
        py::arg("seed"), "Seeds the generator of random start tables");
    cls.def(
        "randomize",
        [](PyEMHelper& self) {
            const int res = self.stats.Restart(VEK_emStatistics::Start::kRandom, self.gen);
            if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.Randomize", self.stats.Work().Logger());
            self.TablesChanged();
        },
        "Starts the learnt nodes from random tables, which become their priors");
    cls.def(
        "uniformize",
        [](PyEMHelper& self) {
            const int res = self.stats.Restart(VEK_emStatistics::Start::kUniform, self.gen);
            if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.Uniformize", self.stats.Work().Logger());
            self.TablesChanged();
        },
        "Starts the learnt nodes from uniform tables, which become their priors");
    cls.def("__copy__", [](const PyEMHelper& self) { return SetState(GetState(self)); });
    cls.def("__deepcopy__", [](const PyEMHelper& self, py::dict) { return SetState(GetState(self)); },
            py::arg("memo"));
    cls.def(py::pickle(&GetState, &SetState));
}

void BindDistributed(PyNetworkClass& cls) {
    cls.def("distributed_helper_em", &WrpCreate, py::arg("fixed_nodes") = std::vector<std::string>{},
            py::arg("eq_sample_size") = 0, py::arg("relevance") = true, py::arg("auto_slices") = false,
            py::arg("columns") = std::vector<std::string>{}, "Creates distributed EM helper");
}
