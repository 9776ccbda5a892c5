// Test helpers for network files: a text picture of everything a network
// file keeps (nodes by id, so handles may differ), a generator of random
// networks that use every feature the XML format holds, and the shared
// reference networks.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

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

namespace testnet {

inline std::string SharedDir() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return env && *env ? env : QUARN_SHARED_DIR;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Doubles as the file writes them, so values that passed through a file
// compare equal to the originals.
inline std::string D(double v) {
    char text[64];
    auto r = std::to_chars(text, text + sizeof text, v, std::chars_format::general, 16);
    return std::string(text, r.ptr);
}

inline void Put(std::ostream& o, const VEK_Dmatrix& m) {
    o << "[";
    for (int d = 0; d < m.GetNumberOfDimensions(); ++d) o << m.GetSizeOfDimension(d) << ",";
    o << "]";
    for (int i = 0; i < m.GetSize(); ++i) o << " " << D(m[i]);
}

inline void PutScreen(std::ostream& o, const VEK_screenInfo& s) {
    o << s.position.centerX << "," << s.position.centerY << "," << s.position.width << "," << s.position.height
      << " c" << s.color << " f" << s.fontColor << " b" << s.borderColor << "/" << s.borderThickness << " font "
      << s.font.name << "/" << s.font.size << "/" << s.font.bold << s.font.italic;
}

inline std::string SubmodelId(const VEK_network& net, int handle) {
    const VEK_submodel* s = net.Submodels().Get(handle);
    return s ? s->header.GetId() : "?";
}

inline std::string Describe(const VEK_network& net) {
    std::ostringstream o;
    const VEK_header& h = net.Header();
    o << "net " << h.GetId() << "|" << h.GetName() << "|" << h.HasComment() << h.GetComment() << "\n";
    o << "settings " << net.GetNumberOfSamples() << " " << net.GetNumberOfDiscretizationSamples() << " "
      << net.GetRandSeed() << " " << net.IsZeroAvoidanceEnabled() << net.IsOutlierRejectionEnabled()
      << net.IsNoisyDecompEnabled() << " " << net.GetNoisyDecompLimit() << " slices " << net.GetNumberOfSlices()
      << "\n";
    const VEK_EPISParams& e = net.GetEPISParams();
    o << "epis " << e.propagationLength << " " << e.numStateSmall << " " << e.numStateMedium << " "
      << e.numStateBig << " " << D(e.stateSmallEpsil) << " " << D(e.stateMediumEpsil) << " " << D(e.stateBigEpsil)
      << " " << D(e.stateOtherwise) << "\n";
    for (const auto& [k, v] : net.UserProperties().Items()) o << "prop " << k << "=" << v << "\n";
    for (const auto& [t, p] : net.Documentation().Items()) o << "doc " << t << "=" << p << "\n";
    for (const auto& f : net.ExtFunctions()) o << "function " << f << "\n";
    const VEK_dynamicNet* dyn = net.GetDynamic();
    if (dyn) {
        const VEK_rectangle& r = dyn->PlatePosition();
        o << "plate " << r.centerX << "," << r.centerY << "," << r.width << "," << r.height << " widths "
          << dyn->GetLeftWidth() << "," << dyn->GetRightWidth() << "\n";
    }

    std::map<std::string, std::string> nodes;
    for (int n = net.GetFirstNode(); n >= 0; n = net.GetNextNode(n)) {
        std::ostringstream x;
        const VEK_node* node = net.GetNode(n);
        const VEK_nodeDef* def = node->Definition();
        x << "type " << def->GetType() << " name " << node->Header().GetName() << " comment "
          << node->Header().HasComment() << node->Header().GetComment() << "\n";
        x << " parents";
        for (int p : node->Parents()) x << " " << net.GetNodeId(p);
        x << "\n target " << node->IsTarget() << " diag " << node->GetDiagType() << node->IsRanked()
          << node->IsMandatory() << " question " << node->GetQuestion() << " temporal " << node->GetTemporalType()
          << " submodel " << SubmodelId(net, node->GetSubmodel()) << "\n screen ";
        PutScreen(x, node->Info().screen);
        const VEK_barChart& bc = node->Info().barChart;
        x << " chart " << bc.active << " " << bc.width << "x" << bc.height << "\n";
        for (const auto& [k, v] : node->Info().userProperties.Items()) x << " prop " << k << "=" << v << "\n";
        for (const auto& [t, p] : node->Info().documentation.Items()) x << " doc " << t << "=" << p << "\n";
        if (const auto* disc = dynamic_cast<const VEK_discDef*>(def)) {
            x << " default " << disc->GetDefaultOutcome() << "\n";
            for (int k = 0; k < disc->GetNumberOfOutcomes(); ++k) {
                std::vector<std::string> titles, paths;
                disc->GetOutcomeDocumentation(k, titles, paths);
                x << " outcome " << (*disc->GetOutcomeIds())[k] << "|" << disc->GetOutcomeLabel(k) << "|"
                  << disc->IsFaultOutcome(k) << "|" << disc->GetOutcomeFix(k) << "|" << disc->GetOutcomeComment(k);
                for (size_t i = 0; i < titles.size(); ++i) x << "|" << titles[i] << "=" << paths[i];
                x << "\n";
            }
            x << " intervals";
            for (double v : disc->GetIntervals()) x << " " << D(v);
            x << " points";
            for (double v : disc->GetPointValues()) x << " " << D(v);
            x << "\n";
        }
        x << " parameters ";
        Put(x, def->GetParameters());
        x << "\n";
        if (const auto* nm = dynamic_cast<const VEK_noisyMAX*>(def)) {
            x << " synchronized " << nm->IsSynchronized() << " strengths";
            for (int i = 0; i < nm->GetNumberOfParents(); ++i) {
                for (int s : *nm->GetParentOutcomeStrengths(i)) x << " " << s;
                x << ";";
            }
            x << "\n";
        }
        if (const auto* na = dynamic_cast<const VEK_noisyAdder*>(def)) {
            x << " function " << na->GetFunction() << " dstate " << na->GetDistinguishedState() << " dstates";
            for (int s : na->GetParentDistinguishedStates()) x << " " << s;
            x << " weights";
            for (double w : na->GetParentWeights()) x << " " << D(w);
            x << "\n";
        }
        if (const auto* dm = dynamic_cast<const VEK_demorgan*>(def)) {
            x << " types";
            for (int t : dm->GetParentTypes()) x << " " << t;
            x << "\n";
        }
        if (const auto* mau = dynamic_cast<const VEK_mau*>(def)) {
            for (const auto& ex : mau->GetExpressions()) x << " expression " << ex << "\n";
        }
        if (const auto* eq = dynamic_cast<const VEK_equation*>(def)) {
            x << " equation " << eq->GetEquation() << " bounds " << D(eq->GetLower()) << " " << D(eq->GetUpper())
              << " default " << D(eq->GetDefaultValue()) << " nominal " << eq->HasNominal() << " "
              << D(eq->GetLowerNominal()) << " " << D(eq->GetUpperNominal()) << " intervals";
            for (const VEK_discInterval& i : eq->GetDiscretization()) x << " " << i.label << "<" << D(i.upper);
            x << "\n";
        }
        std::vector<int> orders;
        if (dyn) dyn->GetTemporalOrders(n, orders);
        for (int k : orders) {
            std::vector<VEK_temporalArc> arcs;
            dyn->GetTemporalParents(n, k, arcs);
            x << " temporal " << k << " parents";
            for (const VEK_temporalArc& a : arcs) x << " " << net.GetNodeId(a.node);
            x << " table ";
            Put(x, *dyn->GetTemporalDefinition(n, k));
            x << "\n";
        }
        x << " cost parents";
        for (int p : node->CostParents()) x << " " << net.GetNodeId(p);
        x << " cost ";
        Put(x, node->GetCost());
        x << "\n";
        nodes[node->GetId()] = x.str();
    }
    for (const auto& [id, text] : nodes) o << "node " << id << " " << text;

    std::map<std::string, std::string> subs;
    const VEK_submodelHandler& sh = net.Submodels();
    for (int s = sh.GetFirstSubmodel(); s >= 0; s = sh.GetNextSubmodel(s)) {
        const VEK_submodel* sub = sh.Get(s);
        std::ostringstream x;
        x << sub->header.GetName() << "|" << sub->header.HasComment() << sub->header.GetComment() << " parent "
          << (sh.GetParent(s) >= 0 ? SubmodelId(net, sh.GetParent(s)) : "-") << " ";
        if (s != sh.GetMainSubmodel()) PutScreen(x, sub->info);
        subs[sub->header.GetId()] = x.str();
    }
    for (const auto& [id, text] : subs) o << "submodel " << id << " " << text << "\n";

    std::vector<std::string> boxes;
    for (const VEK_textBox& b : net.TextBoxes()) {
        std::ostringstream x;
        x << "textbox " << SubmodelId(net, b.submodel) << " " << b.text << " " << b.position.centerX << ","
          << b.position.centerY << "," << b.position.width << "," << b.position.height << " " << b.font.name << "/"
          << b.font.size << "/" << b.font.bold << b.font.italic << "\n";
        boxes.push_back(x.str());
    }
    std::sort(boxes.begin(), boxes.end());  // the file groups them by submodel
    for (const auto& b : boxes) o << b;

    for (int i = 0; i < net.Cases().GetCount(); ++i) {
        const VEK_case& c = *net.Cases().Get(i);
        o << "case " << c.name << "|" << c.description << "|" << c.category << "|" << c.created << "|"
          << c.lastModified << "\n";
        for (const VEK_caseEvidence& ev : c.evidence) {
            o << " evidence " << net.GetNodeId(ev.node) << " slice " << ev.slice << " type " << ev.type << " outcome "
              << ev.outcome << " value " << (ev.type == VEK_CASE_CONTINUOUS ? D(ev.value) : "-");
            for (double v : ev.virtualEvidence) o << " " << D(v);
            o << "\n";
        }
        for (int t : c.targets) o << " target " << net.GetNodeId(t) << "\n";
    }
    return o.str();
}

// ---------------------------------------------------------------- random networks

class Generator {
public:
    explicit Generator(unsigned seed) : gen_(seed) {}

