#include "xml/xmlNetLoader.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "dynamic/dynamicNet.h"
#include "equations/equation.h"
#include "network/cast.h"
#include "network/cpt.h"
#include "network/decimalText.h"
#include "network/demorgan.h"
#include "network/discDef.h"
#include "network/identifier.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"
#include "network/truthTable.h"
#include "xml/xmlErrorHandler.h"
#include "xml/xmlReader.h"
#include "xml/xmlTovra.h"

// One handler object per node element name, so that every kind reaches
// StartNode with its own kind.
struct XmlNetLoader::NodeKind {
    XmlNetLoader* loader;
    Kind kind;
    void Start(IXmlReader* r) { loader->StartNode(r, kind); }
    void End(IXmlReader* r) { loader->EndNode(r); }
};

namespace {

// Exhausted memory leaves the parse as std::bad_alloc, so that the whole
// read reports -42 instead of a damaged file.
void ThrowIfOutOfMemory(int status) {
    if (status == VEK_OUT_OF_MEMORY) throw std::bad_alloc();
}

int DefinitionType(XmlNetLoader::Kind kind) {
    switch (kind) {
        case XmlNetLoader::kCpt: return VEK_CPT;
        case XmlNetLoader::kDeterministic: return VEK_TRUTHTABLE;
        case XmlNetLoader::kDecision: return VEK_LIST;
        case XmlNetLoader::kUtility: return VEK_TABLE;
        case XmlNetLoader::kMau:
        case XmlNetLoader::kMaux: return VEK_MAU;
        case XmlNetLoader::kCast: return VEK_CAST;
        case XmlNetLoader::kDemorgan: return VEK_DEMORGAN;
        case XmlNetLoader::kNoisyMax: return VEK_NOISY_MAX;
        case XmlNetLoader::kNoisyAdder: return VEK_NOISY_ADDER;
        case XmlNetLoader::kEquation: return VEK_EQUATION;
    }
    return VEK_CPT;
}

// Ids beginning with @ are taken as they are, as AddNode does, unless they
// hold white space: they could not be listed as parents.
bool ValidNodeId(const std::string& id) {
    if (VEK_isValidIdentifier(id)) return true;
    if (id.size() < 2 || id[0] != '@') return false;
    for (char c : id) {
        if (c == ' ' || (c >= '\t' && c <= '\r')) return false;
    }
    return true;
}

// A whole text as a long long (surrounding whitespace allowed).
bool ParseLongLong(const std::string& text, long long& value) {
    const char* s = text.c_str();
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(s, &end, 10);
    if (end == s || errno == ERANGE) return false;
    while (*end == ' ' || (*end >= '\t' && *end <= '\r')) ++end;
    return *end == '\0';
}

bool ParseWholeInt(const std::string& text, int& value) {
    long long v = 0;
    if (!ParseLongLong(text, v) || v < INT_MIN || v > INT_MAX) return false;
    value = static_cast<int>(v);
    return true;
}

VEK_doubleArray ToDoubleArray(const std::vector<double>& v) { return VEK_doubleArray(v); }

}  // namespace

XmlNetLoader::XmlNetLoader(VEK_network& net, size_t documentSize)
    : net_(net), maxItems_(documentSize == 0 ? 0 : documentSize / 2 + 64) {}

XmlNetLoader::~XmlNetLoader() {
    for (NodeKind* k : kinds_) delete k;
}

XmlNetLoader::Handler* XmlNetLoader::Bind(const char* name, Callback start, Callback end, Callback item) {
    auto* b = new Handler(this, name, start, end, item);
    bindings_.push_back(b);
    return b;
}

void XmlNetLoader::Fail(IXmlReader* r, const char* message) { r->StopParse(message); }

void XmlNetLoader::Fail(IXmlReader* r, const char* message, const std::string& name) {
    std::string text = message;
    // Messages that already end in ": " take the name directly after it.
    if (text.size() < 2 || text.compare(text.size() - 2, 2, ": ") != 0) text += ": ";
    text += "'";
    text += name;
    text += "'";
    r->StopParse(text.c_str());
}

int XmlNetLoader::FindNode(const std::string& id) const {
    auto it = ids_.find(id);
    return it == ids_.end() ? -1 : it->second;
}

VEK_nodeDef* XmlNetLoader::Def() const { return net_.GetDef(node_); }

bool XmlNetLoader::ParseItem(IXmlReader* r, double& value, const char* element) {
    const std::string& item = r->GetContent();
    // Items hold no white space, so a plain decimal number is the whole
    // item; anything else (a sign, hexadecimal, out of range) takes the
    // general path.
    const char* first = item.data();
    const char* last = first + item.size();
    if (VEK_scanDecimal(first, last, value) == last) return true;
    std::from_chars_result fast = std::from_chars(first, last, value);
    if (fast.ec == std::errc() && fast.ptr == last) return true;
    char* end = nullptr;
    value = XmlParseDouble(item.c_str(), &end);
    if (end == item.c_str() || *end != '\0') {
        std::string message = "Number expected in '";
        message += element;
        message += "'";
        Fail(r, message.c_str(), item);
        return false;
    }
    return true;
}

bool XmlNetLoader::ParseIntItem(IXmlReader* r, int& value, const char* element) {
    const std::string& item = r->GetContent();
    if (!ParseWholeInt(item, value)) {
        std::string message = "Integer expected in '";
        message += element;
        message += "'";
        Fail(r, message.c_str(), item);
        return false;
    }
    return true;
}

bool XmlNetLoader::ParseText(IXmlReader* r, double& value) {
    const std::string& text = r->GetContent();
    const char* s = text.c_str();
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
    char* end = nullptr;
    value = XmlParseDouble(s, &end);
    if (end == s) return false;
    while (*end == ' ' || (*end >= '\t' && *end <= '\r')) ++end;
    return *end == '\0';
}

// ============================================================== schema

