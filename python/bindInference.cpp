// Network methods of the inference engines: the probability of evidence
// from the join tree, and the settings of loopy belief propagation.
#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// Updates the beliefs, as update_beliefs does, and returns the probability
// of the evidence that the update used: hard and propagated evidence, with
// virtual evidence weighing in as likelihoods and controlled values as
// interventions. The join-tree update computes it on the way; otherwise the
// engine runs one collect pass of its own.
double WrpProbEvidence(VEK_network* net) {
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    int res = net->UpdateBeliefs();
    if (res != 0) ThrowQuarnExceptionWithLog(res, "Network.UpdateBeliefs", logger);
    double p = 0.0;
    res = net->ProbEvidence(p);
    if (res != 0) ThrowQuarnExceptionWithLog(res, "Network.ProbEvidence", logger);
    return p;
}

void WrpSetLBPParams(VEK_network* net, const LBPParams& params) {
    VEK_network& n = Deref(net);
    const int res = n.SetLBPParams(LBPParamsToEngine(params, n.GetLBPParams()));
    if (res != 0) {
        ThrowQuarnException(res, "Network.SetLBPParams",
                            "Invalid loopy propagation parameters: max_iterations must be at least 1, tolerance at "
                            "least 0 and damping at least 0 and below 1");
    }
}

}  // namespace
}  // namespace Wrp

void BindInference(PyNetworkClass& cls) {
    // Set as the attribute rather than added as an overload, so this is the
    // method Python finds whatever was registered under the name before.
    cls.attr("prob_evidence") = py::cpp_function([](PyNetwork& self) { return Wrp::WrpProbEvidence(&self); },
                                                 py::name("prob_evidence"), py::is_method(cls),
                                                 "Returns probability of evidence");
    cls.def(
        "set_lbp_params", [](PyNetwork& self, const PyLBPParams& params) { Wrp::WrpSetLBPParams(&self, params); },
        py::arg("params"), "Sets loopy belief propagation parameters");
    cls.def("get_lbp_params",
            [](const PyNetwork& self) { return PyLBPParams(Wrp::LBPParamsFromEngine(Wrp::Deref(&self).GetLBPParams())); },
            "Returns the current loopy belief propagation parameters");
}
