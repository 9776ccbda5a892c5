#include "formats/vekWriter.h"

#include <charconv>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "dynamic/dynamicNet.h"
#include "equations/equation.h"
#include "formats/fileFormat.h"
#include "network/cast.h"
#include "network/cpt.h"
#include "network/decision.h"
#include "network/demorgan.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"
#include "network/nodeDefVisitor.h"
#include "network/truthTable.h"
#include "network/utility.h"

namespace {

bool IsWordStart(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0x80; }
bool IsWordChar(unsigned char c) { return IsWordStart(c) || (c >= '0' && c <= '9'); }

// Text that the reader takes back as one word token.
bool IsWord(std::string_view s) {
    if (s.empty() || !IsWordStart(static_cast<unsigned char>(s[0]))) return false;
    for (unsigned char c : s) {
        if (!IsWordChar(c)) return false;
    }
    return true;
}

void AppendId(std::string& out, std::string_view id) {
    if (IsWord(id)) {
        out += id;
    } else {
        VEK_fileFormat::AppendQuoted(out, id);
    }
}

// The shortest text that reads back to the same double.
void AppendDouble(std::string& out, double v) {
    char text[64];
    auto r = std::to_chars(text, text + sizeof text, v);
    out.append(text, static_cast<size_t>(r.ptr - text));
}

void AppendInt(std::string& out, long long v) {
    char text[24];
    auto r = std::to_chars(text, text + sizeof text, v);
    out.append(text, static_cast<size_t>(r.ptr - text));
}

// Stored colours keep red in the lowest byte; the file shows 0xRRGGBB.
void AppendColor(std::string& out, unsigned color) {
    unsigned v = (color & 0xFF00FF00u) | ((color & 0xFFu) << 16) | ((color >> 16) & 0xFFu);
    char text[16];
    auto r = std::to_chars(text, text + sizeof text, v, 16);
    out += "0x";
    for (auto n = r.ptr - text; n < 6; ++n) out += '0';
    out.append(text, static_cast<size_t>(r.ptr - text));
}

// Items per written row of a table: the size of its last dimension that is
// more than 1 (the node's own outcomes for probability tables).
int RowLength(const VEK_Dmatrix& m) {
    for (int d = m.GetNumberOfDimensions() - 1; d >= 0; --d) {
        int n = m.GetSizeOfDimension(d);
        if (n > 1) return n;
    }
    return 1;
}

const char* TemporalName(int type) {
    switch (type) {
        case 1: return "anchor";
        case 2: return "terminal";
        case 3: return "plate";
        default: return nullptr;
    }
}

class VekWriter : private VEK_nodeDefVisitor {
public:
    VekWriter(VEK_network& net, VEK_textOutput& out) : net_(net), out_(out) {}
    int Write();

private:
    void Visit(VEK_nodeDef* def) override;
    void Visit(VEK_cpt* def) override;
    void Visit(VEK_truthTable* def) override;
    void Visit(VEK_decision* def) override;
    void Visit(VEK_utility* def) override;
    void Visit(VEK_mau* def) override;
    void Visit(VEK_cast* def) override;
    void Visit(VEK_demorgan* def) override;
    void Visit(VEK_noisyMAX* def) override;
    void Visit(VEK_noisyAdder* def) override;
    void Visit(VEK_equation* def) override;

    // ---- layout ----
    void Indent() { line_.assign(static_cast<size_t>(depth_) * 4, ' '); }
    void Emit() {
        line_ += '\n';
        out_.Write(line_);
    }
    enum Head { kNoName, kId, kString };
    // "keyword [name] {" and one level deeper.
    void Open(const char* keyword, std::string_view name = {}, Head head = kNoName);
    void Close();
    // "name = " at the current indentation; the caller appends the value.
    void Begin(const char* name);
    void End() {
        line_ += ';';
        Emit();
    }
    void Text(const char* name, std::string_view text);
    void Word(const char* name, std::string_view word);
    void Bool(const char* name, bool value);
    void Int(const char* name, long long value);
    void Double(const char* name, double value);
    void Color(const char* name, unsigned color);
    void Ids(const char* name, const std::vector<std::string>& ids);
    void Ids(const char* name, const VEK_intArray& nodes);
    // A list of doubles, one row of rowLength items per line when it has
    // more than one row; in cost tables the not-available marker is n/a.
    void Numbers(const char* name, const double* values, int count, int rowLength, bool costs = false);
    void Pair(const char* keyword, const std::string& key, const std::string& value);
    void Pair(const char* name, int a, int b);