IXmlBinding* XmlNetLoader::BuildSchema(IXmlBinding* extension) {
    Handler* root = Bind("quarn", &XmlNetLoader::OnRootStart);
    root->SetMode(XmlModeLenient);
    for (const char* a : {"version", "id"}) root->AddAttribute(a, true);
    for (const char* a : {"numsamples", "discsamples", "randseed", "discavoidzero", "rejectoutliers",
                          "enablenoisydecomp", "noisydecomplimit"}) {
        root->AddAttribute(a, false);
    }

    Handler* properties = Bind("properties", nullptr);
    Handler* netProperty = Bind("property", &XmlNetLoader::OnNetPropertyStart, &XmlNetLoader::OnNetPropertyEnd);
    netProperty->AddAttribute("id", true);
    properties->AddChild(netProperty, XmlChildMayRepeat);
    root->AddChild(properties, 0);

    Handler* algparams = Bind("algparams", nullptr);
    Handler* epis = Bind("epis", &XmlNetLoader::OnEpisStart);
    for (const char* a : {"proplen", "numstates1", "numstates2", "numstates3", "eps1", "eps2", "eps3", "eps4"}) {
        epis->AddAttribute(a, true);
    }
    algparams->AddChild(epis, 0);
    root->AddChild(algparams, 0);

    Handler* functions = Bind("functions", nullptr);
    functions->AddChild(Bind("function", nullptr, &XmlNetLoader::OnFunctionEnd), XmlChildMayRepeat);
    root->AddChild(functions, 0);

    // ---- node elements ----
    Handler* nodes = Bind("nodes", nullptr);
    root->AddChild(nodes, 0);
    Handler* parents = Bind("parents", &XmlNetLoader::OnParentsStart, nullptr, &XmlNetLoader::OnParentItem);
    Handler* state = Bind("state", &XmlNetLoader::OnStateStart);
    state->AddAttribute("id", true);
    for (const char* a : {"label", "default", "fault"}) state->AddAttribute(a, false);
    Handler* intervals = Bind("intervals", &XmlNetLoader::OnIntervalsStart, nullptr, &XmlNetLoader::OnDoubleItem);
    Handler* pointValues =
        Bind("pointvalues", &XmlNetLoader::OnPointValuesStart, nullptr, &XmlNetLoader::OnDoubleItem);
    Handler* nodeProperty =
        Bind("property", &XmlNetLoader::OnNodePropertyStart, &XmlNetLoader::OnNodePropertyEnd);
    nodeProperty->AddAttribute("id", true);
    Handler* probabilities = Bind("probabilities", &XmlNetLoader::OnProbabilitiesStart, &XmlNetLoader::OnFillEnd,
                                  &XmlNetLoader::OnFillItem);
    Handler* utilities =
        Bind("utilities", &XmlNetLoader::OnUtilitiesStart, &XmlNetLoader::OnFillEnd, &XmlNetLoader::OnFillItem);
    Handler* parameters = Bind("parameters", &XmlNetLoader::OnParametersStart, &XmlNetLoader::OnFillEnd,
                               &XmlNetLoader::OnFillItem);
    Handler* weights =
        Bind("weights", &XmlNetLoader::OnWeightsStart, &XmlNetLoader::OnWeightsEnd, &XmlNetLoader::OnDoubleItem);
    Handler* resulting = Bind("resultingstates", &XmlNetLoader::OnResultingStatesStart,
                              &XmlNetLoader::OnResultingStatesEnd, &XmlNetLoader::OnResultingStateItem);
    Handler* expression = Bind("expression", nullptr, &XmlNetLoader::OnExpressionEnd);
    Handler* strengths =
        Bind("strengths", &XmlNetLoader::OnListStart, &XmlNetLoader::OnStrengthsEnd, &XmlNetLoader::OnIntItem);
    Handler* dstates =
        Bind("dstates", &XmlNetLoader::OnListStart, &XmlNetLoader::OnDstatesEnd, &XmlNetLoader::OnIntItem);
    Handler* types = Bind("types", &XmlNetLoader::OnListStart, &XmlNetLoader::OnTypesEnd, &XmlNetLoader::OnWordItem);
    Handler* pweights =
        Bind("pweights", &XmlNetLoader::OnListStart, &XmlNetLoader::OnPweightsEnd, &XmlNetLoader::OnDoubleItem);
    Handler* nweights =
        Bind("nweights", &XmlNetLoader::OnListStart, &XmlNetLoader::OnNweightsEnd, &XmlNetLoader::OnDoubleItem);
    Handler* priorBelief = Bind("priorbelief", nullptr, &XmlNetLoader::OnPriorBeliefEnd);
    Handler* baseline = Bind("baseline", nullptr, &XmlNetLoader::OnBaselineEnd);

    struct KindInfo {
        const char* name;
        Kind kind;
        bool states;     // accepts state, intervals and point values
        int stateFlags;  // required for the discrete kinds
    };
    const int required = XmlChildRequired | XmlChildMayRepeat;
    const KindInfo kinds[] = {
        {"cpt", kCpt, true, required},           {"deterministic", kDeterministic, true, required},
        {"decision", kDecision, true, required}, {"utility", kUtility, false, 0},
        {"mau", kMau, false, 0},                 {"maux", kMaux, false, 0},
        {"cast", kCast, true, XmlChildMayRepeat}, {"demorgan", kDemorgan, true, XmlChildMayRepeat},
        {"noisymax", kNoisyMax, true, required}, {"noisyadder", kNoisyAdder, true, required},
        {"equation", kEquation, false, 0},
    };
    Handler* eqDefinition =
        Bind("definition", &XmlNetLoader::OnEquationDefStart, &XmlNetLoader::OnEquationDefEnd);
    for (const char* a : {"lower", "upper", "default", "lowernominal", "uppernominal"}) {
        eqDefinition->AddAttribute(a, false);
    }
    Handler* discretization = Bind("discretization", nullptr, &XmlNetLoader::OnDiscretizationEnd);
    Handler* interval = Bind("interval", &XmlNetLoader::OnIntervalStart);
    interval->AddAttribute("label", false);
    interval->AddAttribute("upper", true);
    discretization->AddChild(interval, XmlChildRequired | XmlChildMayRepeat);
    for (const KindInfo& info : kinds) {
        kinds_.reserve(kinds_.size() + 1);
        auto* kind = new NodeKind{this, info.kind};
        kinds_.push_back(kind);
        auto* b = new XmlHandler<NodeKind>(kind, info.name, &NodeKind::Start, &NodeKind::End);
        bindings_.push_back(b);
        b->AddAttribute("id", true);
        for (const char* a : {"target", "diagtype", "dynamic", "ranked", "mandatory"}) b->AddAttribute(a, false);
        b->AddChild(parents, 0);
        if (info.states) {
            b->AddChild(state, info.stateFlags);
            b->AddChild(intervals, 0);
            b->AddChild(pointValues, 0);
        }
        b->AddChild(nodeProperty, XmlChildMayRepeat);
        switch (info.kind) {
            case kCpt: b->AddChild(probabilities, XmlChildRequired); break;
            case kDeterministic: b->AddChild(resulting, XmlChildRequired); break;
            case kDecision: break;
            case kUtility: b->AddChild(utilities, XmlChildRequired); break;
            case kMau: b->AddChild(weights, XmlChildRequired); break;
            case kEquation:
                b->AddChild(eqDefinition, XmlChildRequired);
                b->AddChild(discretization, 0);
                break;
            case kMaux:
                b->AddChild(expression, XmlChildRequired | XmlChildMayRepeat);
                b->AddChild(weights, 0);
                break;
            case kCast:
                b->AddChild(pweights, 0);
                b->AddChild(nweights, 0);
                b->AddChild(baseline, XmlChildRequired);
                break;
            case kDemorgan:
                b->AddChild(types, 0);
                b->AddChild(weights, 0);
                b->AddChild(priorBelief, 0);
                break;
            case kNoisyMax:
                b->AddAttribute("synchronized", false);
                b->AddChild(strengths, XmlChildMayRepeat);
                b->AddChild(parameters, XmlChildRequired);
                break;
            case kNoisyAdder:
                b->AddAttribute("function", false);
                b->AddAttribute("dstate", false);
                b->AddChild(dstates, 0);
                b->AddChild(weights, 0);
                b->AddChild(parameters, XmlChildRequired);
                break;
        }
        nodes->AddChild(b, XmlChildMayRepeat);
    }

    // ---- temporal structure ----
    Handler* dynamic = Bind("dynamic", &XmlNetLoader::OnDynamicStart, &XmlNetLoader::OnDynamicEnd);
    dynamic->AddAttribute("numslices", true);
    Handler* temporalParents =
        Bind("parents", &XmlNetLoader::OnTemporalParentsStart, nullptr, &XmlNetLoader::OnTemporalParentItem);
    Handler* temporalTable = Bind("probabilities", &XmlNetLoader::OnTemporalTableStart,
                                  &XmlNetLoader::OnTemporalTableEnd, &XmlNetLoader::OnFillItem);
    Handler* temporalEquation = Bind("definition", nullptr, &XmlNetLoader::OnTemporalEquationEnd);
    temporalEquation->AddAttribute("order", false);
    Handler* temporalStrengths = Bind("strengths", &XmlNetLoader::OnTemporalStrengthsStart,
                                      &XmlNetLoader::OnTemporalStrengthsEnd, &XmlNetLoader::OnIntItem);
    Handler* temporalParameters = Bind("parameters", &XmlNetLoader::OnTemporalTableStart,
                                       &XmlNetLoader::OnTemporalTableEnd, &XmlNetLoader::OnFillItem);
    Handler* temporalTypes = Bind("types", &XmlNetLoader::OnTemporalListStart, &XmlNetLoader::OnTemporalTypesEnd,
                                  &XmlNetLoader::OnWordItem);
    Handler* temporalWeights = Bind("weights", &XmlNetLoader::OnTemporalListStart,
                                    &XmlNetLoader::OnTemporalWeightsEnd, &XmlNetLoader::OnDoubleItem);
    Handler* temporalPrior = Bind("priorbelief", nullptr, &XmlNetLoader::OnTemporalPriorEnd);
    Handler* temporalDstates = Bind("dstates", &XmlNetLoader::OnTemporalListStart,
                                    &XmlNetLoader::OnTemporalDstatesEnd, &XmlNetLoader::OnIntItem);
    for (const char* name : {"cpt", "deterministic", "noisymax", "noisyadder", "demorgan", "equation", "node"}) {
        // Temporal tables are probability tables, canonical parameters or
        // equations: the other kinds are refused.
        const bool noisy = std::strcmp(name, "noisymax") == 0;
        const bool demorgan = std::strcmp(name, "demorgan") == 0;
        const bool adder = std::strcmp(name, "noisyadder") == 0;
        const bool equation = std::strcmp(name, "equation") == 0;
        const bool table = noisy || std::strcmp(name, "cpt") == 0 || std::strcmp(name, "node") == 0;
        Handler* temporal =
            Bind(name,
                 noisy               ? &XmlNetLoader::OnNoisyTemporalStart
                 : demorgan          ? &XmlNetLoader::OnDemorganTemporalStart
                 : adder             ? &XmlNetLoader::OnNoisyAdderTemporalStart
                 : table || equation ? &XmlNetLoader::OnTemporalStart
                                     : &XmlNetLoader::OnTemporalKindStart,
                 &XmlNetLoader::OnTemporalEnd);
        temporal->AddAttribute("id", true);
        temporal->AddAttribute("order", true);
        if (table || equation || demorgan || adder) temporal->AddChild(temporalParents, 0);
        if (demorgan) {
            temporal->AddChild(temporalTypes, 0);
            temporal->AddChild(temporalWeights, 0);
            temporal->AddChild(temporalPrior, 0);
        } else if (adder) {
            temporal->AddAttribute("function", false);
            temporal->AddAttribute("dstate", false);
            temporal->AddChild(temporalDstates, 0);
            temporal->AddChild(temporalWeights, 0);
            temporal->AddChild(temporalParameters, 0);
        } else if (noisy) {
            temporal->AddChild(temporalStrengths, XmlChildMayRepeat);
            temporal->AddChild(temporalParameters, 0);
        } else if (table) {
            temporal->AddChild(temporalTable, 0);
        } else if (equation) {
            temporal->AddChild(temporalEquation, 0);
        }
        dynamic->AddChild(temporal, XmlChildMayRepeat);
    }
    root->AddChild(dynamic, 0);

    // ---- observation costs ----
    Handler* costs = Bind("observationcost", nullptr);
    Handler* costNode = Bind("node", &XmlNetLoader::OnCostNodeStart);
    costNode->AddAttribute("id", true);
    costNode->AddChild(
        Bind("parents", &XmlNetLoader::OnCostParentsStart, nullptr, &XmlNetLoader::OnCostParentItem), 0);
    costNode->AddChild(Bind("cost", &XmlNetLoader::OnCostStart, &XmlNetLoader::OnCostEnd, &XmlNetLoader::OnCostItem),
                       XmlChildRequired);
    costs->AddChild(costNode, XmlChildMayRepeat);
    root->AddChild(costs, 0);

    // ---- cases ----
    Handler* cases = Bind("cases", nullptr);
    Handler* oneCase = Bind("case", &XmlNetLoader::OnCaseStart);
    oneCase->AddAttribute("name", true);
    for (const char* a : {"category", "created", "modified"}) oneCase->AddAttribute(a, false);
    oneCase->AddChild(Bind("description", nullptr, &XmlNetLoader::OnCaseDescriptionEnd), 0);
    Handler* evidence = Bind("evidence", &XmlNetLoader::OnEvidenceStart);
    evidence->AddAttribute("node", true);
    for (const char* a : {"state", "value", "slice"}) evidence->AddAttribute(a, false);
    oneCase->AddChild(evidence, XmlChildMayRepeat);
    for (const char* name : {"virtevidence", "softevidence"}) {
        Handler* soft = Bind(name, &XmlNetLoader::OnVirtualEvidenceStart, &XmlNetLoader::OnVirtualEvidenceEnd,
                             &XmlNetLoader::OnDoubleItem);
        soft->AddAttribute("node", true);
        soft->AddAttribute("slice", false);
        oneCase->AddChild(soft, XmlChildMayRepeat);
    }
    Handler* target = Bind("target", &XmlNetLoader::OnCaseTargetStart);
    target->AddAttribute("node", true);
    oneCase->AddChild(target, XmlChildMayRepeat);
    cases->AddChild(oneCase, XmlChildMayRepeat);
    root->AddChild(cases, 0);

    Handler* extensions = Bind("extensions", nullptr);
    extensions->SetMode(XmlModeLenient);
    if (extension) extensions->AddChild(extension, 0);
    root->AddChild(extensions, 0);
    return root;
}

