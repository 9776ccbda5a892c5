// The network: a directed acyclic graph of nodes addressed by handles, with
// submodels, user properties, cases, a logger and the inference settings.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "inference/algorithmParams.h"
#include "inference/randGen.h"
#include "network/caseManager.h"
#include "network/header.h"
#include "network/inferenceSettings.h"
#include "network/intArray.h"
#include "network/logger.h"
#include "network/node.h"
#include "network/screenInfo.h"
#include "network/status.h"
#include "network/stringArray.h"
#include "network/submodelHandler.h"
#include "network/userProperties.h"

class VEK_network;
class VEK_fileFormat;
class VEK_inferenceCache;
class VEK_dynamicNet;

// Owns a network's inference cache (compiled join trees, stored potentials);
// created on first use, never copied with the network.
class VEK_inferenceCacheHolder {
public:
    VEK_inferenceCacheHolder() = default;
    VEK_inferenceCacheHolder(const VEK_inferenceCacheHolder&) {}
    VEK_inferenceCacheHolder& operator=(const VEK_inferenceCacheHolder&) {
        Reset();
        return *this;
    }
    ~VEK_inferenceCacheHolder();
    VEK_inferenceCache& Get() const;
    void Reset();

private:
    mutable VEK_inferenceCache* cache_ = nullptr;
};

// Chooses handles for new nodes instead of the lowest free slot.
class VEK_handleAllocPolicy {
public:
    virtual ~VEK_handleAllocPolicy() = default;
    [[nodiscard]] virtual int AllocateHandle(const VEK_network& net, int type, const char* id) = 0;
};

// Told after every belief update.
class VEK_updateListener {
public:
    virtual ~VEK_updateListener() = default;
    virtual void OnUpdate(VEK_network& net, int result) = 0;
};

// Network option bits.
constexpr unsigned VEK_OPT_NO_CYCLE_TEST = 2;
constexpr unsigned VEK_OPT_DUPLICATE_IDS = 4;

// Inference flag bits.
constexpr unsigned VEK_FLAG_RELEVANCE = 1;
constexpr unsigned VEK_FLAG_DETERMINISTIC_PROPAGATION = 2;
constexpr unsigned VEK_FLAG_UPDATE_IMMEDIATELY = 8;

// Relevance event bits.
constexpr unsigned VEK_REL_ARC_ADDED = 1;
constexpr unsigned VEK_REL_ARC_REMOVED = 2;
constexpr unsigned VEK_REL_EVIDENCE = 4;
constexpr unsigned VEK_REL_DEF_CHANGE_1 = 64;
constexpr unsigned VEK_REL_DEF_CHANGE_2 = 128;
constexpr unsigned VEK_REL_DEF_CHANGE_3 = 256;
unsigned VEK_initRelevanceFlags();

// Marker for observation costs that are not available.
constexpr double VEK_NOT_AVAILABLE_VALUE = 8.900295434028806e-308;

// Bayesian algorithm ids.
constexpr int VEK_ALG_BN_LAURITZEN = 0;
constexpr int VEK_ALG_BN_HENRION = 1;
constexpr int VEK_ALG_BN_PEARL = 2;
constexpr int VEK_ALG_BN_LSAMPLING = 3;
constexpr int VEK_ALG_BN_SELFIMPORTANCE = 4;
constexpr int VEK_ALG_BN_HEURISTICIMPORTANCE = 5;
constexpr int VEK_ALG_BN_BACKSAMPLING = 6;
constexpr int VEK_ALG_BN_AISSAMPLING = 7;
constexpr int VEK_ALG_BN_EPISSAMPLING = 8;
constexpr int VEK_ALG_BN_LBP = 9;
constexpr int VEK_ALG_BN_LAURITZEN_SPLIT = 10;
constexpr int VEK_ALG_BN_LAURITZEN_LINEAR_DECOMP = 11;
constexpr int VEK_ALG_BN_LAURITZEN_RECURSIVE_DECOMP = 12;
// Bayesian algorithm ids are 0 .. VEK_ALG_BN_COUNT - 1.
constexpr int VEK_ALG_BN_COUNT = 13;
constexpr int VEK_ALG_ID_COOPER = 0;
constexpr int VEK_ALG_ID_SHACHTER = 1;

