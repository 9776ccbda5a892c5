// pyquarn.learning.Validator and its nested Curve: a network scored as a
// classifier on a DataSet, with results as numpy arrays.
#include <cstring>
#include <string>
#include <variant>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "learning/validator.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace {

using NodeRef = std::variant<int, std::string>;
using OutcomeRef = std::variant<int, std::string>;

class PyCurve : public PyWrapper {
public:
    py::array_t<double> points = py::array_t<double>(std::vector<py::ssize_t>{0, 2});
    double auc = 0.0;
};

// Keeps the network and the dataset alive for as long as it refers to them.
class PyValidator : public PyWrapper {
public:
    PyValidator(py::object netObject, py::object dataObject, const std::vector<VEK_datasetMatch>& matching)
        : netObj(std::move(netObject)),
          dataObj(std::move(dataObject)),
          validator(netObj.cast<PyNetwork&>(), dataObj.cast<PyDataset&>().data, matching) {}
    PyNetwork& Net() const { return netObj.cast<PyNetwork&>(); }
    py::object netObj;
    py::object dataObj;
    VEK_validator validator;
};

int NodeHandle(const PyValidator& self, const NodeRef& node) {
    if (const int* h = std::get_if<int>(&node)) {
        Wrp::ValidateNodeHandle(self.Net(), *h);
        return *h;
    }
    return Wrp::ValidateNodeId(self.Net(), std::get<std::string>(node));
}

// The matching as DataMatch objects, checked against the network and data.
std::vector<VEK_datasetMatch> ReadMatching(const PyNetwork& net, const PyDataset& data, const py::list& matching) {
    py::object dataMatch = py::module_::import("pyquarn").attr("learning").attr("DataMatch");
    std::vector<VEK_datasetMatch> items;
    for (py::handle item : matching) {
        if (!py::isinstance(item, dataMatch)) throw py::type_error("matching must be a list of DataMatch objects");
        VEK_datasetMatch m{item.attr("node").cast<int>(), item.attr("slice").cast<int>(),
                           item.attr("column").cast<int>()};
        Wrp::ValidateNodeHandle(net, m.node);
        if (!data.data.IsValidVariable(m.column) || m.slice != 0) {
            Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Validator.Validator",
                                                "Invalid dataset column or time slice in the matching: column " +
                                                    std::to_string(m.column) + ", slice " + std::to_string(m.slice));
        }
        for (const VEK_datasetMatch& other : items) {
            if (other.node == m.node) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Validator.Validator",
                                                    "Node '" + std::string(net.GetNodeId(m.node)) +
                                                        "' is matched twice");
            }
        }
        items.push_back(m);
    }
    if (items.empty()) {
        Wrp::ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, "Validator.Validator", "The matching is empty");
    }
    return items;
}

void Run(PyValidator& self, const char* function, int (*run)(VEK_validator&, int, int), int a, int b) {
    VEK_logger& logger = self.Net().Logger();
    Wrp::ClearLog(logger);
    const int res = run(self.validator, a, b);
    if (res != VEK_OKAY) Wrp::ThrowQuarnExceptionWithLog(res, function, logger);
}

// The class node's handle once results for it exist.
int ResultNode(const PyValidator& self, const NodeRef& node, const char* function) {
    const int h = NodeHandle(self, node);
    if (!self.validator.HasResults()) {
        Wrp::ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, function,
                                            "No results: run test, k_fold or leave_one_out first");
    }
    if (self.validator.GetOutcomeCount(h) < 0) {
        Wrp::ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, function,
                                            "Node '" + std::string(self.Net().GetNodeId(h)) +
                                                "' was not a class node of the last run");
    }
    return h;
}

template <class T>
py::array_t<T> Matrix(const std::vector<T>& items, size_t columns) {
    py::array_t<T> out(std::vector<py::ssize_t>{static_cast<py::ssize_t>(items.size() / columns),
                                                static_cast<py::ssize_t>(columns)});
    if (!items.empty()) std::memcpy(out.mutable_data(), items.data(), items.size() * sizeof(T));
    return out;
}

PyCurve GetCurve(const PyValidator& self, const NodeRef& node, const OutcomeRef& outcome, bool roc) {
    const char* function = roc ? "Validator.GetRocCurve" : "Validator.GetPrCurve";
    const int h = ResultNode(self, node, function);
    int o;
    if (const int* index = std::get_if<int>(&outcome)) {
        Wrp::ValidateOutcomeIndex(self.Net(), h, *index);
        o = *index;
    } else {
        o = Wrp::ValidateOutcomeId(self.Net(), h, std::get<std::string>(outcome));
    }
    VEK_validator::Curve curve;
    const int res = roc ? self.validator.GetRocCurve(h, o, curve) : self.validator.GetPrCurve(h, o, curve);
    if (res != VEK_OKAY) {
        Wrp::ThrowQuarnExceptionWithMessage(
            res, function,
            roc ? "The ROC curve needs records of the outcome and records of other outcomes"
                : "The precision-recall curve needs records of the outcome");
    }
    PyCurve out;
    out.points = Matrix(curve.points, 2);
    out.auc = curve.auc;
    return out;
}

}  // namespace