    void WriteNetworkFields();
    void WriteSubmodels();
    void WriteScreen(const VEK_screenInfo& s);
    void WriteFont(const VEK_font& font);
    void StartNode(const char* kind, VEK_nodeDef* def, bool outcomes);
    void EndNode();
    void WriteTemporal();
    void WriteTemporalCanonical(const VEK_dynamicNet& dyn, int order, const VEK_nodeDef& def);
    void WritePlate();
    void WriteOutcomes(const VEK_discDef& def);
    void WriteCosts(const VEK_node& node);
    void WriteTextBoxes();
    void WriteCases();
    // An outcome of a node as its id, or as its index when it has none.
    void AppendOutcome(int node, int outcome);
    std::string SubmodelId(int handle) const;

    VEK_network& net_;
    VEK_textOutput& out_;
    std::string line_;
    int depth_ = 0;
    int node_ = -1;
    int status_ = VEK_OKAY;
};

void VekWriter::Open(const char* keyword, std::string_view name, Head head) {
    Indent();
    line_ += keyword;
    if (head != kNoName) {
        line_ += ' ';
        if (head == kString) {
            VEK_fileFormat::AppendQuoted(line_, name);
        } else {
            AppendId(line_, name);
        }
    }
    line_ += " {";
    Emit();
    ++depth_;
}

void VekWriter::Close() {
    --depth_;
    Indent();
    line_ += '}';
    Emit();
}

void VekWriter::Begin(const char* name) {
    Indent();
    line_ += name;
    line_ += " = ";
}

void VekWriter::Text(const char* name, std::string_view text) {
    Begin(name);
    VEK_fileFormat::AppendQuoted(line_, text);
    End();
}

void VekWriter::Word(const char* name, std::string_view word) {
    Begin(name);
    AppendId(line_, word);
    End();
}

void VekWriter::Bool(const char* name, bool value) {
    Begin(name);
    line_ += value ? "true" : "false";
    End();
}

void VekWriter::Int(const char* name, long long value) {
    Begin(name);
    AppendInt(line_, value);
    End();
}

void VekWriter::Double(const char* name, double value) {
    Begin(name);
    AppendDouble(line_, value);
    End();
}

void VekWriter::Color(const char* name, unsigned color) {
    Begin(name);
    AppendColor(line_, color);
    End();
}

void VekWriter::Ids(const char* name, const std::vector<std::string>& ids) {
    Begin(name);
    line_ += '(';
    for (size_t i = 0; i < ids.size(); ++i) {
        if (i > 0) line_ += ", ";
        AppendId(line_, ids[i]);
    }
    line_ += ')';
    End();
}

void VekWriter::Ids(const char* name, const VEK_intArray& nodes) {
    std::vector<std::string> ids;
    for (int h : nodes) ids.push_back(net_.GetNodeId(h));
    Ids(name, ids);
}

void VekWriter::Numbers(const char* name, const double* values, int count, int rowLength, bool costs) {
    auto item = [&](double v) {
        if (costs && v == VEK_NOT_AVAILABLE_VALUE) {
            line_ += "n/a";
        } else {
            AppendDouble(line_, v);
        }
    };
    Begin(name);
    line_ += '(';
    if (rowLength < 1) rowLength = 1;
    if (count <= rowLength) {
        for (int i = 0; i < count; ++i) {
            if (i > 0) line_ += ' ';
            item(values[i]);
        }
        line_ += ')';
        End();
        return;
    }
    Emit();
    ++depth_;
    for (int i = 0; i < count; i += rowLength) {
        Indent();
        for (int k = i; k < count && k < i + rowLength; ++k) {
            if (k > i) line_ += ' ';
            item(values[k]);
        }
        Emit();
    }
    --depth_;
    Indent();
    line_ += ')';
    End();
}

void VekWriter::Pair(const char* keyword, const std::string& key, const std::string& value) {
    Indent();
    line_ += keyword;
    line_ += ' ';
    VEK_fileFormat::AppendQuoted(line_, key);
    line_ += " = ";
    VEK_fileFormat::AppendQuoted(line_, value);
    End();
}

void VekWriter::Pair(const char* name, int a, int b) {
    Begin(name);
    AppendInt(line_, a);
    line_ += ' ';
    AppendInt(line_, b);
    End();
}

std::string VekWriter::SubmodelId(int handle) const {
    const VEK_submodel* s = net_.Submodels().Get(handle);
    return s ? s->header.GetId() : std::string();
}

// ============================================================== network

int VekWriter::Write() {
    out_.Write("// Network in the pyquarn text format\n");
    Open("network", net_.Header().GetId(), kId);
    WriteNetworkFields();
    WriteSubmodels();
    for (int h = net_.GetFirstNode(); h >= 0; h = net_.GetNextNode(h)) {
        node_ = h;
        Dispatch(net_.GetDef(h));
        if (status_ < 0) return status_;
    }
    WriteTextBoxes();
    WriteCases();
    Close();
    return status_;
}

void VekWriter::WriteNetworkFields() {
    const VEK_network defaults;
    const VEK_header& h = net_.Header();
    Int("version", 1);
    if (std::strcmp(h.GetName(), h.GetId()) != 0) Text("name", h.GetName());
    if (h.HasComment()) Text("comment", h.GetComment());
    if (net_.GetNumberOfSamples() != defaults.GetNumberOfSamples()) Int("samples", net_.GetNumberOfSamples());
    if (net_.GetNumberOfDiscretizationSamples() != defaults.GetNumberOfDiscretizationSamples()) {
        Int("discsamples", net_.GetNumberOfDiscretizationSamples());
    }
    if (net_.GetRandSeed() != defaults.GetRandSeed()) Int("randseed", net_.GetRandSeed());
    if (net_.IsZeroAvoidanceEnabled() != defaults.IsZeroAvoidanceEnabled()) {
        Bool("zeroavoidance", net_.IsZeroAvoidanceEnabled());
    }
    if (net_.IsOutlierRejectionEnabled() != defaults.IsOutlierRejectionEnabled()) {
        Bool("outlierrejection", net_.IsOutlierRejectionEnabled());
    }
    if (net_.IsNoisyDecompEnabled() != defaults.IsNoisyDecompEnabled()) Bool("noisydecomp", net_.IsNoisyDecompEnabled());
    if (net_.GetNoisyDecompLimit() != defaults.GetNoisyDecompLimit()) Int("noisydecomplimit", net_.GetNoisyDecompLimit());
    if (net_.GetNumberOfSlices() != 0) Int("slices", net_.GetNumberOfSlices());
    const VEK_EPISParams& e = net_.GetEPISParams();
    if (!e.Equals(VEK_EPISParams{})) {
        Open("epis");
        Int("proplen", e.propagationLength);
        Begin("numstates");
        line_ += '(';
        AppendInt(line_, e.numStateSmall);
        line_ += ' ';
        AppendInt(line_, e.numStateMedium);
        line_ += ' ';
        AppendInt(line_, e.numStateBig);
        line_ += ')';
        End();
        const double eps[] = {e.stateSmallEpsil, e.stateMediumEpsil, e.stateBigEpsil, e.stateOtherwise};
        Numbers("eps", eps, 4, 4);
        Close();
    }
    WritePlate();
    for (const auto& [key, value] : net_.UserProperties().Items()) Pair("property", key, value);
    for (const auto& [title, path] : net_.Documentation().Items()) Pair("link", title, path);
    for (const std::string& f : net_.ExtFunctions()) Text("function", f);
}

void VekWriter::WriteScreen(const VEK_screenInfo& s) {
    const VEK_screenInfo d;
    if (s.position.centerX != d.position.centerX || s.position.centerY != d.position.centerY) {
        Pair("center", s.position.centerX, s.position.centerY);
    }
    if (s.position.width != d.position.width || s.position.height != d.position.height) {
        Pair("size", s.position.width, s.position.height);
    }
    if (s.color != d.color) Color("interior", s.color);
    if (s.borderColor != d.borderColor) Color("outline", s.borderColor);
    if (s.borderThickness != d.borderThickness) Int("outlinewidth", s.borderThickness);
    if (s.selColor != d.selColor) Color("selcolor", s.selColor);
    if (s.fontColor != d.fontColor) Color("fontcolor", s.fontColor);
    if (!(s.font == d.font)) WriteFont(s.font);
}

void VekWriter::WriteFont(const VEK_font& font) {
    Begin("font");
    VEK_fileFormat::AppendQuoted(line_, font.name);
    line_ += ' ';
    AppendInt(line_, font.size);
    if (font.bold) line_ += " bold";
    if (font.italic) line_ += " italic";
    End();
}

// Depth first, children in handle order; without recursion, as the tree
// may be deep.
void VekWriter::WriteSubmodels() {
    const VEK_submodelHandler& subs = net_.Submodels();
    const int main = subs.GetMainSubmodel();
    std::vector<std::vector<int>> children(static_cast<size_t>(subs.GetCapacity()));
    for (int s = subs.GetNextSubmodel(main); s >= 0; s = subs.GetNextSubmodel(s)) {
        int parent = subs.GetParent(s);
        if (!subs.IsValidSubmodel(parent)) parent = main;
        children[VEK_submodelHandler::ToIndex(parent)].push_back(s);
    }
    struct Frame {
        int index;
        size_t next;
    };
    std::vector<Frame> stack{{0, 0}};
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next >= children[f.index].size()) {
            if (f.index != 0) Close();
            stack.pop_back();
            continue;
        }
        const int s = children[f.index][f.next++];
        const VEK_submodel& sub = *subs.Get(s);
        if (stack.size() == 1) out_.Write("\n");
        Open("submodel", sub.header.GetId(), kId);
        if (std::strcmp(sub.header.GetName(), sub.header.GetId()) != 0) Text("name", sub.header.GetName());
        if (sub.header.HasComment()) Text("comment", sub.header.GetComment());
        WriteScreen(sub.info);
        stack.push_back({VEK_submodelHandler::ToIndex(s), 0});
    }
}