struct VEK_textBox {
    std::string text;
    VEK_rectangle position;
    VEK_font font;
    int submodel = VEK_SUBMODEL_HANDLE_BIT;
    bool operator==(const VEK_textBox&) const = default;
};

class VEK_network {
public:
    VEK_network();
    VEK_network(const VEK_network& other);
    VEK_network& operator=(const VEK_network& other);
    virtual ~VEK_network();

    // Removes all nodes, submodels, cases and properties; resets settings.
    void Clear();

    // ---- files -------------------------------------------------------
    // Picks a reader/writer by format number (1..9) or, for 0, by extension.
    VEK_fileFormat* CreateFileFormat(const char* path, int& format);
    [[nodiscard]] int ReadFile(const char* path, int format = 0, void* extension = nullptr);
    [[nodiscard]] int WriteFile(const char* path, int format = 0, void* extension = nullptr);
    // Strings always use the XML network format.
    [[nodiscard]] int ReadString(const char* text, void* extension = nullptr);
    [[nodiscard]] int WriteString(std::string& out, void* extension = nullptr);
    void BeginRead() { ++reading_; }
    void EndRead() {
        if (reading_ > 0 && --reading_ == 0) InvalidateAllBeliefs();
    }
    bool IsReading() const { return reading_ > 0; }

    // ---- nodes -------------------------------------------------------
    [[nodiscard]] int AddNode(int type, const char* id = nullptr);
    [[nodiscard]] int DeleteNode(int handle);
    void DeleteAllNodes();
    int FindNode(const char* id) const;
    int GetFirstNode() const;
    int GetNextNode(int handle) const;
    int GetLastNode() const;
    int GetNumberOfNodes() const { return nodeCount_; }
    int GetSlotCount() const { return static_cast<int>(nodes_.size()); }
    int GetAllNodes(VEK_intArray& out) const;
    [[nodiscard]] int GetAllNodeIds(VEK_stringArray& out) const;
    bool IsValidNode(int handle) const {
        return handle >= 0 && handle < GetSlotCount() && nodes_[handle] != nullptr;
    }
    VEK_node* GetNode(int handle) const { return IsValidNode(handle) ? nodes_[handle].get() : nullptr; }
    VEK_nodeDef* GetDef(int handle) const { return IsValidNode(handle) ? nodes_[handle]->Definition() : nullptr; }
    VEK_nodeVal* GetVal(int handle) const { return IsValidNode(handle) ? nodes_[handle]->Value() : nullptr; }
    const char* GetNodeId(int handle) const { return IsValidNode(handle) ? nodes_[handle]->GetId() : nullptr; }
    bool IsThisIdentifierInUse(const char* id, int exceptHandle) const;
    [[nodiscard]] int CreateUniqueNodeIdentifier(std::string& out, int start) const;
    [[nodiscard]] int CreateUniqueSubmodelIdentifier(std::string& out, int start) const;
    // Checks and performs a node id change (called through the node header).
    [[nodiscard]] int ChangeNodeId(int handle, const char* id);
    [[nodiscard]] int ChangeOrderOfParents(int handle, const VEK_intArray& newOrder);
    [[nodiscard]] int ChangeNodeType(int handle, int type);
    void SetHandleAllocPolicy(VEK_handleAllocPolicy* policy) { allocPolicy_ = policy; }

    unsigned GetOptions() const { return options_; }
    void SetOptions(unsigned options) { options_ = options; }

    // ---- arcs ---------------------------------------------------------
    [[nodiscard]] int AddArc(int parent, int child, int arcType = 0);
    [[nodiscard]] int TestAddArc(int parent, int child);
    [[nodiscard]] int RemoveArc(int parent, int child, int arcType = 0);
    void RemoveAllArcs();
    [[nodiscard]] int ReverseArc(int parent, int child);
    bool Related(int a, int b) const;
    bool IsAcyclic();
    bool RemainsAcyclic(int parent, int child);
    [[nodiscard]] int GetAncestors(int handle, VEK_intArray& out);
    [[nodiscard]] int GetDescendants(int handle, VEK_intArray& out);
    // Sets VEK_MARK_USER on the ancestors / descendants (not the node itself).
    [[nodiscard]] int MarkAncestors(int handle);
    [[nodiscard]] int MarkDescendants(int handle);
    void ClearAllMarks();
    const VEK_intArray& PartialOrdering();
    [[nodiscard]] int OrderPartially(VEK_intArray& out);
    void InvalidatePartialOrder() { orderValid_ = false; }
    [[nodiscard]] int AddObservCostArc(int parent, int child);
    [[nodiscard]] int RemoveObservCostArc(int parent, int child);