// ============================================================== document

void XmlNetLoader::OnRootStart(IXmlReader* r) {
    std::string version;
    std::string id;
    r->GetAttribute("version", version);
    r->GetAttribute("id", id);
    if (!CheckVersion(r, version.c_str(), "1.0")) return;
    if (!id.empty()) {
        if (net_.Header().SetId(id.c_str()) < 0) return Fail(r, "Invalid network identifier", id);
        // As for any header made from an id, the name starts as the id; the
        // graphical extension carries a different one.
        net_.Header().SetName(id.c_str());
    }
    int samples = 0;
    int discSamples = 0;
    int seed = 0;
    int limit = 0;
    bool avoidZero = true;
    bool reject = false;
    bool decomp = false;
    if (!r->GetAttribute("numsamples", samples, 1000) || !r->GetAttribute("discsamples", discSamples, 10000) ||
        !r->GetAttribute("randseed", seed, 0) || !r->GetAttribute("discavoidzero", avoidZero, true) ||
        !r->GetAttribute("rejectoutliers", reject, false) || !r->GetAttribute("enablenoisydecomp", decomp, false) ||
        !r->GetAttribute("noisydecomplimit", limit, 4)) {
        return;
    }
    if (net_.SetNumberOfSamples(samples) < 0) return Fail(r, "Invalid number of samples", std::to_string(samples));
    if (net_.SetNumberOfDiscretizationSamples(discSamples) < 0) {
        return Fail(r, "Invalid number of discretization samples", std::to_string(discSamples));
    }
    net_.SetRandSeed(seed);
    net_.EnableZeroAvoidance(avoidZero);
    net_.EnableOutlierRejection(reject);
    net_.EnableNoisyDecomp(decomp);
    net_.SetNoisyDecompLimit(limit);
}

void XmlNetLoader::OnNetPropertyStart(IXmlReader* r) { r->GetAttribute("id", propertyName_); }

void XmlNetLoader::OnNetPropertyEnd(IXmlReader* r) {
    r->GetUnescapedContent(text_);
    if (net_.UserProperties().AddProperty(propertyName_.c_str(), text_.c_str()) < 0) {
        Fail(r, "Can't add network property", propertyName_);
    }
}

void XmlNetLoader::OnEpisStart(IXmlReader* r) {
    VEK_EPISParams p;
    if (!r->GetAttribute("proplen", p.propagationLength, p.propagationLength) ||
        !r->GetAttribute("numstates1", p.numStateSmall, p.numStateSmall) ||
        !r->GetAttribute("numstates2", p.numStateMedium, p.numStateMedium) ||
        !r->GetAttribute("numstates3", p.numStateBig, p.numStateBig) ||
        !r->GetAttribute("eps1", p.stateSmallEpsil, p.stateSmallEpsil) ||
        !r->GetAttribute("eps2", p.stateMediumEpsil, p.stateMediumEpsil) ||
        !r->GetAttribute("eps3", p.stateBigEpsil, p.stateBigEpsil) ||
        !r->GetAttribute("eps4", p.stateOtherwise, p.stateOtherwise)) {
        return;
    }
    if (net_.SetEPISParams(p) < 0) Fail(r, "Invalid EPIS parameters");
}

void XmlNetLoader::OnFunctionEnd(IXmlReader* r) {
    r->GetUnescapedContent(text_);
    net_.ExtFunctions().push_back(text_);
}

void XmlNetLoader::OnDynamicStart(IXmlReader* r) {
    int slices = 0;
    if (!r->GetAttribute("numslices", slices, 0)) return;
    if (net_.SetNumberOfSlices(slices) < 0) Fail(r, "Invalid number of slices", std::to_string(slices));
}

void XmlNetLoader::OnTemporalKindStart(IXmlReader* r) {
    std::string id;
    r->GetAttribute("id", id);
    Fail(r, "Invalid temporal defintion type", id);
}