    int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen_); }
    double Real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(gen_); }
    bool Chance(double p) { return Real(0, 1) < p; }
    unsigned Color() { return static_cast<unsigned>(gen_()); }

    // Free text with the characters that need care in XML and escapes.
    std::string Text(bool controls) {
        static const char* pieces[] = {"alpha", " ", "<b>", "&amp;", "\"q\"", "'", "\xC3\xA9t\xC3\xA9", "x\\y",
                                       "\\n", "\n", "\t", "50%", "tail "};
        std::string s;
        int n = Int(0, 5);
        for (int i = 0; i < n; ++i) {
            const char* p = pieces[Int(0, 12)];
            if (!controls && (std::string(p) == "\n" || std::string(p) == "\t")) continue;
            s += p;
        }
        return s;
    }
    std::vector<double> Distribution(int n) {
        std::vector<double> v(n);
        double sum = 0;
        for (double& x : v) sum += x = Real(0.01, 1.0);
        for (double& x : v) x /= sum;
        return v;
    }

private:
    std::mt19937 gen_;
};

inline void RandomPresentation(Generator& g, VEK_screenInfo& s) {
    s.position = {g.Int(-500, 2000), g.Int(-500, 2000), g.Int(1, 300), g.Int(1, 200)};
    s.color = g.Color();
    s.fontColor = g.Color() & 0xFFFFFF;
    s.borderColor = g.Color();
    s.borderThickness = g.Int(0, 5);
    s.font.name = g.Chance(0.5) ? "Courier New" : "Arial";
    s.font.size = g.Int(6, 20);
    s.font.bold = g.Chance(0.5);
    s.font.italic = g.Chance(0.5);
}