// ============================================================== nodes

void VekWriter::Visit(VEK_nodeDef* def) {
    std::string message = "The text network format cannot hold node '";
    message += net_.GetNodeId(node_);
    message += "' of type ";
    message += def ? def->GetTypeName() : "unknown";
    status_ = net_.Logger().LogError(VEK_WRONG_NODE_TYPE, message.c_str());
}

void VekWriter::StartNode(const char* kind, VEK_nodeDef* def, bool outcomes) {
    const VEK_node& node = *net_.GetNode(node_);
    out_.Write("\n");
    Indent();
    line_ += "node ";
    line_ += kind;
    line_ += ' ';
    AppendId(line_, node.GetId());
    line_ += " {";
    Emit();
    ++depth_;
    const VEK_nodeHeader& h = node.Header();
    if (std::strcmp(h.GetName(), h.GetId()) != 0) Text("name", h.GetName());
    if (h.HasComment()) Text("comment", h.GetComment());
    if (*node.GetQuestion()) Text("question", node.GetQuestion());
    if (outcomes) WriteOutcomes(*static_cast<VEK_discDef*>(def));
    if (node.Parents().GetSize() > 0) Ids("parents", node.Parents());
    if (node.IsTarget()) Bool("target", true);
    if (node.GetDiagType() == VEK_DIAG_FAULT) Word("diagtype", "target");
    if (node.GetDiagType() == VEK_DIAG_OBSERVATION) Word("diagtype", "observation");
    if (node.IsRanked()) Bool("ranked", true);
    if (node.IsMandatory()) Bool("mandatory", true);
    if (const char* t = TemporalName(node.GetTemporalType())) {
        Word("dynamic", t);
    } else if (node.GetTemporalType() != 0) {
        Int("dynamic", node.GetTemporalType());
    }
    const int sub = node.GetSubmodel();
    if (sub != net_.Submodels().GetMainSubmodel() && net_.Submodels().IsValidSubmodel(sub)) {
        Word("submodel", SubmodelId(sub));
    }
    const VEK_nodeInfo& info = node.Info();
    WriteScreen(info.screen);
    if (!(info.barChart == VEK_barChart{})) {
        Begin("barchart");
        line_ += info.barChart.active ? "true " : "false ";
        AppendInt(line_, info.barChart.width);
        line_ += ' ';
        AppendInt(line_, info.barChart.height);
        End();
    }
    for (const auto& [key, value] : info.userProperties.Items()) Pair("property", key, value);
    for (const auto& [title, path] : info.documentation.Items()) Pair("link", title, path);
    WriteCosts(node);
}