void RegisterValidator(py::module_& learning) {
    py::class_<PyValidator> cls(learning, "Validator", "Cross-validation and model evaluation utilities");
    py::class_<PyCurve> curve(cls, "Curve", "ROC or precision-recall curve data");
    curve.def(py::init<>());
    curve.def_readonly("points", &PyCurve::points,
                       "Points as rows (x, y): (false positive rate, true positive rate) for ROC, (recall, "
                       "precision) for precision-recall");
    curve.def_readonly("auc", &PyCurve::auc, "Area under the curve (average precision for precision-recall)");
    curve.def("__copy__", [](const PyCurve& self) { return PyCurve(self); });
    curve.def("__deepcopy__", [](const PyCurve& self, py::dict) { return PyCurve(self); }, py::arg("memo"));

    cls.def(py::init([](py::object net, py::object dataset, const py::list& matching) {
                if (!py::isinstance<PyNetwork>(net)) throw py::type_error("net must be a Network");
                if (!py::isinstance<PyDataset>(dataset)) throw py::type_error("dataset must be a DataSet");
                PyNetwork& n = net.cast<PyNetwork&>();
                const std::vector<VEK_datasetMatch> items = ReadMatching(n, dataset.cast<PyDataset&>(), matching);
                return PyValidator(net, dataset, items);
            }),
            py::arg("net"), py::arg("dataset"), py::arg("matching"),
            "Creates a validator of the network on the dataset, its columns paired with nodes by the matching");
    cls.def("__copy__", [](const PyValidator& self) { return PyValidator(self); });
    cls.def("__deepcopy__", [](const PyValidator& self, py::dict) { return PyValidator(self); }, py::arg("memo"));
    cls.def(
        "add_class_node",
        [](PyValidator& self, const NodeRef& node) {
            const int h = NodeHandle(self, node);
            const int res = self.validator.AddClassNode(h);
            const std::string id = self.Net().GetNodeId(h);
            if (res == VEK_DUPLICATED_IDENTIFIER) {
                Wrp::ThrowQuarnExceptionWithMessage(res, "Validator.AddClassNode",
                                                    "Node '" + id + "' is already a class node");
            }
            if (res != VEK_OKAY) {
                Wrp::ThrowQuarnExceptionWithMessage(res, "Validator.AddClassNode",
                                                    "Node '" + id + "' is not matched to a dataset column");
            }
        },
        py::arg("node"), "Adds a node (handle or id) whose outcome is predicted from the other matched columns");
    cls.def(
        "get_class_nodes", [](const PyValidator& self) { return self.validator.GetClassNodes(); },
        "Gets the handles of the class nodes");
    cls.def(
        "test",
        [](PyValidator& self) {
            Run(self, "Validator.Test", [](VEK_validator& v, int, int) { return v.Test(); }, 0, 0);
        },
        "Predicts every record with the network as it stands");
    cls.def(
        "k_fold",
        [](PyValidator& self, int k, int seed) {
            Run(self, "Validator.KFold", [](VEK_validator& v, int a, int b) { return v.KFold(a, b); }, k, seed);
        },
        py::arg("k"), py::arg("seed") = 0,
        "Predicts each of k random folds of the records with the parameters learnt by EM from the other folds");
    cls.def(
        "leave_one_out",
        [](PyValidator& self) {
            Run(self, "Validator.LeaveOneOut", [](VEK_validator& v, int, int) { return v.LeaveOneOut(); }, 0, 0);
        },
        "Predicts each record with the parameters learnt by EM from all the other records");
    cls.def(
        "get_accuracy",
        [](const PyValidator& self, const NodeRef& node) {
            double accuracy = 0.0;
            (void)self.validator.GetAccuracy(  // ResultNode found the results
                ResultNode(self, node, "Validator.GetAccuracy"), accuracy);
            return accuracy;
        },
        py::arg("node"), "Gets the share of records whose most probable outcome is the true one");
    cls.def(
        "get_confusion_matrix",
        [](const PyValidator& self, const NodeRef& node) {
            const int h = ResultNode(self, node, "Validator.GetConfusionMatrix");
            std::vector<int> counts;
            (void)self.validator.GetConfusionMatrix(h, counts);  // ResultNode found the results
            return Matrix(std::vector<int64_t>(counts.begin(), counts.end()),
                          static_cast<size_t>(self.validator.GetOutcomeCount(h)));
        },
        py::arg("node"), "Gets the confusion matrix: rows true outcomes, columns predicted outcomes");
    cls.def(
        "get_posteriors",
        [](const PyValidator& self, const NodeRef& node) {
            const int h = ResultNode(self, node, "Validator.GetPosteriors");
            return Matrix(*self.validator.GetPosteriors(h), static_cast<size_t>(self.validator.GetOutcomeCount(h)));
        },
        py::arg("node"), "Gets the predicted posteriors, one row per record");
    cls.def(
        "get_log_loss",
        [](const PyValidator& self, const NodeRef& node) {
            double loss = 0.0;
            (void)self.validator.GetLogLoss(  // ResultNode found the results
                ResultNode(self, node, "Validator.GetLogLoss"), loss);
            return loss;
        },
        py::arg("node"), "Gets the mean negative natural logarithm of the true outcome's posterior");
    cls.def(
        "get_roc_curve",
        [](const PyValidator& self, const NodeRef& node, const OutcomeRef& outcome) {
            return GetCurve(self, node, outcome, true);
        },
        py::arg("node"), py::arg("outcome"), "Gets the ROC curve of an outcome (index or id) against the others");
    cls.def(
        "get_pr_curve",
        [](const PyValidator& self, const NodeRef& node, const OutcomeRef& outcome) {
            return GetCurve(self, node, outcome, false);
        },
        py::arg("node"), py::arg("outcome"), "Gets the precision-recall curve of an outcome (index or id)");
}
