#include "xml/xmlNetworkSaver.h"


#include <charconv>
#include <cstring>
#include <memory>
#include <new>

#include "dynamic/dynamicNet.h"
#include "equations/equation.h"
#include "network/cast.h"
#include "network/cpt.h"
#include "network/decision.h"
#include "network/demorgan.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"
#include "network/truthTable.h"
#include "network/utility.h"
#include "xml/xmlTovra.h"
#include "xml/xmlWriter.h"
#include "xml/xmlWriterOutput.h"

namespace {

std::string DoubleText(double v) {
    char text[64];
    auto r = std::to_chars(text, text + sizeof text, v, std::chars_format::general, 16);
    return std::string(text, static_cast<size_t>(r.ptr - text));
}

// DeMorgan and CAST nodes have two fixed outcomes; their states are written
// only when they carry more than the default ids.
bool QualNeedsStates(const VEK_discDef& def) {
    if (def.HasIntervals() || def.HasPointValues() || def.GetDefaultOutcome() >= 0) return true;
    const VEK_idArray& ids = *def.GetOutcomeIds();
    for (int k = 0; k < ids.GetSize(); ++k) {
        std::string expected = def.GetOutcomePrefix() + std::to_string(k);
        if (expected != ids[k] || *def.GetOutcomeLabel(k) || def.IsFaultOutcome(k)) return true;
    }
    return false;
}

}  // namespace

void XmlNodeOrder(const VEK_network& net, std::vector<int>& order) {
    order.clear();
    const int slots = net.GetSlotCount();
    std::vector<char> state(static_cast<size_t>(slots), 0);  // 1: on the stack, 2: placed
    std::vector<std::pair<int, int>> stack;                    // node, next parent to visit
    for (int h = 0; h < slots; ++h) {
        if (!net.IsValidNode(h) || state[h]) continue;
        state[h] = 1;
        stack.push_back({h, 0});
        while (!stack.empty()) {
            auto& [x, next] = stack.back();
            const VEK_intArray& parents = net.GetNode(x)->Parents();
            if (next < parents.GetSize()) {
                int p = parents[next++];
                if (net.IsValidNode(p) && state[p] == 0) {
                    state[p] = 1;
                    stack.push_back({p, 0});
                }
                continue;
            }
            state[x] = 2;
            order.push_back(x);
            stack.pop_back();
        }
    }
}

XmlNetworkSaver::XmlNetworkSaver(VEK_network& net, XmlWriter& writer, IXmlWriterExtension* extension,
                                 const XmlTovraSaver* builtIn)
    : net_(net), w_(writer), extension_(extension), builtIn_(builtIn) {}

