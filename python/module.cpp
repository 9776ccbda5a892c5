// The pyquarn module: attributes, the learning submodule, QUARNException and
// its translator, the enumerations, the classes, and the Network methods.
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <pybind11/operators.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "recordProtocol.h"
#include "inference/caughtFailure.h"
#include "wrpCore.h"

namespace {

using namespace Wrp;

// Created once and never destroyed: the class must outlive every module
// object, and a static py::object would be released after the interpreter.
py::exception<quarn_exception>* g_quarnException = nullptr;

// The code goes on the class, not the instance: QUARNException.error_code
// and e.error_code both read the code of the most recent raise.
void RaiseQuarnException(int code, const std::string& text, const std::string& note = std::string()) {
    g_quarnException->attr("error_code") = code;
    // Engine texts are bytes; an invalid UTF-8 sequence must not turn the
    // error into a decoding error.
    PyObject* message = PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
    if (note.empty() || message == nullptr) {
        PyErr_SetObject(g_quarnException->ptr(), message);
        Py_XDECREF(message);
        return;
    }
    // A note explains a refusal whose text is a bare code; the text stays.
    PyObject* error = PyObject_CallOneArg(g_quarnException->ptr(), message);
    Py_DECREF(message);
    if (error == nullptr) return;
    PyObject* notes = PyList_New(0);
    PyObject* item = PyUnicode_DecodeUTF8(note.data(), static_cast<Py_ssize_t>(note.size()), "replace");
    if (notes != nullptr && item != nullptr && PyList_Append(notes, item) == 0) {
        PyObject_SetAttrString(error, "__notes__", notes);
    }
    Py_XDECREF(item);
    Py_XDECREF(notes);
    PyErr_Clear();
    PyErr_SetObject(g_quarnException->ptr(), error);
    Py_DECREF(error);
}

void TranslateException(std::exception_ptr p) {
    try {
        if (p) std::rethrow_exception(p);
    } catch (const quarn_exception& e) {
        RaiseQuarnException(e.code, e.message(), e.note);
    } catch (const std::bad_alloc& e) {
        RaiseQuarnException(VEK_OUT_OF_MEMORY, e.what());
    } catch (const std::overflow_error&) {
        // The engine throws overflow_error only when a table's item count
        // does not fit an int: a table that cannot be held at all, so it is
        // reported like exhausted memory, -42.
        RaiseQuarnException(VEK_OUT_OF_MEMORY, std::string("QUARN Error -42. ") + VEK_kTableTooLarge);
    }
    // Anything else goes on to pybind11's own translation.
}

// ---- records -------------------------------------------------------------------

void RegisterAnnealedMapTuning(py::module_& m) {
    py::class_<PyAnnealedMapTuning> cls(m, "AnnealedMapTuning", "Tuning parameters for the annealed MAP algorithm");
    const AnnealedMapTuning d;
    cls.def(py::init([](double speed, double t_min, double t_init, double k_reheat, int k_map, double k_r_factor,
                        int stop_after, int iterations_per_temperature) {
                return PyAnnealedMapTuning(AnnealedMapTuning{speed, t_min, t_init, k_reheat, k_map, k_r_factor,
                                                             stop_after, iterations_per_temperature});
            }),
            py::arg("speed") = d.speed, py::arg("t_min") = d.t_min, py::arg("t_init") = d.t_init,
            py::arg("k_reheat") = d.k_reheat, py::arg("k_map") = d.k_map, py::arg("k_r_factor") = d.k_r_factor,
            py::arg("stop_after") = d.stop_after, py::arg("iterations_per_temperature") = d.iterations_per_temperature);
    cls.def_readwrite("speed", &PyAnnealedMapTuning::speed, "Rate at which the temperature falls");
    cls.def_readwrite("t_min", &PyAnnealedMapTuning::t_min, "Temperature at which annealing stops");
    cls.def_readwrite("t_init", &PyAnnealedMapTuning::t_init, "Initial temperature");
    cls.def_readwrite("k_reheat", &PyAnnealedMapTuning::k_reheat, "Reheating factor");
    cls.def_readwrite("k_map", &PyAnnealedMapTuning::k_map, "Number of best explanations kept");
    cls.def_readwrite("k_r_factor", &PyAnnealedMapTuning::k_r_factor, "Factor applied on reheating");
    cls.def_readwrite("stop_after", &PyAnnealedMapTuning::stop_after,
                      "Iterations without improvement after which the search stops");
    cls.def_readwrite("iterations_per_temperature", &PyAnnealedMapTuning::iterations_per_temperature,
                      "Iterations run at each temperature");
    AddRecordProtocol(cls, {"speed", "t_min", "t_init", "k_reheat", "k_map", "k_r_factor", "stop_after",
                            "iterations_per_temperature"});
}

void RegisterDiscretizationInterval(py::module_& m) {
    py::class_<PyDiscretizationInterval> cls(m, "DiscretizationInterval",
                                             "Information about a discretization interval");
    cls.def(py::init([](const std::string& id, double upper_bound) {
                return PyDiscretizationInterval(DiscretizationInterval{id, upper_bound});
            }),
            py::arg("id") = "", py::arg("upper_bound") = 0.0);
    cls.def_readwrite("id", &PyDiscretizationInterval::id, "Identifier of the outcome the interval stands for");
    cls.def_readwrite("upper_bound", &PyDiscretizationInterval::upper_bound, "Upper bound of the interval");
    AddRecordProtocol(cls, {"id", "upper_bound"});
}

void RegisterDocItemInfo(py::module_& m) {
    py::class_<PyDocItemInfo> cls(m, "DocItemInfo", "Information about a documentation item");
    cls.def(py::init([](const std::string& title, const std::string& path) {
                return PyDocItemInfo(DocItemInfo{title, path});
            }),
            py::arg("title") = "", py::arg("path") = "");
    cls.def_readwrite("title", &PyDocItemInfo::title, "Title of the documentation item");
    cls.def_readwrite("path", &PyDocItemInfo::path, "Path or address of the documentation item");
    AddRecordProtocol(cls, {"title", "path"});
}

void RegisterTemporalInfo(py::module_& m) {
    py::class_<PyTemporalInfo> cls(m, "TemporalInfo", "Temporal configuration information for dynamic networks");
    cls.def(py::init([](int parent_handle, const std::string& parent_id, int order) {
                return PyTemporalInfo(TemporalInfo{parent_handle, parent_id, order});
            }),
            py::arg("parent_handle") = -1, py::arg("parent_id") = "", py::arg("order") = 0);
    cls.def_readwrite("parent_handle", &PyTemporalInfo::parent_handle, "Handle of the temporal parent");
    cls.def_readwrite("parent_id", &PyTemporalInfo::parent_id, "Identifier of the temporal parent");
    cls.def_readwrite("order", &PyTemporalInfo::order, "Temporal order of the arc");
    AddRecordProtocol(cls, {"parent_handle", "parent_id", "order"});
}

void RegisterUserProperty(py::module_& m) {
    py::class_<PyUserProperty> cls(m, "UserProperty", "User-defined property attached to a network or node");
    cls.def(py::init([](const std::string& name, const std::string& value) {
                return PyUserProperty(UserProperty{name, value});
            }),
            py::arg("name") = "", py::arg("value") = "");
    cls.def_readwrite("name", &PyUserProperty::name, "Name of the property");
    cls.def_readwrite("value", &PyUserProperty::value, "Value of the property");
    AddRecordProtocol(cls, {"name", "value"});
}

void RegisterCaseEvidenceInfo(py::module_& m) {
    py::class_<PyCaseEvidenceInfo> cls(m, "CaseEvidenceInfo", "Information about a specific case of evidence");
    cls.def(py::init([](CaseEvidenceType::Value type, int outcome, double value,
                        const std::vector<double>& virtual_evidence, int slice) {
                return PyCaseEvidenceInfo(CaseEvidence{type, outcome, value, virtual_evidence, slice});
            }),
            py::arg("type") = CaseEvidenceType::DISCRETE, py::arg("outcome") = -1, py::arg("value") = 0.0,
            py::arg("virtual_evidence") = std::vector<double>(), py::arg("slice") = -1);
    cls.def_readwrite("type", &PyCaseEvidenceInfo::type, "Kind of evidence: discrete, continuous or virtual");
    cls.def_readwrite("outcome", &PyCaseEvidenceInfo::outcome, "Observed outcome index of discrete evidence");
    cls.def_readwrite("value", &PyCaseEvidenceInfo::value, "Observed value of continuous evidence");
    cls.def_readwrite("virtual_evidence", &PyCaseEvidenceInfo::virtual_evidence,
                      "Likelihoods of the outcomes for virtual evidence");
    cls.def_readwrite("slice", &PyCaseEvidenceInfo::slice, "Time slice of temporal evidence, -1 for none");
    AddRecordProtocol(cls, {"type", "outcome", "value", "virtual_evidence", "slice"});
}

void RegisterEPISParams(py::module_& m) {
    py::class_<PyEPISParams> cls(m, "EPISParams",
                                 "Parameters for EPIS (Evidence Pre-propagation Importance Sampling)");
    const EPISParams d;
    cls.def(py::init([](int propagation_length, int num_state_small, int num_state_medium, int num_state_big,
                        double state_small_epsil, double state_medium_epsil, double state_big_epsil,
                        double state_otherwise) {
                return PyEPISParams(EPISParams{propagation_length, num_state_small, num_state_medium, num_state_big,
                                               state_small_epsil, state_medium_epsil, state_big_epsil,
                                               state_otherwise});
            }),
            py::arg("propagation_length") = d.propagation_length, py::arg("num_state_small") = d.num_state_small,
            py::arg("num_state_medium") = d.num_state_medium, py::arg("num_state_big") = d.num_state_big,
            py::arg("state_small_epsil") = d.state_small_epsil,
            py::arg("state_medium_epsil") = d.state_medium_epsil, py::arg("state_big_epsil") = d.state_big_epsil,
            py::arg("state_otherwise") = d.state_otherwise);
    cls.def_readwrite("propagation_length", &PyEPISParams::propagation_length,
                      "Number of steps for evidence propagation (sampling depth)");
    cls.def_readwrite("num_state_small", &PyEPISParams::num_state_small,
                      "Maximum number of states considered 'small'");
    cls.def_readwrite("num_state_medium", &PyEPISParams::num_state_medium,
                      "Maximum number of states considered 'medium'");
    cls.def_readwrite("num_state_big", &PyEPISParams::num_state_big, "Maximum number of states considered 'big'");
    cls.def_readwrite("state_small_epsil", &PyEPISParams::state_small_epsil,
                      "Epsilon threshold for small state groups");
    cls.def_readwrite("state_medium_epsil", &PyEPISParams::state_medium_epsil,
                      "Epsilon threshold for medium state groups");
    cls.def_readwrite("state_big_epsil", &PyEPISParams::state_big_epsil, "Epsilon threshold for big state groups");
    cls.def_readwrite("state_otherwise", &PyEPISParams::state_otherwise,
                      "Epsilon threshold for all other state groups");
    AddRecordProtocol(cls, {"propagation_length", "num_state_small", "num_state_medium", "num_state_big",
                            "state_small_epsil", "state_medium_epsil", "state_big_epsil", "state_otherwise"});
}

void RegisterLBPParams(py::module_& m) {
    py::class_<PyLBPParams> cls(m, "LBPParams", "Parameters for loopy belief propagation");
    const LBPParams d;
    cls.def(py::init([](int max_iterations, double tolerance, double damping) {
                return PyLBPParams(LBPParams{max_iterations, tolerance, damping});
            }),
            py::arg("max_iterations") = d.max_iterations, py::arg("tolerance") = d.tolerance,
            py::arg("damping") = d.damping);
    cls.def_readwrite("max_iterations", &PyLBPParams::max_iterations,
                      "Largest number of sweeps over the network (each forward and backward)");
    cls.def_readwrite("tolerance", &PyLBPParams::tolerance,
                      "Propagation stops once no message changes by more than this");
    cls.def_readwrite("damping", &PyLBPParams::damping,
                      "Share of a message's previous value kept at each update, from 0 (none) to below 1");
    AddRecordProtocol(cls, {"max_iterations", "tolerance", "damping"});
}

// ---- enumerations ------------------------------------------------------------------

void RegisterEnumerations(py::module_& m) {
    py::enum_<NodeType::Value>(m, "NodeType", "Types of network nodes")
        .value("CPT", NodeType::CPT, "Conditional probability table node")
        .value("TRUTH_TABLE", NodeType::TRUTH_TABLE, "Truth table node")
        .value("DECISION", NodeType::DECISION, "Decision node")
        .value("UTILITY", NodeType::UTILITY, "Utility node")
        .value("MAU", NodeType::MAU, "Multi-attribute utility node")
        .value("NOISY_MAX", NodeType::NOISY_MAX, "Noisy-MAX node")
        .value("EQUATION", NodeType::EQUATION, "Equation-based node")
        .value("DEMORGAN", NodeType::DEMORGAN, "DeMorgan logic node");

    py::enum_<BayesianAlgorithmType::Value>(m, "BayesianAlgorithmType", "Belief updating algorithms")
        .value("LAURITZEN", BayesianAlgorithmType::LAURITZEN, "Lauritzen's exact inference algorithm")
        .value("HENRION", BayesianAlgorithmType::HENRION, "Henrion's algorithm")
        .value("PEARL", BayesianAlgorithmType::PEARL, "Pearl's exact algorithm")
        .value("L_SAMPLING", BayesianAlgorithmType::L_SAMPLING, "Likelihood sampling")
        .value("SELF_IMPORTANCE", BayesianAlgorithmType::SELF_IMPORTANCE, "Self importance sampling")
        .value("HEURISTIC_IMPORTANCE", BayesianAlgorithmType::HEURISTIC_IMPORTANCE, "Heuristic importance sampling")
        .value("BACK_SAMPLING", BayesianAlgorithmType::BACK_SAMPLING, "Backward sampling algorithm")
        .value("AIS_SAMPLING", BayesianAlgorithmType::AIS_SAMPLING, "Adaptive Importance Sampling algorithm")
        .value("EPIS_SAMPLING", BayesianAlgorithmType::EPIS_SAMPLING, "Evidence Pre-propagation Importance Sampling")
        .value("LBP", BayesianAlgorithmType::LBP, "Loopy Belief Propagation algorithm");

    py::enum_<InfluenceDiagramAlgorithmType::Value>(m, "InfluenceDiagramAlgorithmType",
                                                    "Influence diagram solving algorithms")
        .value("POLICY_EVALUATION", InfluenceDiagramAlgorithmType::POLICY_EVALUATION,
               "Influence diagram policy evaluation")
        .value("FIND_BEST_POLICY", InfluenceDiagramAlgorithmType::FIND_BEST_POLICY, "Policy search algorithm");

    py::enum_<DeMorganParentType::Value>(m, "DeMorganParentType", "Roles of the parents of a DeMorgan node")
        .value("INHIBITOR", DeMorganParentType::INHIBITOR, "Inhibitor logic parent")
        .value("REQUIREMENT", DeMorganParentType::REQUIREMENT, "Requirement logic parent")
        .value("CAUSE", DeMorganParentType::CAUSE, "Causal parent")
        .value("BARRIER", DeMorganParentType::BARRIER, "Barrier logic parent");

    py::enum_<NodeTemporalType::Value>(m, "NodeTemporalType", "Temporal roles of nodes in dynamic networks")
        .value("CONTEMPORAL", NodeTemporalType::CONTEMPORAL, "Contemporal node")
        .value("ANCHOR", NodeTemporalType::ANCHOR, "Anchor node")
        .value("TERMINAL", NodeTemporalType::TERMINAL, "Terminal node")
        .value("PLATE", NodeTemporalType::PLATE, "Plate node");

    py::enum_<NodeDiagType::Value>(m, "NodeDiagType", "Diagnostic roles of nodes")
        .value("FAULT", NodeDiagType::FAULT, "Fault node")
        .value("OBSERVATION", NodeDiagType::OBSERVATION, "Observation node")
        .value("AUXILIARY", NodeDiagType::AUXILIARY, "Auxiliary diagnostic node");

    // DEPENDENCE_ONLY_ONE shares the value 20 with DEPENDENCE_AT_LEAST_ONE. It
    // is an alias: the same member object under a second name, entered in
    // the member table (so __members__ and the docstring list it, in table
    // order) right after the member it aliases. A member's name is that of
    // its first entry, DEPENDENCE_AT_LEAST_ONE.
    py::enum_<MultiFaultAlgorithmType::Value> multiFault(m, "MultiFaultAlgorithmType",
                                                         "Multiple-fault diagnosis algorithms");
    multiFault
        .value("INDEPENDENCE_AT_LEAST_ONE", MultiFaultAlgorithmType::INDEPENDENCE_AT_LEAST_ONE,
               "Independence: at least one fault")
        .value("INDEPENDENCE_ONLY_ONE", MultiFaultAlgorithmType::INDEPENDENCE_ONLY_ONE, "Independence: only one fault")
        .value("INDEPENDENCE_ONLY_ALL", MultiFaultAlgorithmType::INDEPENDENCE_ONLY_ALL,
               "Independence: only all faults together")
        .value("DEPENDENCE_AT_LEAST_ONE", MultiFaultAlgorithmType::DEPENDENCE_AT_LEAST_ONE,
               "Dependence: at least one fault");
    {
        py::object member = multiFault.attr("DEPENDENCE_AT_LEAST_ONE");
        py::dict entries = multiFault.attr("__entries");
        entries["DEPENDENCE_ONLY_ONE"] = py::make_tuple(member, "Dependence: only one fault");
        multiFault.attr("DEPENDENCE_ONLY_ONE") = member;
    }
    multiFault
        .value("DEPENDENCE_ONLY_ALL", MultiFaultAlgorithmType::DEPENDENCE_ONLY_ALL,
               "Dependence: only all faults together")
        .value("MARGINAL_1", MultiFaultAlgorithmType::MARGINAL_1, "Marginal model #1")
        .value("MARGINAL_2", MultiFaultAlgorithmType::MARGINAL_2, "Marginal model #2")
        .value("MAX_PROB_CHANGE", MultiFaultAlgorithmType::MAX_PROB_CHANGE, "Maximum probability change")
        .value("L2_NORMALIZED_DISTANCE", MultiFaultAlgorithmType::L2_NORMALIZED_DISTANCE, "L2 normalized distance")
        .value("COSINE_DISTANCE", MultiFaultAlgorithmType::COSINE_DISTANCE, "Cosine distance")
        .value("CITYBLOCK_DISTANCE", MultiFaultAlgorithmType::CITYBLOCK_DISTANCE, "Cityblock (Manhattan) distance")
        .value("AVG_L2_CITY_DISTANCE", MultiFaultAlgorithmType::AVG_L2_CITY_DISTANCE,
               "Average of L2 and Cityblock distances");

    py::enum_<SingleFaultAlgorithmType::Value>(m, "SingleFaultAlgorithmType", "Single-fault diagnosis algorithms")
        .value("NORM_CROSSENTROPY", SingleFaultAlgorithmType::NORM_CROSSENTROPY, "Normalized cross-entropy")
        .value("CROSSENTROPY", SingleFaultAlgorithmType::CROSSENTROPY, "Cross-entropy")
        .value("PROB_CHANGE", SingleFaultAlgorithmType::PROB_CHANGE, "Probability change");

    py::enum_<CaseEvidenceType::Value>(m, "CaseEvidenceType", "Kinds of evidence stored in a case")
        .value("DISCRETE", CaseEvidenceType::DISCRETE, "Discrete evidence")
        .value("CONTINUOUS", CaseEvidenceType::CONTINUOUS, "Continuous evidence")
        .value("VIRTUAL", CaseEvidenceType::VIRTUAL, "Virtual evidence");
}

void RegisterLateEnumerations(py::module_& m) {
    py::enum_<EdgeType::Value>(m, "EdgeType", "Edges of a structure pattern")
        .value("DIRECTED", EdgeType::DIRECTED, "Directed edge")
        .value("UNDIRECTED", EdgeType::UNDIRECTED, "Undirected edge")
        .value("NONE", EdgeType::NONE, "No edge between nodes");

    py::enum_<DiscretizationAlgorithmType::Value>(m, "DiscretizationAlgorithmType",
                                                  "Methods of discretizing continuous data")
        .value("HIERARCHICAL", DiscretizationAlgorithmType::HIERARCHICAL, "Hierarchical discretization")
        .value("UNIFORM_COUNT", DiscretizationAlgorithmType::UNIFORM_COUNT, "Equal-frequency discretization")
        .value("UNIFORM_WIDTH", DiscretizationAlgorithmType::UNIFORM_WIDTH, "Equal-width discretization");
}

}  // namespace

