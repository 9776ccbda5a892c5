// Reading the XML network format: the schema of the document as bindings to
// the loader's own handlers, which build the network while expat parses.
//
// Tables are never held as text: each number of a definition list is parsed
// as the reader hands it over and stored straight into the definition's
// matrix. A node's states, intervals and parents are applied when its first
// definition element starts (or when the node ends), so they must come
// before the definition, as the writer puts them.
//
// Forms settled here (the writer uses the same):
// - evidence `state` is the outcome id; an integer is read as an index;
// - `softevidence` is read as `virtevidence`;
// - `maux` holds one `expression` per expression, and `weights` when they
//   are not all 1;
// - `cast` and `demorgan` accept `state` for outcome ids that are not the
//   defaults; `noisymax` takes `synchronized`, `noisyadder` `dstate` (the
//   node's distinguished state) and `dstates` of one per parent (a list one
//   longer starts with the node's own);
// - `dynamic` holds one `cpt` (or `node`) element per plate node and
//   temporal order, with the temporal parents of that order in `parents` and
//   the table of that order in `probabilities`, or one `noisymax` element
//   with the strengths of those parents and the order's CI weights in
//   `parameters`, or one `demorgan` or `noisyadder` element in the static
//   element's form over the order's parents, or one `equation` element per
//   equation plate node and order with `parents` and the order's equation in
//   `definition`; other kinds are refused;
// - an `equation` node's bounds are set before its equation, and its
//   `discretization` after both.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "network/caseManager.h"
#include "network/doubleArray.h"
#include "network/intArray.h"
#include "xml/xmlHandler.h"

class VEK_network;
class VEK_nodeDef;
class IXmlReader;

class XmlNetLoader {
public:
    // documentSize bounds the tables a document can describe (each number
    // takes at least two bytes); pass 0 when unknown.
    XmlNetLoader(VEK_network& net, size_t documentSize);
    ~XmlNetLoader();
    XmlNetLoader(const XmlNetLoader&) = delete;
    XmlNetLoader& operator=(const XmlNetLoader&) = delete;

    // The document's root binding; extension (may be null, not owned) goes
    // under <extensions>.
    IXmlBinding* BuildSchema(IXmlBinding* extension);

    // Node element kinds.
    enum Kind { kCpt, kDeterministic, kDecision, kUtility, kMau, kMaux, kCast, kDemorgan, kNoisyMax, kNoisyAdder, kEquation };

private:
    struct NodeKind;
    using Handler = XmlHandler<XmlNetLoader>;
    using Callback = void (XmlNetLoader::*)(IXmlReader*);

    Handler* Bind(const char* name, Callback start, Callback end = nullptr, Callback item = nullptr);
    // Stops the parse with "message: 'name'".
    void Fail(IXmlReader* r, const char* message, const std::string& name);
    void Fail(IXmlReader* r, const char* message);
    int FindNode(const std::string& id) const;
    VEK_nodeDef* Def() const;
    [[nodiscard]] bool ParseItem(IXmlReader* r, double& value, const char* element);
    [[nodiscard]] bool ParseIntItem(IXmlReader* r, int& value, const char* element);
    [[nodiscard]] bool ParseText(IXmlReader* r, double& value);

    // ---- document ----
    void OnRootStart(IXmlReader* r);
    void OnNetPropertyStart(IXmlReader* r);
    void OnNetPropertyEnd(IXmlReader* r);
    void OnEpisStart(IXmlReader* r);
    void OnFunctionEnd(IXmlReader* r);
    void OnDynamicStart(IXmlReader* r);
    void OnTemporalStart(IXmlReader* r);
    void OnNoisyTemporalStart(IXmlReader* r);
    void OnDemorganTemporalStart(IXmlReader* r);
    void OnNoisyAdderTemporalStart(IXmlReader* r);
    void OnTemporalListStart(IXmlReader* r);
    void OnTemporalTypesEnd(IXmlReader* r);
    void OnTemporalWeightsEnd(IXmlReader* r);
    void OnTemporalPriorEnd(IXmlReader* r);
    void OnTemporalDstatesEnd(IXmlReader* r);
    // Applies a change to the DeMorgan or noisy-adder parameters of the
    // order being read, once its temporal arcs exist.
    void EditTemporal(IXmlReader* r, const char* failure, const std::function<int(VEK_nodeDef&)>& edit);
    void OnEquationDefStart(IXmlReader* r);
    void OnEquationDefEnd(IXmlReader* r);
    void OnIntervalStart(IXmlReader* r);
    void OnDiscretizationEnd(IXmlReader* r);
    void OnTemporalKindStart(IXmlReader* r);
    void OnTemporalEnd(IXmlReader* r);
    void OnTemporalParentsStart(IXmlReader* r);
    void OnTemporalParentItem(IXmlReader* r);
    void OnTemporalTableStart(IXmlReader* r);
    void OnTemporalTableEnd(IXmlReader* r);
    void OnTemporalEquationEnd(IXmlReader* r);
    // Temporal equations are set once every order of their node exists.
    void OnDynamicEnd(IXmlReader* r);
    void OnTemporalStrengthsStart(IXmlReader* r);
    void OnTemporalStrengthsEnd(IXmlReader* r);
    [[nodiscard]] bool AddTemporalArcs(IXmlReader* r);