int XmlNetworkSaver::DoSave() {
    XmlNodeOrder(net_, order_);
    status_ = VEK_OKAY;
    if (const char* top = extension_ ? extension_->GetTopComment() : nullptr) w_.WriteComment(top);

    w_.PushAttribute("version", "1.0");
    w_.PushAttribute("id", net_.Header().GetId());
    w_.PushAttribute("numsamples", net_.GetNumberOfSamples());
    w_.PushAttribute("discsamples", net_.GetNumberOfDiscretizationSamples());
    if (net_.GetRandSeed() != 0) w_.PushAttribute("randseed", net_.GetRandSeed());
    if (!net_.IsZeroAvoidanceEnabled()) w_.PushAttribute("discavoidzero", false);
    if (net_.IsOutlierRejectionEnabled()) w_.PushAttribute("rejectoutliers", true);
    if (net_.IsNoisyDecompEnabled() || net_.GetNoisyDecompLimit() != 4) {
        w_.PushAttribute("enablenoisydecomp", net_.IsNoisyDecompEnabled());
        w_.PushAttribute("noisydecomplimit", net_.GetNoisyDecompLimit());
    }
    w_.OpenElement("quarn");

    if (net_.UserProperties().GetNumberOfProperties() > 0) {
        IXmlWriter::ScopedElement properties(&w_, "properties");
        for (const auto& [name, value] : net_.UserProperties().Items()) {
            w_.PushAttribute("id", name.c_str());
            w_.WriteElement("property", value.c_str(), true);
        }
    }
    const VEK_EPISParams& epis = net_.GetEPISParams();
    if (!epis.Equals(VEK_EPISParams{})) {
        IXmlWriter::ScopedElement algparams(&w_, "algparams");
        w_.PushAttribute("proplen", epis.propagationLength);
        w_.PushAttribute("numstates1", epis.numStateSmall);
        w_.PushAttribute("numstates2", epis.numStateMedium);
        w_.PushAttribute("numstates3", epis.numStateBig);
        w_.PushAttribute("eps1", epis.stateSmallEpsil);
        w_.PushAttribute("eps2", epis.stateMediumEpsil);
        w_.PushAttribute("eps3", epis.stateBigEpsil);
        w_.PushAttribute("eps4", epis.stateOtherwise);
        w_.WriteElement("epis", nullptr);
    }
    if (!net_.ExtFunctions().empty()) {
        IXmlWriter::ScopedElement functions(&w_, "functions");
        for (const std::string& f : net_.ExtFunctions()) w_.WriteElement("function", f.c_str(), true);
    }
    WriteNodes();
    if (status_ < 0) return status_;

    bool temporal = false;
    for (int h : order_) temporal |= net_.GetNode(h)->GetTemporalType() != 0;
    if (net_.GetNumberOfSlices() > 0 && temporal) {
        w_.PushAttribute("numslices", net_.GetNumberOfSlices());
        const VEK_dynamicNet* dyn = net_.GetDynamic();
        if (!dyn || dyn->GetMaxTemporalOrder() == 0) {
            w_.WriteElement("dynamic", nullptr);
        } else {
            WriteTemporalDefinitions(*dyn);
        }
    }
    if (extension_ && (!builtIn_ || builtIn_->HasContent())) {
        IXmlWriter::ScopedElement extensions(&w_, "extensions");
        extension_->Write(&w_);
    }
    WriteCosts();
    WriteCases();
    w_.CloseElement("quarn");
    return status_;
}

void XmlNetworkSaver::WriteNodes() {
    IXmlWriter::ScopedElement nodes(&w_, "nodes");
    for (int h : order_) {
        node_ = h;
        Dispatch(net_.GetDef(h));
        if (status_ < 0) return;
    }
}

void XmlNetworkSaver::Visit(VEK_nodeDef* def) {
    std::string message = "The XML network format cannot hold node '";
    message += net_.GetNodeId(node_);
    message += "' of type ";
    message += def ? def->GetTypeName() : "unknown";
    message += " yet";
    status_ = net_.Logger().LogError(VEK_WRONG_NODE_TYPE, message.c_str());
}

void XmlNetworkSaver::StartNode(const char* element, VEK_nodeDef* def, bool states, const NodeAttributes& extra) {
    const VEK_node* node = net_.GetNode(node_);
    w_.PushAttribute("id", node->GetId());
    if (node->IsTarget()) w_.PushAttribute("target", true);
    const int diag = node->GetDiagType();
    if (diag == VEK_DIAG_FAULT) w_.PushAttribute("diagtype", "target");
    if (diag == VEK_DIAG_OBSERVATION) w_.PushAttribute("diagtype", "observation");
    switch (node->GetTemporalType()) {
        case VEK_TEMPORAL_ANCHOR: w_.PushAttribute("dynamic", "anchor"); break;
        case VEK_TEMPORAL_TERMINAL: w_.PushAttribute("dynamic", "terminal"); break;
        case VEK_TEMPORAL_PLATE: w_.PushAttribute("dynamic", "plate"); break;
        default: break;
    }
    if (diag == VEK_DIAG_OBSERVATION && node->IsRanked()) w_.PushAttribute("ranked", true);
    if (diag == VEK_DIAG_OBSERVATION && node->IsMandatory()) w_.PushAttribute("mandatory", true);
    if (extra.function) w_.PushAttribute("function", extra.function);
    if (extra.hasDstate) w_.PushAttribute("dstate", extra.dstate);
    if (extra.synchronized) w_.PushAttribute("synchronized", true);
    w_.OpenElement(element);
    if (states) WriteStates(*static_cast<VEK_discDef*>(def));
    WriteParents();
}

void XmlNetworkSaver::StartNode(const char* element, VEK_nodeDef* def, bool states) {
    StartNode(element, def, states, NodeAttributes());
}

