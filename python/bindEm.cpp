// pyquarn.learning.DataMatch and pyquarn.learning.EM: parameter learning by
// Expectation-Maximization from a DataSet into a Network.
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "learning/em.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace {

class PyDataMatch : public PyWrapper, public VEK_datasetMatch {
public:
    PyDataMatch() = default;
    PyDataMatch(int node, int slice, int column) {
        this->node = node;
        this->slice = slice;
        this->column = column;
    }
};

class PyEM : public PyWrapper {
public:
    VEK_em em;
    double lastScore = 0.0;
};

void WrpLearn(PyEM& self, const PyDataset& data, PyNetwork& net, const std::vector<PyDataMatch>& matching,
              const std::vector<int>& fixedNodes) {
    std::vector<VEK_datasetMatch> items;
    for (const PyDataMatch& m : matching) {
        Wrp::ValidateNodeHandle(net, m.node);
        if (!data.data.IsValidVariable(m.column)) {
            Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "EM.Learn",
                                                "Invalid dataset column in the matching: " + std::to_string(m.column));
        }
        items.push_back(m);
    }
    for (int h : fixedNodes) Wrp::ValidateNodeHandle(net, h);
    VEK_logger& logger = net.Logger();
    Wrp::ClearLog(logger);
    double score = 0.0;
    int res = self.em.Learn(data.data, net, items, fixedNodes, &score);
    if (res != VEK_OKAY) Wrp::ThrowQuarnExceptionWithLog(res, "EM.Learn", logger);
    self.lastScore = score;
}

}  // namespace

void RegisterDataMatch(py::module_& learning) {
    py::class_<PyDataMatch> cls(learning, "DataMatch", "Data and node matching information");
    cls.def(py::init<int, int, int>(), py::arg("node") = -1, py::arg("slice") = 0, py::arg("column") = -1);
    cls.def_readwrite("node", &PyDataMatch::node, "Handle of the matched node");
    cls.def_readwrite("slice", &PyDataMatch::slice, "Time slice of the matched node");
    cls.def_readwrite("column", &PyDataMatch::column, "Index of the matched dataset column");
    cls.def("__repr__", [](const PyDataMatch& m) {
        return "DataMatch(node=" + std::to_string(m.node) + ", slice=" + std::to_string(m.slice) +
               ", column=" + std::to_string(m.column) + ")";
    });
    cls.def("__eq__", [](const PyDataMatch& a, const PyDataMatch& b) {
        return static_cast<const VEK_datasetMatch&>(a) == static_cast<const VEK_datasetMatch&>(b);
    });
    cls.def("__copy__", [](const PyDataMatch& self) { return PyDataMatch(self); });
    cls.def("__deepcopy__", [](const PyDataMatch& self, py::dict) { return PyDataMatch(self); }, py::arg("memo"));
}

void RegisterEM(py::module_& learning) {
    py::class_<PyEM> cls(learning, "EM", "Expectation-Maximization (EM) algorithm for parameter learning");
    cls.def(py::init<>());
    cls.def("__copy__", [](const PyEM& self) { return PyEM(self); });
    cls.def("__deepcopy__", [](const PyEM& self, py::dict) { return PyEM(self); }, py::arg("memo"));
    cls.def(
        "learn",
        [](PyEM& self, const PyDataset& data, PyNetwork& net, const std::vector<PyDataMatch>& matching) {
            WrpLearn(self, data, net, matching, {});
        },
        py::arg("data"), py::arg("net"), py::arg("matching"), "Performs EM learning");
    cls.def(
        "learn",
        [](PyEM& self, const PyDataset& data, PyNetwork& net, const std::vector<PyDataMatch>& matching,
           const std::vector<int>& fixed_nodes) { WrpLearn(self, data, net, matching, fixed_nodes); },
        py::arg("data"), py::arg("net"), py::arg("matching"), py::arg("fixed_nodes"), "Performs EM learning");
    cls.def(
        "learn",
        [](PyEM& self, const PyDataset& data, PyNetwork& net, const std::vector<PyDataMatch>& matching,
           const std::vector<std::string>& fixed_nodes) {
            WrpLearn(self, data, net, matching, Wrp::IdsToHandles(net, fixed_nodes));
        },
        py::arg("data"), py::arg("net"), py::arg("matching"), py::arg("fixed_nodes"), "Performs EM learning");
    cls.def(
        "get_last_score", [](const PyEM& self) { return self.lastScore; }, "Gets score after last EM run");
    cls.def(
        "set_eq_sample_size",
        [](PyEM& self, int size) {
            if (size < 0) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "EM.SetEquivalentSampleSize",
                                                    "The equivalent sample size can't be negative");
            }
            if (self.em.SetEquivalentSampleSize(static_cast<float>(size)) != VEK_OKAY) {
                Wrp::ThrowQuarnExceptionWithMessage(
                    VEK_INVALID_VALUE, "EM.SetEquivalentSampleSize",
                    "The equivalent sample size can't be set while uniformize or randomize is on");
            }
        },
        py::arg("size"), "Sets equivalent sample size for EM");
    cls.def(
        "get_eq_sample_size", [](const PyEM& self) { return static_cast<double>(self.em.GetEquivalentSampleSize()); },
        "Gets equivalent sample size for EM");
    cls.def(
        "set_randomize_parameters", [](PyEM& self, bool on) { self.em.SetRandomizeParameters(on); },
        py::arg("randomize"), "Sets whether EM starts from random parameters and restarts");
    cls.def(
        "get_randomize_parameters", [](const PyEM& self) { return self.em.GetRandomizeParameters(); },
        "Gets whether EM starts from random parameters");
    cls.def(
        "set_seed", [](PyEM& self, int seed) { self.em.SetSeed(seed); }, py::arg("seed"),
        "Sets random seed for EM");
    cls.def(
        "get_seed", [](const PyEM& self) { return self.em.GetSeed(); }, "Gets random seed for EM");
    cls.def(
        "set_uniformize_parameters", [](PyEM& self, bool on) { self.em.SetUniformizeParameters(on); },
        py::arg("uniformize"), "Sets whether EM starts from uniform parameters");
    cls.def(
        "get_uniformize_parameters", [](const PyEM& self) { return self.em.GetUniformizeParameters(); },
        "Gets whether EM starts from uniform parameters");
    cls.def(
        "set_relevance", [](PyEM& self, bool on) { self.em.SetRelevance(on); }, py::arg("relevance"),
        "Sets whether EM runs with relevance reasoning");
    cls.def(
        "get_relevance", [](const PyEM& self) { return self.em.GetRelevance(); },
        "Gets whether EM runs with relevance reasoning");
    cls.def(
        "set_auto_slices", [](PyEM& self, bool on) { self.em.SetAutoSlices(on); }, py::arg("auto_slices"),
        "Sets whether dynamic networks are unrolled to the slices the data needs");
    cls.def(
        "get_auto_slices", [](const PyEM& self) { return self.em.GetAutoSlices(); },
        "Gets whether dynamic networks are unrolled to the slices the data needs");
}