// Parents first: every arc goes from a lower to a higher handle, so a
// network read back keeps the handles.
inline void RandomNetwork(VEK_network& net, unsigned seed) {
    Generator g(seed);
    net.Header().SetId(("net" + std::to_string(seed)).c_str());
    if (g.Chance(0.7)) net.Header().SetName(g.Text(false).c_str());  // an attribute: no controls
    if (g.Chance(0.5)) net.Header().SetComment(g.Text(true).c_str());
    net.SetNumberOfSamples(g.Int(1, 100000));
    net.SetNumberOfDiscretizationSamples(g.Int(1, 100000));
    if (g.Chance(0.5)) net.SetRandSeed(g.Int(-1000, 1000));
    net.EnableZeroAvoidance(g.Chance(0.5));
    net.EnableOutlierRejection(g.Chance(0.5));
    net.EnableNoisyDecomp(g.Chance(0.3));
    if (g.Chance(0.3)) net.SetNoisyDecompLimit(g.Int(1, 10));
    if (g.Chance(0.5)) {
        VEK_EPISParams p;
        p.propagationLength = g.Int(1, 20);
        p.numStateSmall = g.Int(1, 5);
        p.numStateMedium = p.numStateSmall + g.Int(1, 5);
        p.numStateBig = p.numStateMedium + g.Int(1, 5);
        p.stateSmallEpsil = g.Real(0.01, 0.1);
        p.stateMediumEpsil = g.Real(0.001, 0.01);
        p.stateBigEpsil = g.Real(0.0, 0.001);
        p.stateOtherwise = g.Real(0.0, 0.001);
        net.SetEPISParams(p);
    }
    for (int i = g.Int(0, 3); i > 0; --i) net.UserProperties().AddProperty(("p" + std::to_string(i)).c_str(), g.Text(true).c_str());
    for (int i = g.Int(0, 2); i > 0; --i) net.Documentation().AddItem(g.Text(false).c_str(), g.Text(false).c_str());
    for (int i = g.Int(0, 2); i > 0; --i) net.ExtFunctions().push_back("f" + std::to_string(i) + "(x)=x*" + g.Text(true));

    // Submodels, nested at random.
    std::vector<int> submodels{net.Submodels().GetMainSubmodel()};
    for (int i = g.Int(0, 4); i > 0; --i) {
        int parent = submodels[g.Int(0, static_cast<int>(submodels.size()) - 1)];
        int s = net.AddSubmodel(parent, ("Sub_" + std::to_string(i)).c_str());
        VEK_submodel* sub = net.Submodels().Get(s);
        if (g.Chance(0.5)) sub->header.SetName(g.Text(true).c_str());
        if (g.Chance(0.5)) sub->header.SetComment(g.Text(true).c_str());
        RandomPresentation(g, sub->info);
        submodels.push_back(s);
    }

    const int kinds[] = {VEK_CPT, VEK_TRUTHTABLE, VEK_LIST, VEK_TABLE, VEK_MAU, VEK_NOISY_MAX, VEK_NOISY_ADDER,
                         VEK_CAST, VEK_DEMORGAN};
    const int count = g.Int(4, 16);
    bool anyTemporal = false;
    for (int i = 0; i < count; ++i) {
        int type = kinds[g.Int(0, 8)];
        int h = net.AddNode(type, ("n" + std::to_string(i)).c_str());
        VEK_node* node = net.GetNode(h);
        if (g.Chance(0.25)) {
            node->SetTemporalType(g.Int(1, 3));
            anyTemporal = true;
        }
        VEK_nodeDef* def = node->Definition();
        auto* disc = dynamic_cast<VEK_discDef*>(def);
        bool fixed = type == VEK_CAST || type == VEK_DEMORGAN;
        if (disc && !fixed) {
            int n = g.Int(2, 4);
            VEK_idArray ids;
            for (int k = 0; k < n; ++k) ids.Add(("s" + std::to_string(i) + "_" + std::to_string(k)).c_str());
            disc->SetNumberOfOutcomes(ids);
            if (g.Chance(0.2)) {
                std::vector<double> edges{g.Real(-10, 0)};
                for (int k = 0; k < n; ++k) edges.push_back(edges.back() + g.Real(0.1, 5));
                disc->SetIntervals(edges);
            } else if (g.Chance(0.2)) {
                std::vector<double> points;
                for (int k = 0; k < n; ++k) points.push_back(g.Real(-100, 100));
                disc->SetPointValues(points);
            }
        }
        if (disc && fixed && g.Chance(0.3)) {
            disc->RenameOutcomes(std::vector<std::string>{"yes", "no"});
        }
        if (disc) {
            for (int k = 0; k < disc->GetNumberOfOutcomes(); ++k) {
                if (g.Chance(0.3)) disc->SetOutcomeLabel(k, g.Text(false).c_str());
                if (g.Chance(0.2)) disc->SetFaultOutcome(k, true);
                if (g.Chance(0.2)) disc->SetOutcomeFix(k, g.Text(true).c_str());
                if (g.Chance(0.2)) disc->SetOutcomeComment(k, g.Text(true).c_str());
                if (g.Chance(0.1)) disc->SetOutcomeDocumentation(k, {g.Text(false)}, {"http://x/" + std::to_string(k)});
            }
            if (g.Chance(0.3)) disc->SetDefaultOutcome(g.Int(0, disc->GetNumberOfOutcomes() - 1));
        }
        // Parents among the earlier nodes, as far as the arc rules allow.
        for (int tries = g.Int(0, 4); tries > 0; --tries) {
            int p = g.Int(0, h - 1 < 0 ? 0 : h - 1);
            if (p == h || net.TestAddArc(p, h) != 0) continue;
            const VEK_nodeDef* pd = net.GetDef(p);
            long long size = def->GetParameters().GetSize() * std::max(1, pd->GetNumberOfOutcomes());
            if (size > 400) continue;
            net.AddArc(p, h);
        }
        // Parameters of each kind.
        switch (type) {
            case VEK_CPT: {
                const int n = disc->GetNumberOfOutcomes();
                std::vector<double> t;
                for (int c = def->GetParameters().GetSize() / n; c > 0; --c) {
                    auto d = g.Distribution(n);
                    t.insert(t.end(), d.begin(), d.end());
                }
                def->SetDefinition(t);
                break;
            }
            case VEK_TRUTHTABLE: {
                auto* tt = static_cast<VEK_truthTable*>(def);
                VEK_intArray states;
                for (int c = tt->GetColumnCount(); c > 0; --c) states.Add(g.Int(0, tt->GetNumberOfOutcomes() - 1));
                tt->SetResultingStates(states);
                break;
            }
            case VEK_TABLE:
            case VEK_MAU: {
                std::vector<double> t(def->GetParameters().GetSize());
                for (double& v : t) v = g.Real(-100, 100);
                def->SetDefinition(t);
                if (type == VEK_MAU && g.Chance(0.5)) {
                    static_cast<VEK_mau*>(def)->SetExpressions({"U1 * 2 + " + g.Text(true), "max(U1, 0)"});
                }
                break;
            }
            case VEK_NOISY_MAX:
            case VEK_NOISY_ADDER: {
                auto* ci = static_cast<VEK_ciDef*>(def);
                const int n = ci->GetNumberOfOutcomes();
                if (type == VEK_NOISY_MAX) {
                    auto* nm = static_cast<VEK_noisyMAX*>(def);
                    for (int j = 0; j < nm->GetNumberOfParents(); ++j) {
                        VEK_intArray order;
                        order.MakeIdentityPermutation(nm->GetParentOutcomeCount(j));
                        if (g.Chance(0.5)) std::reverse(order.begin(), order.end());
                        nm->SetParentOutcomeStrengths(j, order);
                    }
                } else {
                    auto* na = static_cast<VEK_noisyAdder*>(def);
                    if (g.Chance(0.5)) na->SetFunction(VEK_noisyAdder::FUNCTION_SINGLE_FAULT);
                    na->SetDistinguishedState(g.Int(0, n - 1));
                    for (int j = 0; j < na->GetNumberOfParents(); ++j) {
                        na->SetParentDistinguishedState(j, g.Int(0, ci->GetParentOutcomeCount(j) - 1));
                        na->SetParentWeight(j, g.Real(0, 3));
                    }
                }
                VEK_doubleArray w;
                for (int c = ci->GetNumberOfColumns(); c > 0; --c) {
                    for (double v : g.Distribution(n)) w.Add(v);
                }
                ci->SetCiWeights(w);
                if (type == VEK_NOISY_MAX && g.Chance(0.2)) static_cast<VEK_noisyMAX*>(def)->SetSynchronized(true);
                break;
            }
            case VEK_CAST: {
                auto* c = static_cast<VEK_cast*>(def);
                c->SetBaseline(g.Real(0, 1));
                for (int j = 0; j < c->GetNumberOfParents(); ++j) {
                    c->SetWeight(j, true, g.Real(-1, 1));
                    c->SetWeight(j, false, g.Real(-1, 1));
                }
                break;
            }
            case VEK_DEMORGAN: {
                auto* d = static_cast<VEK_demorgan*>(def);
                d->SetPriorBelief(g.Real(0, 1));
                for (int j = 0; j < d->GetNumberOfParents(); ++j) {
                    d->SetParentType(j, g.Int(0, 3));
                    d->SetParentWeight(j, g.Real(0, 1));
                }
                break;
            }
            default: break;
        }
        // Node attributes and presentation.
        if (g.Chance(0.2)) net.SetTarget(h, true);
        node->SetDiagType(g.Int(0, 2));
        // The XML format gives the states of diagnostic targets labels;
        // such a model holds them already.
        auto* labelled = dynamic_cast<VEK_discDef*>(node->Definition());
        if (labelled && node->GetDiagType() == VEK_DIAG_FAULT) {
            for (int k = 0; k < labelled->GetNumberOfOutcomes(); ++k) {
                if (!*labelled->GetOutcomeLabel(k)) labelled->SetOutcomeLabel(k, (*labelled->GetOutcomeIds())[k]);
            }
        }
        if (node->GetDiagType() == VEK_DIAG_OBSERVATION) {
            node->SetRanked(g.Chance(0.5));
            node->SetMandatory(g.Chance(0.5));
        }
        if (g.Chance(0.5)) node->Header().SetName(g.Text(true).c_str());
        if (g.Chance(0.3)) node->Header().SetComment(g.Text(true).c_str());
        if (g.Chance(0.3)) node->SetQuestion(g.Text(true).c_str());
        if (g.Chance(0.6)) RandomPresentation(g, node->Info().screen);
        if (g.Chance(0.3)) node->Info().barChart = {g.Chance(0.5), g.Int(10, 300), g.Int(10, 200)};
        for (int k = g.Int(0, 2); k > 0; --k) node->Info().userProperties.AddProperty(g.Text(false).c_str(), g.Text(true).c_str());
        if (g.Chance(0.2)) node->Info().documentation.AddItem(g.Text(false).c_str(), "file:///doc.pdf");
        if (g.Chance(0.4)) net.SetNodeSubmodel(h, submodels[g.Int(0, static_cast<int>(submodels.size()) - 1)]);
    }
    if (anyTemporal) net.SetNumberOfSlices(g.Int(1, 6));

    // Observation costs between nodes with outcomes.
    for (int c = net.GetFirstNode(); c >= 0; c = net.GetNextNode(c)) {
        if (!g.Chance(0.3)) continue;
        for (int tries = g.Int(0, 2); tries > 0; --tries) {
            int p = g.Int(0, net.GetLastNode());
            if (net.GetNode(c)->GetCost().GetSize() * 4 > 64) break;
            net.AddArc(p, c, 1);
        }
        std::vector<double> cost(net.GetNode(c)->GetCost().GetSize());
        for (double& v : cost) v = g.Chance(0.3) ? VEK_NOT_AVAILABLE_VALUE : g.Real(0, 50);
        net.GetNode(c)->SetCost(cost);
    }

    for (int i = g.Int(0, 3); i > 0; --i) {
        VEK_textBox box;
        box.text = g.Text(true);
        box.position = {g.Int(0, 900), g.Int(0, 900), g.Int(1, 200), g.Int(1, 100)};
        box.font.size = g.Int(5, 30);
        box.font.bold = g.Chance(0.5);
        box.submodel = submodels[g.Int(0, static_cast<int>(submodels.size()) - 1)];
        net.TextBoxes().push_back(box);
    }

    for (int i = g.Int(0, 3); i > 0; --i) {
        int index = net.Cases().Add(("case" + std::to_string(i)).c_str());
        VEK_case& c = *net.Cases().Get(index);
        c.description = g.Text(true);
        if (g.Chance(0.5)) c.category = g.Text(false);
        if (g.Chance(0.5)) c.created = 5000000000LL + g.Int(0, 1000);
        if (g.Chance(0.5)) c.lastModified = g.Int(1, 100000);
        for (int n = net.GetFirstNode(); n >= 0; n = net.GetNextNode(n)) {
            const VEK_nodeDef* def = net.GetDef(n);
            const int outcomes = def->GetOutcomeIds() ? def->GetNumberOfOutcomes() : 0;
            if (outcomes == 0 || !g.Chance(0.4)) continue;
            VEK_caseEvidence ev;
            ev.node = n;
            int kind = g.Int(0, 2);
            if (kind == 0) {
                ev.outcome = g.Int(0, outcomes - 1);
            } else if (kind == 1) {
                ev.type = VEK_CASE_CONTINUOUS;
                ev.value = g.Real(-5, 5);
                if (g.Chance(0.5)) ev.outcome = g.Int(0, outcomes - 1);
            } else {
                ev.type = VEK_CASE_VIRTUAL;
                ev.virtualEvidence = g.Distribution(outcomes);
            }
            if (net.GetNode(n)->GetTemporalType() == 3 && g.Chance(0.5)) ev.slice = g.Int(0, net.GetNumberOfSlices() - 1);
            c.SetEvidence(ev);
            if (g.Chance(0.3)) c.targets.push_back(n);
        }
    }
}