void XmlNetLoader::OnTemporalStart(IXmlReader* r) {
    temporalNode_ = -1;
    temporalParents_.clear();
    temporalStrengths_.clear();
    temporalArcsAdded_ = false;
    r->GetAttribute("id", nodeId_);
    const int node = FindNode(nodeId_);
    if (node < 0 || net_.GetNode(node)->GetTemporalType() != VEK_TEMPORAL_PLATE) {
        return Fail(r, "Node is not part of temporal plate", nodeId_);
    }
    if (!r->GetAttribute("order", temporalOrder_, 0)) return;
    if (temporalOrder_ < 1) return Fail(r, "Temporal defintion not found", nodeId_);
    // The element's kind must be the node's: canonical parameters of the
    // node's kind, or a table.
    const int type = net_.GetDef(node)->GetType();
    const bool canonical = type == VEK_NOISY_MAX || type == VEK_DEMORGAN || type == VEK_NOISY_ADDER;
    if (canonical ? type != temporalKind_ : temporalKind_ != 0) {
        return Fail(r, "Invalid temporal defintion type", nodeId_);
    }
    temporalFunction_.clear();
    temporalDstate_ = -1;
    if (temporalKind_ == VEK_NOISY_ADDER) {
        r->GetAttribute("function", temporalFunction_);
        VEK_noisyAdder::Function function;
        if (!temporalFunction_.empty() && VEK_noisyAdder::FunctionFromName(temporalFunction_.c_str(), function) < 0) {
            return Fail(r, "Invalid noisy adder function", temporalFunction_);
        }
        if (!r->GetAttribute("dstate", temporalDstate_, -1)) return;
    }
    temporalNode_ = node;
}

void XmlNetLoader::OnNoisyTemporalStart(IXmlReader* r) {
    temporalKind_ = VEK_NOISY_MAX;
    OnTemporalStart(r);
    temporalKind_ = 0;
}

void XmlNetLoader::OnDemorganTemporalStart(IXmlReader* r) {
    temporalKind_ = VEK_DEMORGAN;
    OnTemporalStart(r);
    temporalKind_ = 0;
}

void XmlNetLoader::OnNoisyAdderTemporalStart(IXmlReader* r) {
    temporalKind_ = VEK_NOISY_ADDER;
    OnTemporalStart(r);
    temporalKind_ = 0;
}

void XmlNetLoader::OnTemporalListStart(IXmlReader*) { ResetLists(); }

// A list element starts: its items go to the plain buffers, emptied.
void XmlNetLoader::ResetLists() {
    fill_ = nullptr;
    doubles_.clear();
    ints_.clear();
    words_.clear();
    doubleList_ = &doubles_;
    intList_ = &ints_;
    wordList_ = &words_;
}

void XmlNetLoader::EditTemporal(IXmlReader* r, const char* failure, const std::function<int(VEK_nodeDef&)>& edit) {
    if (temporalNode_ < 0 || !AddTemporalArcs(r)) return;
    if (net_.Dynamic().EditTemporalCanonical(temporalNode_, temporalOrder_, edit) < 0) Fail(r, failure, nodeId_);
}

void XmlNetLoader::OnTemporalTypesEnd(IXmlReader* r) {
    VEK_intArray types;
    for (const std::string& w : words_) types.Add(VEK_demorgan::ParentTypeFromName(w.c_str()));
    EditTemporal(r, "SetParentTypes failed",
                 [&types](VEK_nodeDef& d) { return static_cast<VEK_demorgan&>(d).SetParentTypes(types); });
}

void XmlNetLoader::OnTemporalWeightsEnd(IXmlReader* r) {
    const VEK_doubleArray weights = ToDoubleArray(doubles_);
    EditTemporal(r, "SetParentWeights failed", [&weights](VEK_nodeDef& d) {
        return d.GetType() == VEK_DEMORGAN ? static_cast<VEK_demorgan&>(d).SetParentWeights(weights)
                                           : static_cast<VEK_noisyAdder&>(d).SetParentWeights(weights);
    });
}

void XmlNetLoader::OnTemporalPriorEnd(IXmlReader* r) {
    double v = 0.0;
    if (temporalNode_ < 0) return;
    if (!ParseText(r, v)) return Fail(r, "Can't read prior belief", nodeId_);
    EditTemporal(r, "SetPriorBelief failed",
                 [v](VEK_nodeDef& d) { return static_cast<VEK_demorgan&>(d).SetPriorBelief(v); });
}

void XmlNetLoader::OnTemporalDstatesEnd(IXmlReader* r) {
    const VEK_intArray states(ints_);
    EditTemporal(r, "SetParentDistinguishedState call fails", [&states](VEK_nodeDef& d) {
        return static_cast<VEK_noisyAdder&>(d).SetParentDistinguishedStates(states);
    });
}

void XmlNetLoader::OnTemporalParentsStart(IXmlReader*) { temporalParents_.clear(); }

void XmlNetLoader::OnTemporalParentItem(IXmlReader* r) {
    if (temporalNode_ < 0) return;
    const std::string& id = r->GetContent();
    const int p = FindNode(id);
    if (p < 0) return Fail(r, "Node parent not found: ", id);
    temporalParents_.push_back(p);
}

bool XmlNetLoader::AddTemporalArcs(IXmlReader* r) {
    if (temporalArcsAdded_) return true;
    temporalArcsAdded_ = true;
    if (temporalParents_.empty()) {
        Fail(r, "No temporal parents specified", nodeId_);
        return false;
    }
    for (int p : temporalParents_) {
        if (net_.Dynamic().AddTemporalArc(p, temporalNode_, temporalOrder_) < 0) {
            Fail(r, "AddTemporalArc failed", nodeId_);
            return false;
        }
    }
    if (net_.GetDef(temporalNode_)->GetType() != VEK_NOISY_ADDER) return true;
    // The node's distinguished state goes first: it fixes the constrained
    // columns that the parameters then fill around.
    VEK_noisyAdder::Function function = VEK_noisyAdder::FUNCTION_AVERAGE;
    if (!temporalFunction_.empty()) {
        (void)VEK_noisyAdder::FunctionFromName(temporalFunction_.c_str(), function);  // checked when read
    }
    const int dstate = temporalDstate_;
    const int res = net_.Dynamic().EditTemporalCanonical(temporalNode_, temporalOrder_, [&](VEK_nodeDef& d) {
        auto& adder = static_cast<VEK_noisyAdder&>(d);
        const int set = adder.SetFunction(function);
        return set < 0 || dstate < 0 ? set : adder.SetDistinguishedState(dstate);
    });
    if (res < 0) {
        Fail(r, "SetDistinguishedState call fails", nodeId_);
        return false;
    }
    return true;
}

void XmlNetLoader::OnTemporalTableStart(IXmlReader* r) {
    if (temporalNode_ < 0 || !AddTemporalArcs(r)) return;
    const VEK_Dmatrix* m = net_.Dynamic().GetTemporalParameters(temporalNode_, temporalOrder_);
    if (!m) return Fail(r, "Temporal defintion not found", nodeId_);
    temporalTable_.assign(static_cast<size_t>(m->GetSize()), 0.0);
    BeginFill(r, temporalTable_.data(), m->GetSize(), "SetProbabilities failed");
}

void XmlNetLoader::OnTemporalTableEnd(IXmlReader* r) {
    if (!fill_) return;
    fill_ = nullptr;
    if (fillCount_ != fillSize_ || net_.Dynamic().SetTemporalDefinition(temporalNode_, temporalOrder_, temporalTable_) < 0) {
        return Fail(r, fillFailure_, nodeId_);
    }
}

void XmlNetLoader::OnTemporalEquationEnd(IXmlReader* r) {
    if (temporalNode_ < 0 || !AddTemporalArcs(r)) return;
    r->GetUnescapedContent(text_);
    temporalEquations_.push_back({temporalNode_, temporalOrder_, text_});
}

void XmlNetLoader::OnDynamicEnd(IXmlReader* r) {
    std::vector<int> orders;
    for (size_t i = 0; i < temporalEquations_.size(); ++i) {
        const int node = temporalEquations_[i].node;
        bool first = true;
        for (size_t j = 0; j < i && first; ++j) first = temporalEquations_[j].node != node;
        if (!first) continue;
        net_.Dynamic().GetTemporalOrders(node, orders);
        std::vector<std::string> texts(orders.size());
        for (const TemporalEquation& e : temporalEquations_) {
            if (e.node != node) continue;
            for (size_t k = 0; k < orders.size(); ++k) {
                if (orders[k] == e.order) texts[k] = e.text;
            }
        }
        int pos = -1;
        std::string message;
        if (net_.Dynamic().SetTemporalEquations(node, texts, pos, message) < 0) {
            std::string text = "Expression parse error: '" + std::string(net_.GetNodeId(node)) + "' (" + message;
            if (pos >= 0) text += " at position " + std::to_string(pos);
            return Fail(r, (text + ")").c_str());
        }
    }
    temporalEquations_.clear();
}