void VekWriter::EndNode() {
    WriteTemporal();
    Close();
}

// One block per temporal order of a plate node: the temporal parents of
// that order and the table of the slices that use it.
void VekWriter::WriteTemporal() {
    const VEK_dynamicNet* dyn = net_.GetDynamic();
    if (!dyn || net_.GetNode(node_)->GetTemporalType() != VEK_TEMPORAL_PLATE) return;
    std::vector<int> orders;
    std::vector<VEK_temporalArc> arcs;
    dyn->GetTemporalOrders(node_, orders);
    for (int k : orders) {
        Indent();
        line_ += "temporal ";
        AppendInt(line_, k);
        line_ += " {";
        Emit();
        ++depth_;
        dyn->GetTemporalParents(node_, k, arcs);
        std::vector<std::string> ids;
        for (const VEK_temporalArc& a : arcs) ids.push_back(net_.GetNodeId(a.node));
        Ids("parents", ids);
        if (net_.GetDef(node_)->GetType() == VEK_EQUATION) {
            // Equation nodes keep an equation per order, not a table.
            if (const std::string* text = dyn->GetTemporalEquation(node_, k); text && !text->empty()) {
                Text("equation", *text);
            }
        } else if (net_.GetDef(node_)->GetType() == VEK_NOISY_MAX) {
            // Noisy-MAX nodes keep their weights; strengths other than the
            // outcome order have no place in this format.
            std::vector<VEK_intArray> strengths;
            (void)dyn->GetNoisyTemporalStrengths(node_, k, strengths);
            for (const VEK_intArray& order : strengths) {
                for (int p = 0; p < order.GetSize(); ++p) {
                    if (order[p] != p) {
                        const std::string message = "The text network format cannot hold the temporal strengths of node '" +
                                                    std::string(net_.GetNodeId(node_)) + "'; use the XML format";
                        status_ = net_.Logger().LogError(VEK_WRONG_NODE_TYPE, message.c_str());
                        return;
                    }
                }
            }
            if (const VEK_Dmatrix* m = dyn->GetTemporalParameters(node_, k)) {
                Numbers("probabilities", m->Items(), m->GetSize(), RowLength(*m));
            }
        } else if (const VEK_nodeDef* canonical = dyn->GetTemporalCanonical(node_, k)) {
            WriteTemporalCanonical(*dyn, k, *canonical);
        } else if (const VEK_Dmatrix* m = dyn->GetTemporalDefinition(node_, k)) {
            Numbers("probabilities", m->Items(), m->GetSize(), RowLength(*m));
        }
        Close();
    }
}