    // ---- header, logger, properties -----------------------------------
    VEK_logger& Logger() { return logger_; }
    const VEK_logger& Logger() const { return logger_; }
    VEK_header& Header() { return header_; }
    const VEK_header& Header() const { return header_; }
    VEK_userProperties& UserProperties() { return userProperties_; }
    const VEK_userProperties& UserProperties() const { return userProperties_; }
    VEK_documentation& Documentation() { return documentation_; }
    const VEK_documentation& Documentation() const { return documentation_; }
    VEK_caseManager& Cases() { return cases_; }
    const VEK_caseManager& Cases() const { return cases_; }
    std::vector<VEK_textBox>& TextBoxes() { return textBoxes_; }
    const std::vector<VEK_textBox>& TextBoxes() const { return textBoxes_; }
    std::vector<std::string>& ExtFunctions() { return extFunctions_; }
    const std::vector<std::string>& ExtFunctions() const { return extFunctions_; }

    // ---- submodels ------------------------------------------------------
    VEK_submodelHandler& Submodels() { return submodels_; }
    const VEK_submodelHandler& Submodels() const { return submodels_; }
    [[nodiscard]] int AddSubmodel(int parentSubmodel, const char* id);
    [[nodiscard]] int DeleteSubmodel(int handle);
    [[nodiscard]] int SetSubmodelId(int handle, const char* id);
    [[nodiscard]] int MoveSubmodel(int handle, int newParent);
    [[nodiscard]] int SetNodeSubmodel(int node, int submodel);

    // ---- outcome notifications from definitions --------------------------
    void OnAddOutcome(int handle, int outcome);
    void OnDeleteOutcome(int handle, int outcome);
    void OnReorderOutcomes(int handle, const VEK_intArray& order);
    void OnOutcomeCountChanged(int handle);
    void OnDefinitionChanged(int handle);

    // ---- evidence and targets --------------------------------------------
    int ClearAllEvidence();
    [[nodiscard]] int SetTarget(int handle, bool on);
    bool IsTarget(int handle) const;
    int ClearAllTargets();
    int GetTargetCount() const { return targetCount_; }

    // ---- update cycle ----------------------------------------------------
    [[nodiscard]] int UpdateBeliefs();
    [[nodiscard]] int DoUpdateBeliefs();
    [[nodiscard]] int CallBNAlgorithm();
    [[nodiscard]] int CallIDAlgorithm();
    int InvalidateAllBeliefs();
    [[nodiscard]] int SetUpdateImmediate(bool on);
    bool IsUpdateImmediate() const { return (settings_.flags & VEK_FLAG_UPDATE_IMMEDIATELY) != 0; }
    bool IsUpdating() const { return updating_ != 0; }
    void SetUpdateListener(VEK_updateListener* l) { listener_ = l; }
    // Immediate-update scopes: the update runs when the outermost closes.
    void BeginUpdateScope() { ++scopeDepth_; }
    void EndUpdateScope();
    // Drops the potentials stored by the last join-tree run.
    void RemoveJpts();
    // Probability of the evidence (hard evidence, with virtual evidence as
    // likelihoods and controlled values as interventions): taken from the
    // last update when it computed it, else by its own join-tree run.
    [[nodiscard]] int ProbEvidence(double& p);
    // Compiled join trees, stored potentials and the like.
    VEK_inferenceCache& InferenceCache() const { return infCache_.Get(); }
    // Changes a target flag without invalidating beliefs (decompositions set
    // batches of targets inside one update).
    void SetTargetQuiet(int handle, bool on);
    // A node's structure or table changed.
    void NodeChanged(int handle);

