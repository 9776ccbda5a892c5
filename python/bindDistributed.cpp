// Network.distributed_helper_em and pyquarn.learning.EMHelper: the steps of
// EM as separate calls over parts of the data, exchanging numpy arrays, so
// that pyquarn.distributed can run them on a cluster.
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "inference/randGen.h"
#include "learning/emStatistics.h"
#include "network/nodeDef.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace {

using namespace Wrp;

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
                                         self.stats.GetRelevance());
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
          const char* function) {
    // The helper's copy logs; the caller's network is left alone.
    const int res = helper.stats.Init(net, fixed, ess, relevance);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, function, helper.stats.Work().Logger());
    helper.fixedIds = HandlesToIds(net, fixed);
}

std::unique_ptr<PyEMHelper> WrpCreate(PyNetwork& net, const std::vector<std::string>& fixedNodes, int ess,
                                      bool relevance) {
    const std::vector<int> fixed = IdsToHandles(net, fixedNodes);
    if (ess < 0) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.DistributedHelperEM",
                                       "The equivalent sample size can't be negative");
    }
    auto helper = std::make_unique<PyEMHelper>();
    Init(*helper, net, fixed, static_cast<float>(ess), relevance, "Network.DistributedHelperEM");
    return helper;
}

// Each column is matched to the node of the same id.
std::vector<VEK_datasetMatch> MatchById(const VEK_network& work, const VEK_dataset& data) {
    std::vector<VEK_datasetMatch> matching;
    for (int c = 0; c < data.GetNumberOfVariables(); ++c) {
        const int node = work.FindNode(data.GetId(c));
        if (node < 0) {
            ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, kEStep,
                                           "Column '" + std::string(data.GetId(c)) + "' matches no node of the network");
        }
        matching.push_back(VEK_datasetMatch{node, 0, c});
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
    const std::vector<VEK_datasetMatch> matching = MatchById(self.stats.Work(), data->data);
    std::unique_ptr<Lane> lane = TakeLane(self);
    VEK_logger& log = lane->stats.Work().Logger();
    ClearLog(log);
    VEK_emRecords records;
    int res = lane->stats.ReadRecords(data->data, matching, records);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, kEStep, log);
    std::vector<int> matched;
    for (const VEK_datasetMatch& m : matching) matched.push_back(m.node);
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

// The working copy as text, then every node's table exactly (the text
// rounds numbers), the priors and the settings.
py::tuple GetState(const PyEMHelper& self) {
    const VEK_network& work = self.stats.Work();
    std::string text;
    VEK_network copy(work);
    int res = copy.WriteString(text);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.GetState", copy.Logger());
    py::dict tables;
    for (int h = work.GetFirstNode(); h >= 0; h = work.GetNextNode(h)) {
        const VEK_Dmatrix& m = work.GetDef(h)->GetParameters();
        tables[py::str(work.GetNodeId(h))] = ToArray(m.Items(), static_cast<size_t>(m.GetSize()));
    }
    std::vector<double> priors;
    self.stats.GetTables(priors, true);
    return py::make_tuple(py::bytes(text), tables, ToArray(priors.data(), priors.size()), self.fixedIds,
                          static_cast<double>(self.stats.GetEquivalentSampleSize()), self.stats.GetRelevance(),
                          self.seed);
}

std::unique_ptr<PyEMHelper> SetState(const py::tuple& state) {
    const char* bad = "The helper's state is damaged";
    if (state.size() != 7) ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, "EMHelper.SetState", bad);
    VEK_network net;
    const std::string text = state[0].cast<std::string>();
    int res = net.ReadString(text.c_str());
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "EMHelper.SetState", net.Logger());
    for (auto item : state[1].cast<py::dict>()) {
        const int h = net.FindNode(item.first.cast<std::string>().c_str());
        auto a = item.second.cast<py::array_t<double, py::array::c_style | py::array::forcecast>>();
        if (h < 0 || a.size() != net.GetDef(h)->GetParameters().GetSize()) {
            ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, "EMHelper.SetState", bad);
        }
        net.GetDef(h)->GetWriteableParameters().FillFrom(a.data());
        net.GetDef(h)->OnParametersChanged();
    }
    auto helper = std::make_unique<PyEMHelper>();
    Init(*helper, net, IdsToHandles(net, state[3].cast<std::vector<std::string>>()),
         static_cast<float>(state[4].cast<double>()), state[5].cast<bool>(), "EMHelper.SetState");
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
        "Expected counts of a partition (DataSet or pandas DataFrame, columns matched to nodes by id) under the "
        "current parameters: a dict of 'counts' (one array per learnt node, in its table's order), "
        "'log_likelihood' and 'records'");
    cls.def("combine", &WrpCombine, py::arg("a"), py::arg("b"), "Adds two statistics");
    cls.def("m_step", &WrpMStep, py::arg("total"),
            "Sets the parameters from total statistics; returns their log-likelihood");
    cls.def("apply", &WrpApply, py::arg("net"), "Writes the learnt parameters into a network");
    cls.def(
        "get_learnt_nodes",
        [](const PyEMHelper& self) { return HandlesToIds(self.stats.Work(), self.stats.Learnable()); },
        "Gets the ids of the learnt nodes, in the order of the counts");
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
            self.stats.Restart(VEK_emStatistics::Start::kRandom, self.gen);
            self.TablesChanged();
        },
        "Starts the learnt nodes from random tables, which become their priors");
    cls.def(
        "uniformize",
        [](PyEMHelper& self) {
            self.stats.Restart(VEK_emStatistics::Start::kUniform, self.gen);
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
            py::arg("eq_sample_size") = 0, py::arg("relevance") = true, "Creates distributed EM helper");
}