void XmlNetLoader::OnTemporalStrengthsStart(IXmlReader*) {
    ints_.clear();
    intList_ = &ints_;
}

// Each item is the position of that outcome in the parent's strength order.
void XmlNetLoader::OnTemporalStrengthsEnd(IXmlReader* r) {
    if (temporalNode_ < 0 || !AddTemporalArcs(r)) return;
    const size_t i = temporalStrengths_.size();
    const int m = i < temporalParents_.size() ? net_.GetDef(temporalParents_[i])->GetDiscreteOutcomeCount() : -1;
    VEK_intArray order(m > 0 ? m : 0);
    bool ok = m > 0 && static_cast<int>(ints_.size()) == m;
    for (int k = 0; ok && k < m; ++k) order[k] = -1;
    for (int j = 0; ok && j < m; ++j) {
        const int pos = ints_[j];
        ok = pos >= 0 && pos < m && order[pos] == -1;
        if (ok) order[pos] = j;
    }
    if (!ok) return Fail(r, "SetParentOutcomeStrengths failed", nodeId_);
    temporalStrengths_.push_back(order);
}

void XmlNetLoader::OnTemporalEnd(IXmlReader* r) {
    if (temporalNode_ >= 0 && AddTemporalArcs(r) && !temporalStrengths_.empty() &&
        net_.Dynamic().SetNoisyTemporalStrengths(temporalNode_, temporalOrder_, temporalStrengths_) < 0) {
        Fail(r, "SetParentOutcomeStrengths failed", nodeId_);
    }
    temporalNode_ = -1;
}

void XmlNetLoader::OnEquationDefStart(IXmlReader* r) {
    if (node_ < 0 || !Commit(r)) return;
    auto* eq = static_cast<VEK_equation*>(Def());
    double lower = 0.0, upper = 0.0, value = 0.0, lowerNominal = 0.0, upperNominal = 0.0;
    if (!r->GetAttribute("lower", lower, eq->GetLower()) || !r->GetAttribute("upper", upper, eq->GetUpper()) ||
        !r->GetAttribute("default", value, eq->GetDefaultValue()) ||
        !r->GetAttribute("lowernominal", lowerNominal, lower) ||
        !r->GetAttribute("uppernominal", upperNominal, upper)) {
        return;
    }
    if (eq->SetBounds(lower, upper) < 0 || eq->SetNominal(lowerNominal, upperNominal) < 0) {
        return Fail(r, "Invalid equation bounds", nodeId_);
    }
    eq->SetDefaultValue(value);
    discIntervals_.clear();
}

void XmlNetLoader::OnEquationDefEnd(IXmlReader* r) {
    if (node_ < 0) return;
    r->GetUnescapedContent(text_);
    int pos = -1;
    std::string message;
    if (static_cast<VEK_equation*>(Def())->SetEquation(text_, pos, message) < 0) {
        std::string text = "Expression parse error: '" + nodeId_ + "' (" + message;
        if (pos >= 0) text += " at position " + std::to_string(pos);
        Fail(r, (text + ")").c_str());
    }
}

void XmlNetLoader::OnIntervalStart(IXmlReader* r) {
    std::string label;
    double upper = 0.0;
    r->GetAttribute("label", label);
    if (!r->GetAttribute("upper", upper, 0.0)) return;
    discIntervals_.emplace_back(label, upper);
}

void XmlNetLoader::OnDiscretizationEnd(IXmlReader* r) {
    if (node_ < 0) return;
    std::vector<VEK_discInterval> intervals;
    for (const auto& [label, upper] : discIntervals_) intervals.push_back({label, upper});
    std::string message;
    if (static_cast<VEK_equation*>(Def())->SetDiscretization(intervals, message) < 0) {
        Fail(r, "SetDiscIntervals failed", nodeId_);
    }
}

// ============================================================== nodes

void XmlNetLoader::StartNode(IXmlReader* r, Kind kind) {
    node_ = -1;
    kind_ = kind;
    committed_ = false;
    states_.clear();
    stateIds_.clear();
    defaultState_ = -1;
    emptyIds_ = namedIds_ = false;
    hasIntervals_ = hasPointValues_ = false;
    intervals_.clear();
    pointValues_.clear();
    parents_.clear();
    parentSet_.clear();
    synchronized_ = false;
    hasDstate_ = false;
    strengthsRead_ = 0;
    expressions_.clear();
    hasExpressions_ = false;
    fill_ = nullptr;

    r->GetAttribute("id", nodeId_);
    if (!ValidNodeId(nodeId_)) return Fail(r, "Invalid node identifier", nodeId_);
    if (ids_.count(nodeId_) || net_.Submodels().IsIdInUse(nodeId_.c_str())) {
        return Fail(r, "Duplicated node identifier", nodeId_);
    }
    int h = net_.AddNode(DefinitionType(kind), nodeId_.c_str());
    if (h < 0) return Fail(r, "QUARN failed to create node", nodeId_);
    ids_.emplace(nodeId_, h);
    node_ = h;
    VEK_node* node = net_.GetNode(h);

    bool target = false;
    bool ranked = false;
    bool mandatory = false;
    if (!r->GetAttribute("target", target, false) || !r->GetAttribute("ranked", ranked, false) ||
        !r->GetAttribute("mandatory", mandatory, false)) {
        return;
    }
    if (target) (void)net_.SetTarget(h, true);  // a node named a target twice stays one
    node->SetRanked(ranked);
    node->SetMandatory(mandatory);
    std::string word;
    r->GetAttribute("diagtype", word);
    if (!word.empty()) {
        if (word == "target") {
            (void)node->SetDiagType(VEK_DIAG_FAULT);  // a valid type
        } else if (word == "observation") {
            (void)node->SetDiagType(VEK_DIAG_OBSERVATION);  // a valid type
        } else {
            return Fail(r, "Unknown diagnosis node type", word);
        }
    }
    r->GetAttribute("dynamic", word);
    if (!word.empty()) {
        if (word == "anchor") {
            node->SetTemporalType(VEK_TEMPORAL_ANCHOR);
        } else if (word == "terminal") {
            node->SetTemporalType(VEK_TEMPORAL_TERMINAL);
        } else if (word == "plate") {
            node->SetTemporalType(VEK_TEMPORAL_PLATE);
        } else {
            return Fail(r, "Unknown dynamic node type", word);
        }
    }
    if (kind == kNoisyMax && !r->GetAttribute("synchronized", synchronized_, false)) return;
    if (kind == kNoisyAdder) {
        r->GetAttribute("function", word);
        if (!word.empty()) {
            VEK_noisyAdder::Function function;
            if (VEK_noisyAdder::FunctionFromName(word.c_str(), function) < 0) {
                return Fail(r, "Invalid noisy adder function", word);
            }
            (void)static_cast<VEK_noisyAdder*>(Def())->SetFunction(function);  // the function was parsed above
        }
        if (!r->GetAttribute("dstate", dstate_, INT_MIN)) return;
        hasDstate_ = dstate_ != INT_MIN;
    }
}

void XmlNetLoader::EndNode(IXmlReader* r) {
    if (node_ < 0) return;
    if (!Commit(r)) return;
    if (kind_ == kMaux && hasExpressions_) {
        if (static_cast<VEK_mau*>(Def())->SetExpressions(expressions_) < 0) {
            return Fail(r, "SetExpressions failed", nodeId_);
        }
    }
    if (kind_ == kNoisyMax && synchronized_) {
        if (static_cast<VEK_noisyMAX*>(Def())->SetSynchronized(true) < 0) {
            return Fail(r, "SetSynchronized failed", nodeId_);
        }
    }
    node_ = -1;
}

