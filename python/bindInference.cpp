// Network methods served by the exact inference engine: the probability of
// evidence from the join tree.
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

}  // namespace
}  // namespace Wrp

void BindInference(PyNetworkClass& cls) {
    // Set as the attribute rather than added as an overload, so this is the
    // method Python finds whatever was registered under the name before.
    cls.attr("prob_evidence") = py::cpp_function([](PyNetwork& self) { return Wrp::WrpProbEvidence(&self); },
                                                 py::name("prob_evidence"), py::is_method(cls),
                                                 "Returns probability of evidence");
}