void XmlNetworkSaver::WriteStates(const VEK_discDef& def) {
    const VEK_idArray& ids = *def.GetOutcomeIds();
    const int defaultOutcome = def.GetDefaultOutcome();
    // States of diagnostic targets always carry a label: the outcome's own,
    // or its id when it has none.
    const bool target = net_.GetNode(node_)->GetDiagType() == VEK_DIAG_FAULT;
    for (int k = 0; k < ids.GetSize(); ++k) {
        w_.PushAttribute("id", ids[k]);
        if (*def.GetOutcomeLabel(k)) {
            w_.PushAttribute("label", def.GetOutcomeLabel(k));
        } else if (target) {
            w_.PushAttribute("label", ids[k]);
        }
        if (k == defaultOutcome) w_.PushAttribute("default", true);
        if (def.IsFaultOutcome(k)) w_.PushAttribute("fault", true);
        w_.WriteElement("state", nullptr);
    }
    if (def.HasIntervals()) {
        const auto& v = def.GetIntervals();
        w_.WriteDoubleArray("intervals", v.data(), static_cast<int>(v.size()));
    } else if (def.HasPointValues()) {
        const auto& v = def.GetPointValues();
        w_.WriteDoubleArray("pointvalues", v.data(), static_cast<int>(v.size()));
    }
}

void XmlNetworkSaver::WriteParents() {
    const VEK_intArray& parents = net_.GetNode(node_)->Parents();
    if (parents.GetSize() == 0) return;
    strings_.clear();
    for (int p : parents) strings_.push_back(net_.GetNodeId(p));
    w_.WriteStringArray("parents", strings_.data(), static_cast<int>(strings_.size()));
}

void XmlNetworkSaver::EndNode(const char* element) {
    for (const auto& [name, value] : net_.GetNode(node_)->Info().userProperties.Items()) {
        w_.PushAttribute("id", name.c_str());
        w_.WriteElement("property", value.c_str(), true);
    }
    w_.CloseElement(element);
}

void XmlNetworkSaver::Visit(VEK_cpt* def) {
    StartNode("cpt", def, true);
    const VEK_Dmatrix& m = def->GetParameters();
    w_.WriteDoubleArray("probabilities", m.Items(), m.GetSize());
    EndNode("cpt");
}

void XmlNetworkSaver::Visit(VEK_truthTable* def) {
    StartNode("deterministic", def, true);
    const VEK_Dmatrix& m = def->GetParameters();
    const VEK_idArray& ids = *def->GetOutcomeIds();
    const int n = ids.GetSize();
    const int columns = n > 0 ? m.GetSize() / n : 0;
    strings_.resize(static_cast<size_t>(columns));
    const double* items = m.Items();
    for (int c = 0; c < columns; ++c) {
        int state = 0;
        for (int i = 0; i < n; ++i) {
            if (items[static_cast<size_t>(c) * n + i] == 1.0) {
                state = i;
                break;
            }
        }
        strings_[c] = ids[state];
    }
    w_.WriteStringArray("resultingstates", strings_.data(), columns);
    EndNode("deterministic");
}

void XmlNetworkSaver::Visit(VEK_decision* def) {
    StartNode("decision", def, true);
    EndNode("decision");
}

void XmlNetworkSaver::Visit(VEK_utility* def) {
    StartNode("utility", def, false);
    const VEK_Dmatrix& m = def->GetParameters();
    w_.WriteDoubleArray("utilities", m.Items(), m.GetSize());
    EndNode("utility");
}

void XmlNetworkSaver::Visit(VEK_mau* def) {
    const VEK_Dmatrix& m = def->GetWeights();
    const auto& expressions = def->GetExpressions();
    if (expressions.empty()) {
        StartNode("mau", def, false);
        w_.WriteDoubleArray("weights", m.Items(), m.GetSize());
        EndNode("mau");
        return;
    }
    StartNode("maux", def, false);
    for (const std::string& e : expressions) w_.WriteElement("expression", e.c_str(), true);
    bool defaultWeights = true;
    for (int i = 0; i < m.GetSize(); ++i) defaultWeights &= m[i] == 1.0;
    if (!defaultWeights) w_.WriteDoubleArray("weights", m.Items(), m.GetSize());
    EndNode("maux");
}