// What RandomNetwork leaves out, as other formats cannot hold it: user
// functions, equation nodes (one discretized, with a discrete child) and a
// temporal plate with arcs of orders 1 and 2, an anchor parent and geometry.
inline void AddEquationsAndTime(VEK_network& net, unsigned seed) {
    Generator g(seed * 104729u);
    auto randomTable = [&](int node, int order) {
        const int n = net.GetDef(node)->GetNumberOfOutcomes();
        std::vector<double> t;
        for (int c = net.Dynamic().GetTemporalDefinition(node, order)->GetSize() / n; c > 0; --c) {
            for (double v : g.Distribution(n)) t.push_back(v);
        }
        net.Dynamic().SetTemporalDefinition(node, order, t);
    };
    net.ExtFunctions() = {"sq(x) = x * x", "blend(a, b) = a / 2 + b"};
    auto* s = static_cast<VEK_equation*>(net.GetDef(net.AddNode(VEK_EQUATION, "eq_source")));
    const int e1 = net.AddNode(VEK_EQUATION, "eq_derived");
    auto* d = static_cast<VEK_equation*>(net.GetDef(e1));
    int pos = 0;
    std::string message;
    s->SetBounds(-g.Real(1, 10), g.Real(1, 10));
    s->SetEquation("eq_source = Normal(0, " + D(g.Real(0.5, 2)) + ")", pos, message);
    s->SetNominal(s->GetLower() / 2, s->GetUpper() / 2);
    d->SetBounds(0, 200);
    d->SetDefaultValue(g.Real(0, 5));
    d->SetEquation("eq_derived = blend(sq(eq_source), 1)", pos, message);
    d->SetDiscretization({{"low", g.Real(1, 10)}, {"", 50}, {"top", 200}}, message);
    const int child = net.AddNode(VEK_CPT, "eq_child");
    net.AddArc(e1, child);
    randomTable(child, 0);

    const int anchor = net.AddNode(VEK_CPT, "t_anchor");
    const int hidden = net.AddNode(VEK_CPT, "t_hidden");
    const int seen = net.AddNode(VEK_CPT, "t_seen");
    net.GetNode(anchor)->SetTemporalType(VEK_TEMPORAL_ANCHOR);
    net.GetNode(hidden)->SetTemporalType(VEK_TEMPORAL_PLATE);
    net.GetNode(seen)->SetTemporalType(VEK_TEMPORAL_PLATE);
    static_cast<VEK_discDef*>(net.GetDef(hidden))->SetNumberOfOutcomes(3);
    net.AddArc(anchor, hidden);
    net.AddArc(hidden, seen);
    VEK_dynamicNet& dyn = net.Dynamic();
    dyn.AddTemporalArc(hidden, hidden, 1);
    dyn.AddTemporalArc(seen, hidden, 1);
    dyn.AddTemporalArc(hidden, hidden, 2);
    dyn.AddTemporalArc(hidden, seen, 2);
    for (auto [node, order] : {std::pair{hidden, 0}, {hidden, 1}, {hidden, 2}, {seen, 2}}) randomTable(node, order);
    dyn.PlatePosition() = {g.Int(-50, 500), g.Int(0, 500), g.Int(10, 900), g.Int(10, 400)};
    dyn.SetPlateWidths(g.Int(0, 80), g.Int(0, 80));
    net.SetNumberOfSlices(g.Int(3, 7));
}