bool XmlNetLoader::Commit(IXmlReader* r) {
    if (node_ < 0) return false;
    if (committed_) return true;
    committed_ = true;
    VEK_nodeDef* def = Def();
    auto* disc = dynamic_cast<VEK_discDef*>(def);
    if (!states_.empty() && disc) {
        if (emptyIds_ && namedIds_) {
            Fail(r, "Both empty and non-empty state ids found.");
            return false;
        }
        if (emptyIds_ && !hasIntervals_) {
            Fail(r, "Empty state ids can only be used with intervals", nodeId_);
            return false;
        }
        const int n = static_cast<int>(states_.size());
        int res = VEK_OKAY;
        try {
            if (emptyIds_) {
                // The engine names every outcome: empty ids become generated ones.
                res = disc->SetNumberOfOutcomes(n);
            } else if (n == disc->GetNumberOfOutcomes()) {
                std::vector<std::string> ids;
                ids.reserve(states_.size());
                for (const PendingState& s : states_) ids.push_back(s.id);
                res = disc->RenameOutcomes(ids);
            } else {
                VEK_idArray ids;
                // Uniqueness was checked as the states were read, and
                // SetNumberOfOutcomes checks every id again: no need to
                // check twice here.
                for (const PendingState& s : states_) ids.VEK_stringArray::Add(s.id.c_str());
                res = disc->SetNumberOfOutcomes(ids);
            }
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            res = VEK_OUT_OF_MEMORY;
        }
        ThrowIfOutOfMemory(res);
        if (res < 0) {
            Fail(r, "SetNumberOfOutcomes failed", nodeId_);
            return false;
        }
        if (hasIntervals_ && disc->SetIntervals(intervals_, false) < 0) {
            Fail(r, "SetIntervals failed", nodeId_);
            return false;
        }
        if (hasPointValues_ && disc->SetPointValues(pointValues_) < 0) {
            Fail(r, "SetPointValues failed", nodeId_);
            return false;
        }
        for (int i = 0; i < n; ++i) {
            if (!states_[i].label.empty()) (void)disc->SetOutcomeLabel(i, states_[i].label.c_str());  // the outcome index is in range
            if (states_[i].fault) (void)disc->SetFaultOutcome(i, true);  // the outcome index is in range
        }
        if (defaultState_ >= 0) (void)disc->SetDefaultOutcome(defaultState_);  // the default is one of the states read
    } else if ((hasIntervals_ || hasPointValues_) && disc) {
        // Intervals without states give the outcome count.
        if (hasIntervals_ && disc->SetIntervals(intervals_, true) < 0) {
            Fail(r, "SetIntervals failed", nodeId_);
            return false;
        }
        if (hasPointValues_ && disc->SetPointValues(pointValues_) < 0) {
            Fail(r, "SetPointValues failed", nodeId_);
            return false;
        }
    }
    for (int p : parents_) {
        if (!CheckTableGrowth(r, p)) return false;
        int res;
        try {
            res = net_.AddArc(p, node_);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            res = VEK_OUT_OF_MEMORY;
        }
        ThrowIfOutOfMemory(res);
        if (res < 0) {
            Fail(r, "AddArc failed", std::string(net_.GetNodeId(p)) + " -> " + nodeId_);
            return false;
        }
    }
    if (kind_ == kNoisyAdder && hasDstate_) {
        if (static_cast<VEK_noisyAdder*>(def)->SetDistinguishedState(dstate_) < 0) {
            Fail(r, "SetDistinguishedState call fails", nodeId_);
            return false;
        }
    }
    return true;
}

// A parent multiplies the size of a table; a table the document cannot
// hold (each number takes at least two bytes) is refused before it is
// allocated, so a hostile file cannot ask for gigabytes.
bool XmlNetLoader::CheckTableGrowth(IXmlReader* r, int parent) {
    if (maxItems_ == 0) return true;
    if (kind_ != kCpt && kind_ != kDeterministic && kind_ != kUtility && kind_ != kMau && kind_ != kMaux) {
        return true;
    }
    const VEK_nodeDef* def = Def();
    const VEK_nodeDef* parentDef = net_.GetDef(parent);
    long long size = def->GetParameters().GetSize();
    int outcomes = parentDef ? parentDef->GetNumberOfOutcomes() : 1;
    long long grown;
    if (kind_ == kMau || kind_ == kMaux) {
        if (parentDef && parentDef->GetType() == VEK_LIST) {
            grown = size * (outcomes > 0 ? outcomes : 1);
        } else {
            int u = static_cast<const VEK_mau*>(def)->GetUtilityParents().GetSize();
            grown = u == 0 ? size : size / u * (u + 1);
        }
    } else {
        grown = size * (outcomes > 0 ? outcomes : 1);
    }
    long long items = grown;
    if (kind_ == kDeterministic) {
        // One resulting state per column.
        int own = def->GetNumberOfOutcomes();
        items = grown / (own > 0 ? own : 1);
    }
    if (items > static_cast<long long>(maxItems_)) {
        Fail(r, "Definition is larger than the document can hold", nodeId_);
        return false;
    }
    return true;
}

void XmlNetLoader::OnStateStart(IXmlReader* r) {
    if (node_ < 0) return;
    if (committed_) return Fail(r, "States must come before the definition of node", nodeId_);
    PendingState s;
    bool isDefault = false;
    r->GetAttribute("id", s.id);
    r->GetAttribute("label", s.label);
    if (!r->GetAttribute("default", isDefault, false) || !r->GetAttribute("fault", s.fault, false)) return;
    if (s.id.empty()) {
        emptyIds_ = true;
    } else {
        namedIds_ = true;
        if (!stateIds_.insert(s.id).second) return Fail(r, "Duplicate state identifier", s.id);
    }
    if (isDefault) {
        if (defaultState_ >= 0) return Fail(r, "Duplicate default state attribute at state", s.id);
        defaultState_ = static_cast<int>(states_.size());
    }
    states_.push_back(std::move(s));
}

void XmlNetLoader::OnIntervalsStart(IXmlReader* r) {
    if (node_ < 0) return;
    if (hasPointValues_) return Fail(r, "Intervals and point values cannot be defined for the same node", nodeId_);
    if (committed_) return Fail(r, "Intervals must come before the definition of node", nodeId_);
    hasIntervals_ = true;
    fill_ = nullptr;
    doubleList_ = &intervals_;
}

void XmlNetLoader::OnPointValuesStart(IXmlReader* r) {
    if (node_ < 0) return;
    if (hasIntervals_) return Fail(r, "Intervals and point values cannot be defined for the same node", nodeId_);
    if (committed_) return Fail(r, "Point values must come before the definition of node", nodeId_);
    hasPointValues_ = true;
    fill_ = nullptr;
    doubleList_ = &pointValues_;
}

void XmlNetLoader::OnListStart(IXmlReader* r) {
    if (Commit(r)) ResetLists();
}

void XmlNetLoader::OnDoubleItem(IXmlReader* r) {
    if (fill_) return OnFillItem(r);
    double v = 0.0;
    if (!ParseItem(r, v, "list")) return;
    if (doubleList_) doubleList_->push_back(v);
}

void XmlNetLoader::OnIntItem(IXmlReader* r) {
    int v = 0;
    if (!ParseIntItem(r, v, "list")) return;
    if (intList_) intList_->push_back(v);
}

void XmlNetLoader::OnWordItem(IXmlReader* r) {
    if (wordList_) wordList_->push_back(r->GetContent());
}

void XmlNetLoader::OnParentsStart(IXmlReader* r) {
    if (node_ < 0) return;
    if (committed_) return Fail(r, "Parents must come before the definition of node", nodeId_);
}

void XmlNetLoader::OnParentItem(IXmlReader* r) {
    if (node_ < 0) return;
    const std::string& id = r->GetContent();
    int p = FindNode(id);
    if (p < 0) return Fail(r, "Node parent not found: ", id);
    if (!parentSet_.insert(p).second) return Fail(r, "Duplicate parent", id);
    parents_.push_back(p);
}

void XmlNetLoader::OnNodePropertyStart(IXmlReader* r) { r->GetAttribute("id", propertyName_); }

void XmlNetLoader::OnNodePropertyEnd(IXmlReader* r) {
    if (node_ < 0) return;
    r->GetUnescapedContent(text_);
    if (net_.GetNode(node_)->Info().userProperties.AddProperty(propertyName_.c_str(), text_.c_str()) < 0) {
        Fail(r, "Can't add node property", propertyName_);
    }
}

// ---- definition lists ----

void XmlNetLoader::BeginFill(IXmlReader*, double* items, int size, const char* failure) {
    fill_ = items;
    fillSize_ = size;
    fillCount_ = 0;
    fillFailure_ = failure;
}

// The hot path of large tables: a plain decimal item goes straight into the
// matrix; anything else takes ParseItem's general path.
void XmlNetLoader::OnFillItem(IXmlReader* r) {
    if (!fill_) return;
    const std::string& item = r->GetContent();
    const char* last = item.data() + item.size();
    double v = 0.0;
    if (VEK_scanDecimal(item.data(), last, v) != last && !ParseItem(r, v, "definition")) return;
    if (fillCount_ >= fillSize_) return Fail(r, fillFailure_, nodeId_);
    fill_[fillCount_++] = v;
}