    // Relevance hooks, called whenever the model changes.
    [[nodiscard]] int RelevanceEvidenceSet(int handle);
    [[nodiscard]] int RelevanceEvidenceCleared(int handle);
    [[nodiscard]] int RelevanceVirtualEvidenceSet(int handle);
    [[nodiscard]] int RelevanceVirtualEvidenceCleared(int handle);
    [[nodiscard]] int RelevanceContEvidenceChanged(int handle);
    int RelevanceControlValue(int handle);
    int RelevanceClearControlledValue(int handle);
    int RelevanceArcAdded(int parent, int child);
    int RelevanceArcRemoved(int parent, int child);
    [[nodiscard]] int RelevanceEvidencePropagated(int handle);
    [[nodiscard]] int RelevancePropagatedEvidenceCleared(int handle);
    int RelevanceDefinitionChanged(int handle, unsigned what);

    // Value flags (VEK_VALUE_*) that some node's value may hold: set as
    // values take them, narrowed by the walks over all values. A network-wide
    // walk that can only change values holding one of them is skipped when
    // none can, which keeps building a large network linear.
    void NoteValueFlags(int flags) { valueFlagsSeen_ |= static_cast<unsigned>(flags); }
    unsigned ValueFlagsSeen() const { return valueFlagsSeen_; }

    // ---- settings ----------------------------------------------------------
    int GetDefaultBNAlgorithm() const { return settings_.bnAlgorithm; }
    void SetDefaultBNAlgorithm(int id) { if (id >= 0 && id < VEK_ALG_BN_COUNT) settings_.bnAlgorithm = id; }
    int GetDefaultIDAlgorithm() const { return settings_.idAlgorithm; }
    void SetDefaultIDAlgorithm(int id) { if (id == 0 || id == 1) settings_.idAlgorithm = id; }
    int GetNumberOfSamples() const { return settings_.stored.numSamples; }
    [[nodiscard]] int SetNumberOfSamples(int n);
    int GetNumberOfDiscretizationSamples() const { return settings_.stored.numDiscSamples; }
    [[nodiscard]] int SetNumberOfDiscretizationSamples(int n);
    unsigned GetFlags() const { return settings_.flags; }
    void SetFlags(unsigned f) { settings_.flags = f; }
    bool IsRelevanceEnabled() const { return (settings_.flags & VEK_FLAG_RELEVANCE) != 0; }
    void EnableRelevance(bool on) { on ? settings_.flags |= VEK_FLAG_RELEVANCE : settings_.flags &= ~VEK_FLAG_RELEVANCE; }
    unsigned GetRelevanceMask() const { return settings_.relevanceMask; }
    void SetRelevanceMask(unsigned m) { settings_.relevanceMask = m; }
    bool IsZeroAvoidanceEnabled() const { return settings_.stored.zeroAvoidance; }
    void EnableZeroAvoidance(bool on) { settings_.stored.zeroAvoidance = on; }
    bool IsOutlierRejectionEnabled() const { return settings_.stored.outlierRejection; }
    void EnableOutlierRejection(bool on) { settings_.stored.outlierRejection = on; }
    bool IsNoisyDecompEnabled() const { return settings_.stored.noisyDecomp; }
    void EnableNoisyDecomp(bool on) { settings_.stored.noisyDecomp = on; }
    int GetNoisyDecompLimit() const { return settings_.stored.noisyDecompLimit; }
    void SetNoisyDecompLimit(int l) { settings_.stored.noisyDecompLimit = l; }
    int GetRandSeed() const { return settings_.stored.randSeed; }
    void SetRandSeed(int seed) { settings_.stored.randSeed = seed; }
    const VEK_EPISParams& GetEPISParams() const { return settings_.stored.epis; }
    [[nodiscard]] int SetEPISParams(const VEK_EPISParams& p);
    const VEK_LBPParams& GetLBPParams() const { return settings_.lbp; }
    [[nodiscard]] int SetLBPParams(const VEK_LBPParams& p);
    VEK_AnnealedMAPParams& AnnealedMAPParams() { return settings_.annealedMap; }
    VEK_randGen& GetRandGen() { return randGen_; }
    void RestartRandGen() { randGen_.Init(static_cast<unsigned>(settings_.stored.randSeed)); }