    // ---- nodes ----
    void StartNode(IXmlReader* r, Kind kind);
    void EndNode(IXmlReader* r);
    // Applies states, intervals, point values and parents; false when the
    // parse was stopped.
    [[nodiscard]] bool Commit(IXmlReader* r);
    [[nodiscard]] bool CheckTableGrowth(IXmlReader* r, int parent);
    void OnStateStart(IXmlReader* r);
    void OnIntervalsStart(IXmlReader* r);
    void OnPointValuesStart(IXmlReader* r);
    void OnDoubleItem(IXmlReader* r);
    void OnIntItem(IXmlReader* r);
    void OnWordItem(IXmlReader* r);
    void OnParentsStart(IXmlReader* r);
    void OnParentItem(IXmlReader* r);
    void OnNodePropertyStart(IXmlReader* r);
    void OnNodePropertyEnd(IXmlReader* r);

    // Definition lists filled straight into a matrix.
    void BeginFill(IXmlReader* r, double* items, int size, const char* failure);
    void OnFillItem(IXmlReader* r);
    void OnFillEnd(IXmlReader* r);
    void OnProbabilitiesStart(IXmlReader* r);
    void OnUtilitiesStart(IXmlReader* r);
    void OnParametersStart(IXmlReader* r);
    void OnWeightsStart(IXmlReader* r);
    void OnWeightsEnd(IXmlReader* r);
    void OnResultingStatesStart(IXmlReader* r);
    void OnResultingStateItem(IXmlReader* r);
    void OnResultingStatesEnd(IXmlReader* r);
    void OnListStart(IXmlReader* r);
    void ResetLists();
    void OnExpressionEnd(IXmlReader* r);
    void OnStrengthsEnd(IXmlReader* r);
    void OnDstatesEnd(IXmlReader* r);
    void OnTypesEnd(IXmlReader* r);
    void OnPweightsEnd(IXmlReader* r);
    void OnNweightsEnd(IXmlReader* r);
    void OnPriorBeliefEnd(IXmlReader* r);
    void OnBaselineEnd(IXmlReader* r);

    // ---- observation costs ----
    void OnCostNodeStart(IXmlReader* r);
    void OnCostParentsStart(IXmlReader* r);
    void OnCostParentItem(IXmlReader* r);
    void OnCostStart(IXmlReader* r);
    void OnCostItem(IXmlReader* r);
    void OnCostEnd(IXmlReader* r);

    // ---- cases ----
    void OnCaseStart(IXmlReader* r);
    void OnCaseDescriptionEnd(IXmlReader* r);
    void OnEvidenceStart(IXmlReader* r);
    void OnVirtualEvidenceStart(IXmlReader* r);
    void OnVirtualEvidenceEnd(IXmlReader* r);
    void OnCaseTargetStart(IXmlReader* r);
    // The node named by the `node` attribute, or -1 (parse stopped).
    int AttributeNode(IXmlReader* r);
    [[nodiscard]] bool ReadSlice(IXmlReader* r, int node, int& slice, const char* failure);

    VEK_network& net_;
    size_t maxItems_;
    XmlBindingList bindings_;
    std::vector<NodeKind*> kinds_;
    std::unordered_map<std::string, int> ids_;

    // The node being read.
    struct PendingState {
        std::string id;
        std::string label;
        bool fault = false;
    };
    int node_ = -1;
    Kind kind_ = kCpt;
    std::string nodeId_;
    bool committed_ = false;
    std::vector<PendingState> states_;
    std::unordered_set<std::string> stateIds_;
    int defaultState_ = -1;
    bool emptyIds_ = false;
    bool namedIds_ = false;
    bool hasIntervals_ = false;
    bool hasPointValues_ = false;
    std::vector<double> intervals_;
    std::vector<double> pointValues_;
    std::vector<int> parents_;
    std::unordered_set<int> parentSet_;
    bool synchronized_ = false;
    bool hasDstate_ = false;
    int dstate_ = 0;
    int strengthsRead_ = 0;
    std::vector<std::string> expressions_;
    bool hasExpressions_ = false;
    // Discretization intervals of an equation node: label, upper bound.
    std::vector<std::pair<std::string, double>> discIntervals_;
    std::string propertyName_;

    // Small lists collected item by item.
    std::vector<double>* doubleList_ = nullptr;
    std::vector<int>* intList_ = nullptr;
    std::vector<std::string>* wordList_ = nullptr;
    std::vector<double> doubles_;
    std::vector<int> ints_;
    std::vector<std::string> words_;

    // A matrix being filled.
    double* fill_ = nullptr;
    int fillSize_ = 0;
    int fillCount_ = 0;
    const char* fillFailure_ = "";
    int outcomeCount_ = 0;

    // Observation costs.
    int costNode_ = -1;
    bool costFilled_ = false;

    // The temporal definition being read.
    int temporalNode_ = -1;
    int temporalKind_ = 0;  // the element's canonical definition type, 0 for a table
    std::string temporalFunction_;  // noisyadder attributes
    int temporalDstate_ = -1;
    int temporalOrder_ = 0;
    bool temporalArcsAdded_ = false;
    std::vector<int> temporalParents_;
    std::vector<double> temporalTable_;
    struct TemporalEquation {
        int node;
        int order;
        std::string text;
    };
    std::vector<TemporalEquation> temporalEquations_;
    std::vector<VEK_intArray> temporalStrengths_;

    // Cases.
    VEK_case* case_ = nullptr;
    VEK_caseEvidence evidence_;
    std::string text_;
};

// Reads the network from the file at path or from text (exactly one is
// given) into net, which should be empty. userExtension replaces the
// built-in graphical extension when not null. 0 or a negative status; the
// messages go to the network's logger.
[[nodiscard]] int XmlLoad(const char* path, const char* text, VEK_network* net, IXmlBinding* userExtension);