void XmlNetworkSaver::Visit(VEK_equation* def) {
    StartNode("equation", def, false);
    w_.PushAttribute("lower", def->GetLower());
    w_.PushAttribute("upper", def->GetUpper());
    w_.PushAttribute("default", def->GetDefaultValue());
    if (def->HasNominal()) {
        w_.PushAttribute("lowernominal", def->GetLowerNominal());
        w_.PushAttribute("uppernominal", def->GetUpperNominal());
    }
    w_.WriteElement("definition", def->GetEquation().c_str(), true);
    if (!def->GetDiscretization().empty()) {
        IXmlWriter::ScopedElement discretization(&w_, "discretization");
        for (const VEK_discInterval& i : def->GetDiscretization()) {
            if (!i.label.empty()) w_.PushAttribute("label", i.label.c_str());
            w_.PushAttribute("upper", i.upper);
            w_.WriteElement("interval", nullptr);
        }
    }
    EndNode("equation");
}

void XmlNetworkSaver::Visit(VEK_noisyMAX* def) {
    NodeAttributes extra;
    extra.synchronized = def->IsSynchronized();
    StartNode("noisymax", def, true, extra);
    VEK_intArray positions;
    for (int i = 0; i < def->GetNumberOfParents(); ++i) {
        (void)def->GetStrengthPositions(i, positions);  // the parent index is in range
        w_.WriteIntArray("strengths", positions.Items(), positions.GetSize());
    }
    const VEK_Dmatrix& m = def->GetParameters();
    w_.WriteDoubleArray("parameters", m.Items(), m.GetSize());
    EndNode("noisymax");
}

void XmlNetworkSaver::Visit(VEK_noisyAdder* def) {
    NodeAttributes extra;
    if (def->GetFunction() == VEK_noisyAdder::FUNCTION_SINGLE_FAULT) extra.function = "singlefault";
    extra.hasDstate = true;
    extra.dstate = def->GetDistinguishedState();
    StartNode("noisyadder", def, true, extra);
    if (def->GetNumberOfParents() > 0) {
        const VEK_intArray& states = def->GetParentDistinguishedStates();
        w_.WriteIntArray("dstates", states.Items(), states.GetSize());
        const VEK_doubleArray& weights = def->GetParentWeights();
        w_.WriteDoubleArray("weights", weights.Items(), weights.GetSize());
    }
    const VEK_Dmatrix& m = def->GetParameters();
    w_.WriteDoubleArray("parameters", m.Items(), m.GetSize());
    EndNode("noisyadder");
}

void XmlNetworkSaver::Visit(VEK_cast* def) {
    StartNode("cast", def, QualNeedsStates(*def));
    const int parents = def->GetNumberOfParents();
    if (parents > 0) {
        std::vector<double> weights(static_cast<size_t>(parents));
        for (int i = 0; i < parents; ++i) (void)def->GetWeight(i, true, weights[i]);  // the parent index is in range
        w_.WriteDoubleArray("pweights", weights.data(), parents);
        for (int i = 0; i < parents; ++i) (void)def->GetWeight(i, false, weights[i]);  // the parent index is in range
        w_.WriteDoubleArray("nweights", weights.data(), parents);
    }
    w_.WriteElement("baseline", DoubleText(def->GetBaseline()).c_str());
    EndNode("cast");
}

void XmlNetworkSaver::Visit(VEK_demorgan* def) {
    StartNode("demorgan", def, QualNeedsStates(*def));
    const int parents = def->GetNumberOfParents();
    if (parents > 0) {
        strings_.clear();
        std::vector<double> weights(static_cast<size_t>(parents));
        for (int i = 0; i < parents; ++i) {
            strings_.push_back(VEK_demorgan::ParentTypeName(def->GetParentType(i)));
            (void)def->GetParentWeight(i, weights[i]);  // the parent index is in range
        }
        w_.WriteStringArray("types", strings_.data(), parents);
        w_.WriteDoubleArray("weights", weights.data(), parents);
    }
    w_.WriteElement("priorbelief", DoubleText(def->GetPriorBelief()).c_str());
    EndNode("demorgan");
}