    // ---- dynamic networks ------------------------------------------------
    int GetNumberOfSlices() const { return sliceCount_; }
    [[nodiscard]] int SetNumberOfSlices(int n);
    // -51 when the node's arcs do not allow the type.
    [[nodiscard]] int SetTemporalType(int handle, int type);
    // Temporal arcs, temporal definitions and evidence per slice (created on
    // first use; engine/dynamic).
    VEK_dynamicNet& Dynamic();
    VEK_dynamicNet* GetDynamic() const { return dynamic_.get(); }
    bool HasPlateNodes() const;

    // Reads an integer user property; the default when absent or not a number.
    int GetIntProperty(const char* name, int defaultValue) const;

private:
    void CopyFrom(const VEK_network& other);
    // Takes over the model of a network that a reader filled (formats/fileFormat.cpp).
    [[nodiscard]] int TakeOverReadNetwork(VEK_network& fresh);
    [[nodiscard]] int ReadThroughSpeaker(const char* path, const char* text, int format, void* extension);
    void OrderVisit(int handle, VEK_intArray& out);
    bool CycleVisit(int handle);
    // Whether target can be reached from source along arcs.
    bool Reaches(int source, int target);
    // Deletes a node without looking at other values' indexing lists.
    [[nodiscard]] int RemoveNodeSlot(int handle);
    // Node types and temporal types that allow an arc from parent to child.
    [[nodiscard]] int ArcTypesAllowed(int parent, int child) const;
    void IndexNodeId(int handle);
    void UnindexNodeId(int handle);
    void RebuildIdIndex();

    std::vector<std::unique_ptr<VEK_node>> nodes_;
    int nodeCount_ = 0;
    unsigned valueFlagsSeen_ = ~0u;
    // Node id to handle, kept with every add, delete, id change, read and
    // copy. A multimap because duplicate ids can be allowed by an option.
    std::unordered_multimap<std::string, int> idIndex_;
    // Visit stamps of Reaches: a walk touches only the nodes it visits.
    std::vector<unsigned> reachStamp_;
    unsigned reachGeneration_ = 0;
    unsigned options_ = 0;
    VEK_intArray order_;
    bool orderValid_ = false;

    int targetCount_ = 0;
    VEK_inferenceSettings settings_;
    unsigned char updating_ = 0;
    VEK_updateListener* listener_ = nullptr;
    VEK_randGen randGen_;
    int scopeDepth_ = 0;
    bool scopeDirty_ = false;

    VEK_logger logger_;
    VEK_header header_;
    VEK_submodelHandler submodels_;
    VEK_handleAllocPolicy* allocPolicy_ = nullptr;
    VEK_caseManager cases_;
    VEK_userProperties userProperties_;
    VEK_documentation documentation_;
    std::vector<VEK_textBox> textBoxes_;
    std::vector<std::string> extFunctions_;
    int sliceCount_ = 0;
    std::unique_ptr<VEK_dynamicNet> dynamic_;
    int reading_ = 0;
    VEK_inferenceCacheHolder infCache_;
};

// Defers belief updating until the outermost scope closes.
class VEK_updateImmediateContext {
public:
    explicit VEK_updateImmediateContext(VEK_network& net) : net_(net) { net_.BeginUpdateScope(); }
    ~VEK_updateImmediateContext() { net_.EndUpdateScope(); }
    VEK_updateImmediateContext(const VEK_updateImmediateContext&) = delete;
    VEK_updateImmediateContext& operator=(const VEK_updateImmediateContext&) = delete;

private:
    VEK_network& net_;
};

// Turns relevance bookkeeping off for bulk edits inside the scope.
class VEK_relevanceDelay {
public:
    explicit VEK_relevanceDelay(VEK_network& net) : net_(net), wasOn_(net.IsRelevanceEnabled()) {
        if (wasOn_) net_.EnableRelevance(false);
    }
    ~VEK_relevanceDelay() { if (wasOn_) net_.EnableRelevance(true); }
    VEK_relevanceDelay(const VEK_relevanceDelay&) = delete;
    VEK_relevanceDelay& operator=(const VEK_relevanceDelay&) = delete;

private:
    VEK_network& net_;
    bool wasOn_;
};