// A DeMorgan or noisy-adder order in the fields of the static node, one
// item per parent of the order's table.
void VekWriter::WriteTemporalCanonical(const VEK_dynamicNet& dyn, int order, const VEK_nodeDef& def) {
    std::vector<VEK_temporalArc> owners;
    (void)dyn.GetUnrolledParents(node_, order, owners);  // a node being written and one of its table orders
    const int parents = static_cast<int>(owners.size());
    if (def.GetType() == VEK_DEMORGAN) {
        const auto& d = static_cast<const VEK_demorgan&>(def);
        std::vector<std::string> types;
        std::vector<double> w(static_cast<size_t>(parents));
        for (int i = 0; i < parents; ++i) {
            const char* name = VEK_demorgan::ParentTypeName(d.GetParentType(i));
            types.push_back(name ? name : "cause");
            (void)d.GetParentWeight(i, w[i]);  // i is a parent: it cannot fail
        }
        Ids("types", types);
        Numbers("weights", w.data(), parents, parents);
        Double("priorbelief", d.GetPriorBelief());
        return;
    }
    const auto& a = static_cast<const VEK_noisyAdder&>(def);
    if (a.GetFunction() != VEK_noisyAdder::FUNCTION_AVERAGE) Word("function", VEK_noisyAdder::FunctionName(a.GetFunction()));
    Begin("dstate");
    AppendOutcome(node_, a.GetDistinguishedState());
    End();
    Begin("dstates");
    line_ += '(';
    for (int j = 0; j < parents; ++j) {
        if (j > 0) line_ += ", ";
        AppendOutcome(owners[j].node, a.GetParentDistinguishedState(j));
    }
    line_ += ')';
    End();
    const VEK_doubleArray& w = a.GetParentWeights();
    Numbers("weights", w.Items(), w.GetSize(), w.GetSize());
    const VEK_Dmatrix& m = a.GetParameters();
    Numbers("parameters", m.Items(), m.GetSize(), a.GetNumberOfOutcomes());
}

void VekWriter::WritePlate() {
    const VEK_dynamicNet* dyn = net_.GetDynamic();
    if (!dyn || (dyn->PlatePosition() == VEK_rectangle{} && dyn->GetLeftWidth() == 0 && dyn->GetRightWidth() == 0)) {
        return;
    }
    Open("plate");
    const VEK_rectangle& r = dyn->PlatePosition();
    if (r.centerX != 0 || r.centerY != 0) Pair("center", r.centerX, r.centerY);
    if (r.width != 0 || r.height != 0) Pair("size", r.width, r.height);
    if (dyn->GetLeftWidth() != 0 || dyn->GetRightWidth() != 0) Pair("widths", dyn->GetLeftWidth(), dyn->GetRightWidth());
    Close();
}