void XmlNetLoader::OnFillEnd(IXmlReader* r) {
    if (!fill_) return;
    fill_ = nullptr;
    if (fillCount_ != fillSize_) return Fail(r, fillFailure_, nodeId_);
    Def()->OnParametersChanged();
}

void XmlNetLoader::OnProbabilitiesStart(IXmlReader* r) {
    if (!Commit(r)) return;
    VEK_Dmatrix& m = Def()->GetWriteableParameters();
    BeginFill(r, m.Items(), m.GetSize(), "SetProbabilities failed");
}

void XmlNetLoader::OnUtilitiesStart(IXmlReader* r) {
    if (!Commit(r)) return;
    VEK_Dmatrix& m = Def()->GetWriteableParameters();
    BeginFill(r, m.Items(), m.GetSize(), "SetUtilities failed");
}

void XmlNetLoader::OnParametersStart(IXmlReader* r) {
    if (!Commit(r)) return;
    VEK_Dmatrix& m = Def()->GetWriteableParameters();
    BeginFill(r, m.Items(), m.GetSize(), "SetParameters failed");
}

void XmlNetLoader::OnWeightsStart(IXmlReader* r) {
    if (kind_ == kMau || kind_ == kMaux) {
        if (!Commit(r)) return;
        VEK_Dmatrix& m = Def()->GetWriteableParameters();
        BeginFill(r, m.Items(), m.GetSize(), "SetWeights failed");
    } else {
        OnListStart(r);
    }
}

void XmlNetLoader::OnWeightsEnd(IXmlReader* r) {
    if (node_ < 0) return;
    if (kind_ == kMau || kind_ == kMaux) return OnFillEnd(r);
    int res = VEK_OUT_OF_RANGE;
    if (kind_ == kDemorgan) {
        res = static_cast<VEK_demorgan*>(Def())->SetParentWeights(ToDoubleArray(doubles_));
    } else if (kind_ == kNoisyAdder) {
        res = static_cast<VEK_noisyAdder*>(Def())->SetParentWeights(ToDoubleArray(doubles_));
    }
    if (res < 0) Fail(r, "SetParentWeights failed", nodeId_);
}

void XmlNetLoader::OnResultingStatesStart(IXmlReader* r) {
    if (!Commit(r)) return;
    VEK_Dmatrix& m = Def()->GetWriteableParameters();
    outcomeCount_ = Def()->GetNumberOfOutcomes();
    BeginFill(r, m.Items(), outcomeCount_ > 0 ? m.GetSize() / outcomeCount_ : 0, "SetResultingStates failed");
}

void XmlNetLoader::OnResultingStateItem(IXmlReader* r) {
    if (!fill_) return;
    const std::string& item = r->GetContent();
    const auto* disc = static_cast<const VEK_discDef*>(Def());
    int state = disc->FindOutcome(item.c_str());
    if (state < 0) {
        int index = 0;
        if (ParseWholeInt(item, index)) {
            if (index < 0 || index >= outcomeCount_) return Fail(r, "Invalid outcome identifier", item);
            state = index;
        } else if (VEK_isValidIdentifier(item)) {
            return Fail(r, "Invalid outcome identifier", item);
        } else {
            return Fail(r, "Invalid outcome index, expected an integer", item);
        }
    }
    if (fillCount_ >= fillSize_) return Fail(r, fillFailure_, nodeId_);
    double* column = fill_ + static_cast<size_t>(fillCount_) * outcomeCount_;
    for (int i = 0; i < outcomeCount_; ++i) column[i] = 0.0;
    column[state] = 1.0;
    ++fillCount_;
}

void XmlNetLoader::OnResultingStatesEnd(IXmlReader* r) { OnFillEnd(r); }

void XmlNetLoader::OnExpressionEnd(IXmlReader* r) {
    r->GetUnescapedContent(text_);
    expressions_.push_back(text_);
    hasExpressions_ = true;
}

void XmlNetLoader::OnStrengthsEnd(IXmlReader* r) {
    if (node_ < 0) return;
    auto* def = static_cast<VEK_noisyMAX*>(Def());
    const int parent = strengthsRead_++;
    const int m = parent < def->GetNumberOfParents() ? def->GetParentOutcomeCount(parent) : -1;
    // Each item is the position of that outcome in the strength order.
    bool ok = m >= 0 && static_cast<int>(ints_.size()) == m;
    VEK_intArray order(m > 0 ? m : 0);
    for (int k = 0; ok && k < m; ++k) order[k] = -1;
    for (int j = 0; ok && j < m; ++j) {
        int pos = ints_[j];
        if (pos < 0 || pos >= m || order[pos] != -1) {
            ok = false;
        } else {
            order[pos] = j;
        }
    }
    if (!ok || def->SetParentOutcomeStrengths(parent, order) < 0) {
        Fail(r, "SetParentOutcomeStrengths failed", nodeId_);
    }
}

void XmlNetLoader::OnDstatesEnd(IXmlReader* r) {
    if (node_ < 0) return;
    auto* def = static_cast<VEK_noisyAdder*>(Def());
    const int parents = def->GetNumberOfParents();
    const int n = static_cast<int>(ints_.size());
    int first = 0;
    if (n == parents + 1) {
        if (def->SetDistinguishedState(ints_[0]) < 0) return Fail(r, "SetDistinguishedState call fails", nodeId_);
        first = 1;
    } else if (n != parents) {
        return Fail(r, "SetParentDistinguishedState call fails", nodeId_);
    }
    for (int i = 0; i < parents; ++i) {
        if (def->SetParentDistinguishedState(i, ints_[first + i]) < 0) {
            return Fail(r, "SetParentDistinguishedState call fails", nodeId_);
        }
    }
}

void XmlNetLoader::OnTypesEnd(IXmlReader* r) {
    if (node_ < 0) return;
    VEK_intArray types;
    for (const std::string& w : words_) {
        int t = VEK_demorgan::ParentTypeFromName(w.c_str());
        if (t < 0) return Fail(r, "SetParentTypes failed", w);
        types.Add(t);
    }
    if (static_cast<VEK_demorgan*>(Def())->SetParentTypes(types) < 0) Fail(r, "SetParentTypes failed", nodeId_);
}

void XmlNetLoader::OnPweightsEnd(IXmlReader* r) {
    if (node_ < 0) return;
    if (static_cast<VEK_cast*>(Def())->SetPositiveWeights(ToDoubleArray(doubles_)) < 0) {
        Fail(r, "SetPositiveWeights failed", nodeId_);
    }
}

void XmlNetLoader::OnNweightsEnd(IXmlReader* r) {
    if (node_ < 0) return;
    if (static_cast<VEK_cast*>(Def())->SetNegativeWeights(ToDoubleArray(doubles_)) < 0) {
        Fail(r, "SetNegativeWeights failed", nodeId_);
    }
}

void XmlNetLoader::OnPriorBeliefEnd(IXmlReader* r) {
    if (!Commit(r)) return;
    double v = 0.0;
    if (!ParseText(r, v)) return Fail(r, "Can't read prior belief", nodeId_);
    if (static_cast<VEK_demorgan*>(Def())->SetPriorBelief(v) < 0) Fail(r, "SetPriorBelief failed", nodeId_);
}

void XmlNetLoader::OnBaselineEnd(IXmlReader* r) {
    if (!Commit(r)) return;
    double v = 0.0;
    if (!ParseText(r, v)) return Fail(r, "Can't read baseline", nodeId_);
    if (static_cast<VEK_cast*>(Def())->SetBaseline(v) < 0) Fail(r, "SetBaseline failed", nodeId_);
}

// ============================================================== observation costs

void XmlNetLoader::OnCostNodeStart(IXmlReader* r) {
    std::string id;
    r->GetAttribute("id", id);
    costNode_ = FindNode(id);
    costFilled_ = false;
    if (costNode_ < 0) Fail(r, "Invalid node identifier", id);
}

void XmlNetLoader::OnCostParentsStart(IXmlReader*) {}