PYBIND11_MODULE(pyquarn, m) {
    m.attr("__doc__") = "PyQUARN: Python wrapper for QUARN, the Bayesian network and influence diagram engine";
    m.attr("__author__") = "The QUARN developers";
    m.attr("__version__") = kLibraryVersion;

    py::module_ learning = m.def_submodule(
        "learning",
        "Provides algorithms for learning Bayesian network structures and parameters from data, including "
        "constraint-based, score-based, and EM-based methods.");

    if (g_quarnException == nullptr) {
        g_quarnException = new py::exception<quarn_exception>(m, "QUARNException", PyExc_Exception);
        g_quarnException->attr("error_code") = 0;
    } else {
        m.attr("QUARNException") = *g_quarnException;
    }
    py::register_exception_translator(&TranslateException);

    RegisterEnumerations(m);

    // Classes in registration order. The structure-learning classes join the
    // learning ones, each at its place once its engine side exists.
    RegisterAnnealedMapResults(m);
    RegisterAnnealedMapTuning(m);
    RegisterMpeResults(m);
    RegisterDiagResults(m);
    RegisterDiscretizationInterval(m);
    RegisterDocItemInfo(m);
    RegisterFaultInfo(m);
    py::class_<PyNetwork> network(m, "Network", "Bayesian network structure and inference engine");
    network.def(py::init<>(), "Creates an empty network");
    RegisterObservationInfo(m);
    RegisterTemporalInfo(m);
    RegisterUnrollResults(m);
    RegisterValueOfInfo(m);
    RegisterDiagNetwork(m);
    RegisterUserProperty(m);
    RegisterSensitivityResults(m);
    RegisterNodeSensitivity(m);
    RegisterCaseEvidenceInfo(m);
    RegisterEPISParams(m);
    RegisterLBPParams(m);
    RegisterDataSet(learning);
    RegisterBayesianSearch(learning);
    RegisterBkKnowledge(learning);
    RegisterDataMatch(learning);
    RegisterEM(learning);
    RegisterGreedyThickThinning(learning);
    RegisterNaiveBayes(learning);
    RegisterPattern(learning);
    RegisterPC(learning);
    RegisterTAN(learning);
    RegisterValidator(learning);
    RegisterEMHelper(learning);

    RegisterLateEnumerations(m);

    BindFileIO(network);
    BindFilesAndIdentity(network);
    BindNodesAndArcs(network);
    BindOutcomes(network);
    BindDefinitions(network);
    BindEquations(network);
    BindCanonical(network);
    BindEvidence(network);
    BindBeliefs(network);
    BindInference(network);
    BindSubmodels(network);
    BindPresentation(network);
    BindUserProperties(network);
    BindDiagnostics(network);
    BindDynamic(network);
    BindCases(network);
    BindAnalysis(network);
    BindNumpy(network);
    BindPythonic(network, learning);
    BindDrawing(network);
    BindDataSetSampling(learning);
    BindDistributed(network);
}