void VekWriter::WriteOutcomes(const VEK_discDef& def) {
    const VEK_idArray& ids = *def.GetOutcomeIds();
    std::vector<std::string> names;
    for (int k = 0; k < ids.GetSize(); ++k) names.push_back(ids[k] ? ids[k] : "");
    Ids("states", names);
    const int dflt = def.GetDefaultOutcome();
    if (dflt >= 0 && dflt < ids.GetSize()) Word("default", names[dflt]);
    std::vector<std::string> titles;
    std::vector<std::string> paths;
    for (int k = 0; k < ids.GetSize(); ++k) {
        (void)def.GetOutcomeDocumentation(k, titles, paths);  // the outcome index is in range
        const bool fault = def.IsFaultOutcome(k);
        if (!*def.GetOutcomeLabel(k) && !fault && !*def.GetOutcomeFix(k) && !*def.GetOutcomeComment(k) &&
            titles.empty()) {
            continue;
        }
        Open("state", names[k], kId);
        if (*def.GetOutcomeLabel(k)) Text("label", def.GetOutcomeLabel(k));
        if (fault) Bool("fault", true);
        if (*def.GetOutcomeFix(k)) Text("fix", def.GetOutcomeFix(k));
        if (*def.GetOutcomeComment(k)) Text("comment", def.GetOutcomeComment(k));
        for (size_t i = 0; i < titles.size() && i < paths.size(); ++i) Pair("link", titles[i], paths[i]);
        Close();
    }
    if (def.HasIntervals()) {
        const auto& v = def.GetIntervals();
        Numbers("intervals", v.data(), static_cast<int>(v.size()), static_cast<int>(v.size()));
    } else if (def.HasPointValues()) {
        const auto& v = def.GetPointValues();
        Numbers("pointvalues", v.data(), static_cast<int>(v.size()), static_cast<int>(v.size()));
    }
}

void VekWriter::WriteCosts(const VEK_node& node) {
    const VEK_Dmatrix& c = node.GetCost();
    bool any = node.CostParents().GetSize() > 0;
    for (int i = 0; !any && i < c.GetSize(); ++i) any = c[i] != VEK_NOT_AVAILABLE_VALUE;
    if (!any) return;
    if (node.CostParents().GetSize() > 0) Ids("costparents", node.CostParents());
    Numbers("cost", c.Items(), c.GetSize(), RowLength(c), true);
}

void VekWriter::Visit(VEK_cpt* def) {
    StartNode("cpt", def, true);
    const VEK_Dmatrix& m = def->GetParameters();
    Numbers("probabilities", m.Items(), m.GetSize(), def->GetNumberOfOutcomes());
    EndNode();
}

void VekWriter::Visit(VEK_truthTable* def) {
    StartNode("deterministic", def, true);
    VEK_intArray states;
    const VEK_Dmatrix& m = def->GetParameters();
    const int n = def->GetNumberOfOutcomes();
    const int columns = n > 0 ? m.GetSize() / n : 0;
    const double* items = m.Items();
    // The first outcome of probability 1 in each column (0 when none is).
    for (int c = 0; c < columns; ++c) {
        int state = 0;
        for (int i = 0; i < n; ++i) {
            if (items[static_cast<size_t>(c) * n + i] == 1.0) {
                state = i;
                break;
            }
        }
        states.Add(state);
    }
    const int dims = m.GetNumberOfDimensions();
    const int row = dims >= 2 ? m.GetSizeOfDimension(dims - 2) : columns;
    const VEK_idArray& ids = *def->GetOutcomeIds();
    Begin("resultingstates");
    line_ += '(';
    const bool multiline = columns > row;
    if (multiline) {
        Emit();
        ++depth_;
    }
    for (int c = 0; c < columns; ++c) {
        if (multiline && c % row == 0) {
            if (c > 0) Emit();
            Indent();
        } else if (c > 0) {
            line_ += ' ';
        }
        AppendId(line_, ids[states[c]]);
    }
    if (multiline) {
        Emit();
        --depth_;
        Indent();
    }
    line_ += ')';
    End();
    EndNode();
}

void VekWriter::Visit(VEK_decision* def) {
    StartNode("decision", def, true);
    EndNode();
}

void VekWriter::Visit(VEK_utility* def) {
    StartNode("utility", def, false);
    const VEK_Dmatrix& m = def->GetParameters();
    Numbers("utilities", m.Items(), m.GetSize(), RowLength(m));
    EndNode();
}