void XmlNetLoader::OnCostParentItem(IXmlReader* r) {
    if (costNode_ < 0) return;
    const std::string& id = r->GetContent();
    const std::string& child = net_.GetNodeId(costNode_);
    if (costFilled_) return Fail(r, "Cost parents must come before the costs of node", child);
    int p = FindNode(id);
    if (p < 0) return Fail(r, "Node parent not found: ", id);
    const VEK_nodeDef* def = net_.GetDef(p);
    long long size = net_.GetNode(costNode_)->GetCost().GetSize();
    int outcomes = def ? def->GetNumberOfOutcomes() : 1;
    if (maxItems_ > 0 && size * (outcomes > 0 ? outcomes : 1) > static_cast<long long>(maxItems_)) {
        return Fail(r, "Definition is larger than the document can hold", child);
    }
    int res;
    try {
        res = net_.AddArc(p, costNode_, 1);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        res = VEK_OUT_OF_MEMORY;
    }
    ThrowIfOutOfMemory(res);
    if (res < 0) Fail(r, "AddArc failed", id + " -> " + child);
}

void XmlNetLoader::OnCostStart(IXmlReader* r) {
    if (costNode_ < 0) return;
    VEK_Dmatrix& m = net_.GetNode(costNode_)->MutableCost();
    costFilled_ = true;
    nodeId_ = net_.GetNodeId(costNode_);
    BeginFill(r, m.Items(), m.GetSize(), "SetCosts failed");
}

void XmlNetLoader::OnCostItem(IXmlReader* r) {
    if (!fill_) return;
    double v = VEK_NOT_AVAILABLE_VALUE;
    if (r->GetContent() != "n/a" && !ParseItem(r, v, "cost")) return;
    if (fillCount_ >= fillSize_) return Fail(r, fillFailure_, nodeId_);
    fill_[fillCount_++] = v;
}

void XmlNetLoader::OnCostEnd(IXmlReader* r) {
    if (!fill_) return;
    fill_ = nullptr;
    if (fillCount_ != fillSize_) Fail(r, fillFailure_, nodeId_);
}

// ============================================================== cases

int XmlNetLoader::AttributeNode(IXmlReader* r) {
    r->GetAttribute("node", text_);
    int h = FindNode(text_);
    if (h < 0) Fail(r, "Invalid node identifier", text_);
    return h;
}

// A slice (0 or more) is allowed for plate nodes only, below the slice count.
bool XmlNetLoader::ReadSlice(IXmlReader* r, int node, int& slice, const char* failure) {
    if (!r->GetAttribute("slice", slice, -1)) return false;
    if (slice < -1 || (slice >= 0 && (net_.GetNode(node)->GetTemporalType() != 3 ||
                                      slice >= net_.GetNumberOfSlices()))) {
        Fail(r, failure, net_.GetNodeId(node));
        return false;
    }
    return true;
}

void XmlNetLoader::OnCaseStart(IXmlReader* r) {
    case_ = nullptr;
    std::string name;
    r->GetAttribute("name", name);
    if (name.empty()) return Fail(r, "Invalid case name", name);
    int index = net_.Cases().Add(name.c_str());
    if (index < 0) return Fail(r, "Duplicate case name", name);
    VEK_case* c = net_.Cases().Get(index);
    r->GetAttribute("category", c->category);
    for (const char* attribute : {"created", "modified"}) {
        std::string text;
        r->GetAttribute(attribute, text);
        long long value = 0;
        if (!text.empty() && !ParseLongLong(text, value)) {
            std::string message = "Integer value expected for attribute '";
            message += attribute;
            message += "'";
            return Fail(r, message.c_str());
        }
        (attribute[0] == 'c' ? c->created : c->lastModified) = value;
    }
    case_ = c;
}

void XmlNetLoader::OnCaseDescriptionEnd(IXmlReader* r) {
    if (case_) r->GetUnescapedContent(case_->description);
}

void XmlNetLoader::OnEvidenceStart(IXmlReader* r) {
    if (!case_) return;
    int node = AttributeNode(r);
    if (node < 0) return;
    const char* failure = "Cannot add case evidence for node";
    VEK_caseEvidence item;
    item.node = node;
    if (!ReadSlice(r, node, item.slice, failure)) return;
    std::string state;
    std::string valueText;
    r->GetAttribute("state", state);
    r->GetAttribute("value", valueText);
    if (!valueText.empty()) {
        if (!r->GetAttribute("value", item.value, 0.0)) return;
        item.type = VEK_CASE_CONTINUOUS;
    }
    if (!state.empty()) {
        const VEK_idArray* ids = net_.GetDef(node)->GetOutcomeIds();
        if (!ids) return Fail(r, failure, net_.GetNodeId(node));
        int outcome = ids->FindPosition(state.c_str());
        if (outcome < 0) {
            if (!ParseWholeInt(state, outcome) || outcome < 0 || outcome >= ids->GetSize()) {
                return Fail(r, "Invalid outcome identifier", state);
            }
        }
        item.outcome = outcome;
    } else if (valueText.empty()) {
        return Fail(r, failure, net_.GetNodeId(node));
    }
    case_->SetEvidence(item);
}

void XmlNetLoader::OnVirtualEvidenceStart(IXmlReader* r) {
    fill_ = nullptr;
    doubles_.clear();
    doubleList_ = &doubles_;
    evidence_ = VEK_caseEvidence();
    evidence_.node = -1;
    if (!case_) return;
    int node = AttributeNode(r);
    if (node < 0) return;
    if (!ReadSlice(r, node, evidence_.slice, "Can't add case temporal virtual evidence for node")) return;
    evidence_.node = node;
    evidence_.type = VEK_CASE_VIRTUAL;
}

void XmlNetLoader::OnVirtualEvidenceEnd(IXmlReader* r) {
    if (!case_ || evidence_.node < 0) return;
    const int n = net_.GetDef(evidence_.node)->GetNumberOfOutcomes();
    if (static_cast<int>(doubles_.size()) != n) {
        return Fail(r,
                    evidence_.slice >= 0 ? "Can't add case temporal virtual evidence for node"
                                         : "Can't add case virtual evidence for node",
                    net_.GetNodeId(evidence_.node));
    }
    evidence_.virtualEvidence = doubles_;
    case_->SetEvidence(evidence_);
}

void XmlNetLoader::OnCaseTargetStart(IXmlReader* r) {
    if (!case_) return;
    int node = AttributeNode(r);
    if (node < 0) return;
    for (int t : case_->targets) {
        if (t == node) return Fail(r, "Can't add target node", net_.GetNodeId(node));
    }
    case_->targets.push_back(node);
}

// ============================================================== entry

int XmlLoad(const char* path, const char* text, VEK_network* net, IXmlBinding* userExtension) {
    if (!net) return VEK_OUT_OF_RANGE;
    if ((path == nullptr) == (text == nullptr)) {
        return net->Logger().LogError(VEK_OUT_OF_RANGE, "Give either a file name or a text to read");
    }
    XmlErrorHandler errors(path, &net->Logger());
    FILE* file = nullptr;
    size_t size = 0;
    if (path) {
        file = VEK_fopen(path, "rb");
        if (!file) {
            std::string message = "Can't open file ";
            message += path;
            errors.OnParseError(message.c_str(), 0, 0);
            return VEK_FILE_READ_ERROR;
        }
        if (std::fseek(file, 0, SEEK_END) == 0) {
            long end = std::ftell(file);
            if (end > 0) size = static_cast<size_t>(end);
        }
        std::rewind(file);
        // An unseekable stream has no known size: bound tables by a large one.
        if (size == 0) size = static_cast<size_t>(1) << 31;
    } else {
        size = std::strlen(text) + 1;
    }
    int result = VEK_OKAY;
    try {
        VEK_relevanceDelay delay(*net);
        VEK_updateImmediateContext scope(*net);
        XmlReader reader;
        XmlNetLoader loader(*net, size);
        std::unique_ptr<XmlTovraLoader> tovra;
        IXmlBinding* extension = userExtension;
        if (!extension) {
            tovra = std::make_unique<XmlTovraLoader>(*net);
            extension = tovra->GetBinding();
        }
        IXmlBinding* root = loader.BuildSchema(extension);
        bool ok;
        if (file) {
            XmlInputFileStream stream(file);
            ok = reader.ParseStream(&stream, root, &errors);
        } else {
            ok = reader.ParseString(text, root, &errors);
        }
        if (ok) {
            errors.CheckAndDisplayNewVerWarning();
        } else {
            result = VEK_FILE_IO_FAILED;
        }
    } catch (const std::bad_alloc&) {
        result = net->Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while reading the network");
    }
    if (file) std::fclose(file);
    return result;
}