// One element per plate node and temporal order: that order's temporal
// parents and table, for noisy-MAX nodes their strengths and the order's CI
// weights, for DeMorgan and noisy-adder nodes the order's parameters in the
// static element's form.
void XmlNetworkSaver::WriteTemporalDefinitions(const VEK_dynamicNet& dyn) {
    IXmlWriter::ScopedElement dynamic(&w_, "dynamic");
    std::vector<int> orders;
    std::vector<VEK_temporalArc> arcs;
    for (int h : order_) {
        if (net_.GetNode(h)->GetTemporalType() != VEK_TEMPORAL_PLATE) continue;
        dyn.GetTemporalOrders(h, orders);
        const bool equation = net_.GetDef(h)->GetType() == VEK_EQUATION;
        const bool noisy = net_.GetDef(h)->GetType() == VEK_NOISY_MAX;
        for (int k : orders) {
            const VEK_nodeDef* canonical = dyn.GetTemporalCanonical(h, k);
            const auto* demorgan = canonical && canonical->GetType() == VEK_DEMORGAN
                                       ? static_cast<const VEK_demorgan*>(canonical)
                                       : nullptr;
            const auto* adder = canonical && !demorgan ? static_cast<const VEK_noisyAdder*>(canonical) : nullptr;
            w_.PushAttribute("id", net_.GetNodeId(h));
            w_.PushAttribute("order", k);
            if (adder && adder->GetFunction() == VEK_noisyAdder::FUNCTION_SINGLE_FAULT) {
                w_.PushAttribute("function", "singlefault");
            }
            if (adder) w_.PushAttribute("dstate", adder->GetDistinguishedState());
            IXmlWriter::ScopedElement temporal(&w_, equation   ? "equation"
                                                    : noisy    ? "noisymax"
                                                    : demorgan ? "demorgan"
                                                    : adder    ? "noisyadder"
                                                               : "cpt");
            dyn.GetTemporalParents(h, k, arcs);
            strings_.clear();
            for (const VEK_temporalArc& a : arcs) strings_.push_back(net_.GetNodeId(a.node));
            w_.WriteStringArray("parents", strings_.data(), static_cast<int>(strings_.size()));
            if (demorgan) {
                const int parents = demorgan->GetNumberOfParents();
                strings_.clear();
                std::vector<double> weights(static_cast<size_t>(parents));
                for (int i = 0; i < parents; ++i) {
                    strings_.push_back(VEK_demorgan::ParentTypeName(demorgan->GetParentType(i)));
                    (void)demorgan->GetParentWeight(i, weights[i]);  // i is a parent: it cannot fail
                }
                w_.WriteStringArray("types", strings_.data(), parents);
                w_.WriteDoubleArray("weights", weights.data(), parents);
                w_.WriteElement("priorbelief", DoubleText(demorgan->GetPriorBelief()).c_str());
                continue;
            }
            if (adder) {
                const VEK_intArray& states = adder->GetParentDistinguishedStates();
                w_.WriteIntArray("dstates", states.Items(), states.GetSize());
                const VEK_doubleArray& weights = adder->GetParentWeights();
                w_.WriteDoubleArray("weights", weights.Items(), weights.GetSize());
                const VEK_Dmatrix& m = adder->GetParameters();
                w_.WriteDoubleArray("parameters", m.Items(), m.GetSize());
                continue;
            }
            if (equation) {
                const std::string* text = dyn.GetTemporalEquation(h, k);
                w_.PushAttribute("order", k);
                w_.WriteElement("definition", text ? text->c_str() : "", true);
                continue;
            }
            if (!noisy) {
                const VEK_Dmatrix* m = dyn.GetTemporalDefinition(h, k);
                w_.WriteDoubleArray("probabilities", m->Items(), m->GetSize());
                continue;
            }
            std::vector<VEK_intArray> strengths;
            (void)dyn.GetNoisyTemporalStrengths(h, k, strengths);  // none (empty) when the order has no arcs: nothing to write
            for (const VEK_intArray& s : strengths) {
                VEK_intArray positions(s.GetSize());
                for (int p = 0; p < s.GetSize(); ++p) positions[s[p]] = p;
                w_.WriteIntArray("strengths", positions.Items(), positions.GetSize());
            }
            const VEK_Dmatrix* m = dyn.GetTemporalParameters(h, k);
            w_.WriteDoubleArray("parameters", m->Items(), m->GetSize());
        }
    }
}