void VekWriter::Visit(VEK_mau* def) {
    StartNode("mau", def, false);
    const VEK_Dmatrix& m = def->GetWeights();
    Numbers("weights", m.Items(), m.GetSize(), RowLength(m));
    const auto& expressions = def->GetExpressions();
    if (!expressions.empty()) {
        Begin("expressions");
        line_ += '(';
        for (size_t i = 0; i < expressions.size(); ++i) {
            if (i > 0) line_ += ", ";
            VEK_fileFormat::AppendQuoted(line_, expressions[i]);
        }
        line_ += ')';
        End();
    }
    EndNode();
}

void VekWriter::Visit(VEK_cast* def) {
    StartNode("cast", def, true);
    const int parents = def->GetNumberOfParents();
    if (parents > 0) {
        std::vector<double> w(static_cast<size_t>(parents));
        for (int i = 0; i < parents; ++i) (void)def->GetWeight(i, true, w[i]);  // the parent index is in range
        Numbers("pweights", w.data(), parents, parents);
        for (int i = 0; i < parents; ++i) (void)def->GetWeight(i, false, w[i]);  // the parent index is in range
        Numbers("nweights", w.data(), parents, parents);
    }
    Double("baseline", def->GetBaseline());
    EndNode();
}

void VekWriter::Visit(VEK_demorgan* def) {
    StartNode("demorgan", def, true);
    const int parents = def->GetNumberOfParents();
    if (parents > 0) {
        std::vector<std::string> types;
        std::vector<double> w(static_cast<size_t>(parents));
        for (int i = 0; i < parents; ++i) {
            const char* name = VEK_demorgan::ParentTypeName(def->GetParentType(i));
            types.push_back(name ? name : "cause");
            (void)def->GetParentWeight(i, w[i]);  // the parent index is in range
        }
        Ids("types", types);
        Numbers("weights", w.data(), parents, parents);
    }
    Double("priorbelief", def->GetPriorBelief());
    EndNode();
}

void VekWriter::Visit(VEK_noisyMAX* def) {
    StartNode("noisymax", def, true);
    const int parents = def->GetNumberOfParents();
    if (parents > 0) {
        Begin("strengths");
        line_ += '(';
        const VEK_intArray& handles = net_.GetNode(node_)->Parents();
        for (int j = 0; j < parents; ++j) {
            if (j > 0) line_ += ' ';
            line_ += '(';
            const VEK_intArray* order = def->GetParentOutcomeStrengths(j);
            const VEK_nodeDef* pd = j < handles.GetSize() ? net_.GetDef(handles[j]) : nullptr;
            const VEK_idArray* ids = pd ? pd->GetOutcomeIds() : nullptr;
            for (int p = 0; order && p < order->GetSize(); ++p) {
                if (p > 0) line_ += ", ";
                int k = (*order)[p];
                if (ids && k >= 0 && k < ids->GetSize()) {
                    AppendId(line_, (*ids)[k]);
                } else {
                    AppendInt(line_, k);
                }
            }
            line_ += ')';
        }
        line_ += ')';
        End();
    }
    const VEK_Dmatrix& m = def->GetParameters();
    Numbers("parameters", m.Items(), m.GetSize(), def->GetNumberOfOutcomes());
    if (def->IsSynchronized()) Bool("synchronized", true);
    EndNode();
}

void VekWriter::Visit(VEK_noisyAdder* def) {
    StartNode("noisyadder", def, true);
    const char* function = VEK_noisyAdder::FunctionName(def->GetFunction());
    if (def->GetFunction() != VEK_noisyAdder::FUNCTION_AVERAGE && function) Word("function", function);
    Begin("dstate");
    AppendOutcome(node_, def->GetDistinguishedState());
    End();
    const int parents = def->GetNumberOfParents();
    if (parents > 0) {
        const VEK_intArray& handles = net_.GetNode(node_)->Parents();
        Begin("dstates");
        line_ += '(';
        for (int j = 0; j < parents; ++j) {
            if (j > 0) line_ += ", ";
            AppendOutcome(j < handles.GetSize() ? handles[j] : -1, def->GetParentDistinguishedState(j));
        }
        line_ += ')';
        End();
        const VEK_doubleArray& w = def->GetParentWeights();
        Numbers("weights", w.Items(), w.GetSize(), w.GetSize());
    }
    const VEK_Dmatrix& m = def->GetParameters();
    Numbers("parameters", m.Items(), m.GetSize(), def->GetNumberOfOutcomes());
    EndNode();
}