// ---------------------------------------------------------------- the shared networks

struct SharedCounts {
    const char* name;
    int nodes;
    int arcs;
    int entries;     // sum of table sizes
    int maxInDegree;
    int maxStates;
    bool large;      // only loaded and counted
};

inline const std::vector<SharedCounts>& SharedNetworks() {
    static const std::vector<SharedCounts> table = {
        {"alarm", 37, 46, 752, 4, 4, false},        {"andes", 223, 338, 2314, 6, 2, false},
        {"asia", 8, 8, 36, 2, 2, false},            {"barley", 48, 84, 130180, 4, 67, true},
        {"cancer", 5, 4, 20, 2, 2, false},          {"child", 20, 25, 344, 2, 6, false},
        {"diabetes", 413, 602, 461069, 2, 21, true}, {"earthquake", 5, 4, 20, 2, 2, false},
        {"hailfinder", 56, 66, 3741, 4, 11, false}, {"hepar2", 70, 123, 2139, 6, 4, false},
        {"insurance", 27, 52, 1419, 3, 5, false},   {"link", 724, 1125, 20502, 3, 4, true},
        {"mildew", 35, 46, 547158, 3, 100, false},  {"munin", 1041, 1397, 98423, 3, 21, true},
        {"munin1", 186, 273, 19226, 3, 21, true},   {"munin2", 1003, 1244, 83920, 3, 21, true},
        {"munin3", 1041, 1306, 85615, 3, 21, true}, {"munin4", 1038, 1388, 97943, 3, 21, true},
        {"pathfinder", 109, 195, 97851, 5, 63, false}, {"pigs", 441, 592, 8427, 2, 3, true},
        {"sachs", 11, 17, 267, 3, 3, false},        {"survey", 6, 6, 37, 2, 3, false},
        {"water", 32, 66, 13484, 5, 4, false},      {"win95pts", 76, 112, 1148, 7, 2, false},
    };
    return table;
}

inline std::string SharedPath(const char* name) { return SharedDir() + "/networks/xvek/" + name + ".xvek"; }

}  // namespace testnet