void XmlNetworkSaver::WriteCosts() {
    bool any = false;
    auto hasCosts = [&](const VEK_node* n) {
        if (n->CostParents().GetSize() > 0) return true;
        const VEK_Dmatrix& c = n->GetCost();
        for (int i = 0; i < c.GetSize(); ++i) {
            if (c[i] != VEK_NOT_AVAILABLE_VALUE) return true;
        }
        return false;
    };
    for (int h : order_) any |= hasCosts(net_.GetNode(h));
    if (!any) return;
    IXmlWriter::ScopedElement costs(&w_, "observationcost");
    for (int h : order_) {
        const VEK_node* n = net_.GetNode(h);
        if (!hasCosts(n)) continue;
        w_.PushAttribute("id", n->GetId());
        IXmlWriter::ScopedElement node(&w_, "node");
        if (n->CostParents().GetSize() > 0) {
            strings_.clear();
            for (int p : n->CostParents()) strings_.push_back(net_.GetNodeId(p));
            w_.WriteStringArray("parents", strings_.data(), static_cast<int>(strings_.size()));
        }
        const VEK_Dmatrix& c = n->GetCost();
        w_.WriteDoubleArray("cost", c.Items(), c.GetSize(), "n/a", VEK_NOT_AVAILABLE_VALUE);
    }
}

void XmlNetworkSaver::WriteCases() {
    const VEK_caseManager& cases = net_.Cases();
    if (cases.GetCount() == 0) return;
    IXmlWriter::ScopedElement all(&w_, "cases");
    for (int i = 0; i < cases.GetCount(); ++i) {
        const VEK_case& c = *cases.Get(i);
        w_.PushAttribute("name", c.name.c_str());
        if (!c.category.empty()) w_.PushAttribute("category", c.category.c_str());
        if (c.created != 0) w_.PushAttribute("created", std::to_string(c.created).c_str());
        if (c.lastModified != 0) w_.PushAttribute("modified", std::to_string(c.lastModified).c_str());
        IXmlWriter::ScopedElement one(&w_, "case");
        if (!c.description.empty()) w_.WriteElement("description", c.description.c_str(), true);
        for (const VEK_caseEvidence& e : c.evidence) {
            if (!net_.IsValidNode(e.node)) continue;
            w_.PushAttribute("node", net_.GetNodeId(e.node));
            if (e.type == VEK_CASE_VIRTUAL) {
                if (e.slice >= 0) w_.PushAttribute("slice", e.slice);
                w_.WriteDoubleArray("virtevidence", e.virtualEvidence.data(),
                                    static_cast<int>(e.virtualEvidence.size()));
                continue;
            }
            if (e.outcome >= 0) {
                const VEK_idArray* ids = net_.GetDef(e.node)->GetOutcomeIds();
                if (ids && e.outcome < ids->GetSize()) {
                    w_.PushAttribute("state", (*ids)[e.outcome]);
                } else {
                    w_.PushAttribute("state", e.outcome);
                }
            }
            if (e.type == VEK_CASE_CONTINUOUS) w_.PushAttribute("value", e.value);
            if (e.slice >= 0) w_.PushAttribute("slice", e.slice);
            w_.WriteElement("evidence", nullptr);
        }
        for (int t : c.targets) {
            if (!net_.IsValidNode(t)) continue;
            w_.PushAttribute("node", net_.GetNodeId(t));
            w_.WriteElement("target", nullptr);
        }
    }
}

int XmlSave(const char* path, std::string* out, VEK_network* net, IXmlWriterExtension* extension) {
    if (!net) return VEK_OUT_OF_RANGE;
    if (!path && !out) return net->Logger().LogError(VEK_OUT_OF_RANGE, "Give a file name or a string to write");
    try {
        XmlWriterFileOutput file;
        std::unique_ptr<XmlWriterStringOutput> text;
        IXmlWriterOutput* output = nullptr;
        if (path) {
            if (!file.Open(path)) {
                std::string message = "Can't open file for writing: ";
                message += path;
                return net->Logger().LogError(VEK_FILE_WRITE_ERROR, message.c_str());
            }
            output = &file;
        } else {
            text = std::make_unique<XmlWriterStringOutput>(*out);
            output = text.get();
        }
        XmlWriter writer(output);
        writer.Start(true);
        XmlTovraSaver builtIn(*net);
        XmlNetworkSaver saver(*net, writer, extension ? extension : &builtIn, extension ? nullptr : &builtIn);
        int res = saver.DoSave();
        bool ok = !writer.HasOutputFailed();
        if (path) ok = file.Close() && ok;
        if (res < 0) return res;
        if (writer.RanOutOfMemory()) throw std::bad_alloc();
        if (!ok) {
            std::string message = "Error writing ";
            message += path ? path : "the network";
            return net->Logger().LogError(VEK_FILE_WRITE_ERROR, message.c_str());
        }
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return net->Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the network");
    }
}