void VekWriter::Visit(VEK_equation* def) {
    StartNode("equation", def, false);
    if (!def->GetEquation().empty()) Text("equation", def->GetEquation());
    if (def->GetLower() != 0.0 || def->GetUpper() != 1.0) {
        Begin("bounds");
        AppendDouble(line_, def->GetLower());
        line_ += ' ';
        AppendDouble(line_, def->GetUpper());
        End();
    }
    if (def->GetDefaultValue() != 0.0) Double("defaultvalue", def->GetDefaultValue());
    if (def->HasNominal()) {
        Begin("nominal");
        AppendDouble(line_, def->GetLowerNominal());
        line_ += ' ';
        AppendDouble(line_, def->GetUpperNominal());
        End();
    }
    const std::vector<VEK_discInterval>& intervals = def->GetDiscretization();
    if (!intervals.empty()) {
        std::vector<double> uppers;
        std::vector<std::string> labels;
        bool labelled = false;
        for (const VEK_discInterval& i : intervals) {
            uppers.push_back(i.upper);
            labels.push_back(i.label);
            labelled |= !i.label.empty();
        }
        Numbers("discretization", uppers.data(), static_cast<int>(uppers.size()), static_cast<int>(uppers.size()));
        if (labelled) Ids("labels", labels);
    }
    EndNode();
}

void VekWriter::AppendOutcome(int node, int outcome) {
    const VEK_nodeDef* def = net_.GetDef(node);
    const VEK_idArray* ids = def ? def->GetOutcomeIds() : nullptr;
    if (ids && outcome >= 0 && outcome < ids->GetSize() && (*ids)[outcome] && *(*ids)[outcome]) {
        AppendId(line_, (*ids)[outcome]);
    } else {
        AppendInt(line_, outcome);
    }
}

// ============================================================== text boxes, cases

void VekWriter::WriteTextBoxes() {
    for (const VEK_textBox& box : net_.TextBoxes()) {
        out_.Write("\n");
        Open("textbox");
        Text("text", box.text);
        if (box.submodel != net_.Submodels().GetMainSubmodel() && net_.Submodels().IsValidSubmodel(box.submodel)) {
            Word("submodel", SubmodelId(box.submodel));
        }
        Pair("center", box.position.centerX, box.position.centerY);
        Pair("size", box.position.width, box.position.height);
        WriteFont(box.font);
        Close();
    }
}

void VekWriter::WriteCases() {
    const VEK_caseManager& cases = net_.Cases();
    for (int i = 0; i < cases.GetCount(); ++i) {
        const VEK_case& c = *cases.Get(i);
        out_.Write("\n");
        Open("case", c.name, kString);
        if (!c.category.empty()) Text("category", c.category);
        if (c.created != 0) Int("created", c.created);
        if (c.lastModified != 0) Int("modified", c.lastModified);
        if (!c.description.empty()) Text("description", c.description);
        for (const VEK_caseEvidence& e : c.evidence) {
            if (!net_.IsValidNode(e.node)) continue;
            Indent();
            line_ += e.type == VEK_CASE_VIRTUAL ? "virtual " : e.type == VEK_CASE_CONTINUOUS ? "continuous " : "evidence ";
            AppendId(line_, net_.GetNodeId(e.node));
            if (e.slice >= 0) {
                line_ += " slice ";
                AppendInt(line_, e.slice);
            }
            line_ += " = ";
            if (e.type == VEK_CASE_VIRTUAL) {
                line_ += '(';
                for (size_t k = 0; k < e.virtualEvidence.size(); ++k) {
                    if (k > 0) line_ += ' ';
                    AppendDouble(line_, e.virtualEvidence[k]);
                }
                line_ += ')';
            } else if (e.type == VEK_CASE_CONTINUOUS) {
                AppendDouble(line_, e.value);
                if (e.outcome >= 0) {
                    line_ += ' ';
                    AppendOutcome(e.node, e.outcome);
                }
            } else {
                AppendOutcome(e.node, e.outcome);
            }
            End();
        }
        for (int t : c.targets) {
            if (!net_.IsValidNode(t)) continue;
            Indent();
            line_ += "target ";
            AppendId(line_, net_.GetNodeId(t));
            End();
        }
        Close();
    }
}

}  // namespace

int VEK_writeVekNetwork(VEK_fileFormat& speaker) {
    VekWriter writer(speaker.Network(), speaker.Out());
    return writer.Write();
}
