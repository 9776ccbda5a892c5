// Shared core of the Python wrapper layer: the module's exception type, the
// enumerations and value records seen from Python, and the helpers that every
// binding uses to validate and convert arguments or to raise on failure.
//
// Every Wrp::Wrp<Operation> function takes the engine object first, checks it
// with ValidateObject, validates its arguments with the helpers below, calls
// the engine and turns a failed status into a quarn_exception labelled
// "Network." + the engine operation's name.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "network/caseManager.h"
#include "network/discDef.h"
#include "network/dmatrix.h"
#include "network/doubleArray.h"
#include "network/idArray.h"
#include "network/identifier.h"
#include "network/intArray.h"
#include "network/logger.h"
#include "network/status.h"
#include "network/network.h"
#include "network/screenInfo.h"
#include "network/stringArray.h"
#include "network/userProperties.h"
#include "inference/algorithmParams.h"
#include "pyWrapper.h"

// The one exception type of the wrapper layer; translated into the Python
// QUARNException with `code` as its error_code. The full text is kept beside
// what() so that a message holding a NUL character reaches Python whole.
class quarn_exception : public std::runtime_error {
public:
    quarn_exception(int code, const std::string& message)
        : std::runtime_error(message), code(code), message_(message) {}
    const std::string& message() const { return message_; }

    int code;
    // Why the call was refused, attached to the Python exception as a note
    // where the message itself is fixed to a bare code.
    std::string note;

private:
    std::string message_;
};

namespace Wrp {

// The module's version, also reported as the library build.
constexpr const char* kLibraryVersion = "2.4.7";

// ---- enumerations -----------------------------------------------------------
// Unscoped enums inside structs: members compare equal to plain ints from
// Python, and names such as NONE cannot clash between enumerations. Where a
// member is an engine constant it is taken from the engine.

struct NodeType {
    enum Value : int {
        CPT = VEK_CPT,
        TRUTH_TABLE = VEK_TRUTHTABLE,
        DECISION = VEK_LIST,
        UTILITY = VEK_TABLE,
        MAU = VEK_MAU,
        NOISY_MAX = VEK_NOISY_MAX,
        EQUATION = VEK_EQUATION,
        DEMORGAN = VEK_DEMORGAN,
    };
};

struct BayesianAlgorithmType {
    enum Value : int {
        LAURITZEN = VEK_ALG_BN_LAURITZEN,
        HENRION = VEK_ALG_BN_HENRION,
        PEARL = VEK_ALG_BN_PEARL,
        L_SAMPLING = VEK_ALG_BN_LSAMPLING,
        SELF_IMPORTANCE = VEK_ALG_BN_SELFIMPORTANCE,
        HEURISTIC_IMPORTANCE = VEK_ALG_BN_HEURISTICIMPORTANCE,
        BACK_SAMPLING = VEK_ALG_BN_BACKSAMPLING,
        AIS_SAMPLING = VEK_ALG_BN_AISSAMPLING,
        EPIS_SAMPLING = VEK_ALG_BN_EPISSAMPLING,
        LBP = VEK_ALG_BN_LBP,
    };
};

struct InfluenceDiagramAlgorithmType {
    enum Value : int { POLICY_EVALUATION = VEK_ALG_ID_COOPER, FIND_BEST_POLICY = VEK_ALG_ID_SHACHTER };
};

struct DeMorganParentType {
    enum Value : int { INHIBITOR = 0, REQUIREMENT = 1, CAUSE = 2, BARRIER = 3 };
};

struct NodeTemporalType {
    enum Value : int {
        CONTEMPORAL = VEK_TEMPORAL_CONTEMPORAL,
        ANCHOR = VEK_TEMPORAL_ANCHOR,
        TERMINAL = VEK_TEMPORAL_TERMINAL,
        PLATE = VEK_TEMPORAL_PLATE,
    };
};

struct NodeDiagType {
    enum Value : int { FAULT = VEK_DIAG_FAULT, OBSERVATION = VEK_DIAG_OBSERVATION, AUXILIARY = VEK_DIAG_AUXILIARY };
};

struct MultiFaultAlgorithmType {
    enum Value : int {
        INDEPENDENCE_AT_LEAST_ONE = 10,
        INDEPENDENCE_ONLY_ONE = 18,
        INDEPENDENCE_ONLY_ALL = 34,
        DEPENDENCE_AT_LEAST_ONE = 20,
        DEPENDENCE_ONLY_ONE = 20,
        DEPENDENCE_ONLY_ALL = 36,
        MARGINAL_1 = 65,
        MARGINAL_2 = 129,
        MAX_PROB_CHANGE = 257,
        L2_NORMALIZED_DISTANCE = 258,
        COSINE_DISTANCE = 259,
        CITYBLOCK_DISTANCE = 260,
        AVG_L2_CITY_DISTANCE = 261,
    };
};

struct SingleFaultAlgorithmType {
    enum Value : int { NORM_CROSSENTROPY = 512, CROSSENTROPY = 1024, PROB_CHANGE = 2048 };
};

struct CaseEvidenceType {
    enum Value : int { DISCRETE = 0, CONTINUOUS = 1, VIRTUAL = 2 };
};

struct EdgeType {
    enum Value : int { DIRECTED = 2, UNDIRECTED = 1, NONE = 0 };
};

struct DiscretizationAlgorithmType {
    enum Value : int { HIERARCHICAL = 0, UNIFORM_COUNT = 2, UNIFORM_WIDTH = 1 };
};

// ---- value records ------------------------------------------------------------
// Plain records exchanged by the Wrp functions; the Py classes below add the
// wrapper base and are what Python sees.

struct UserProperty {
    std::string name;
    std::string value;
    bool operator==(const UserProperty&) const = default;
};

struct DocItemInfo {
    std::string title;
    std::string path;
    bool operator==(const DocItemInfo&) const = default;
};

struct TemporalInfo {
    int parent_handle = -1;
    std::string parent_id;
    int order = 0;
    bool operator==(const TemporalInfo&) const = default;
};

struct DiscretizationInterval {
    std::string id;
    double upper_bound = 0.0;
    bool operator==(const DiscretizationInterval&) const = default;
};

struct CaseEvidence {
    CaseEvidenceType::Value type = CaseEvidenceType::DISCRETE;
    int outcome = -1;
    double value = 0.0;
    std::vector<double> virtual_evidence;
    int slice = -1;  // -1: not a temporal item
    bool operator==(const CaseEvidence&) const = default;
};

// Defaults are the engine's own.
inline constexpr VEK_EPISParams kEPISDefaults{};
inline constexpr VEK_AnnealedMAPParams kAnnealedMapDefaults{};
inline constexpr VEK_LBPParams kLBPDefaults{};

struct EPISParams {
    int propagation_length = kEPISDefaults.propagationLength;
    int num_state_small = kEPISDefaults.numStateSmall;
    int num_state_medium = kEPISDefaults.numStateMedium;
    int num_state_big = kEPISDefaults.numStateBig;
    double state_small_epsil = kEPISDefaults.stateSmallEpsil;
    double state_medium_epsil = kEPISDefaults.stateMediumEpsil;
    double state_big_epsil = kEPISDefaults.stateBigEpsil;
    double state_otherwise = kEPISDefaults.stateOtherwise;
    bool operator==(const EPISParams&) const = default;
};

// Loopy belief propagation: sweeps until no message moves by more than the
// tolerance, at most max_iterations of them; damping keeps that share of a
// message's previous value.
struct LBPParams {
    int max_iterations = kLBPDefaults.maxIterations;
    double tolerance = kLBPDefaults.tolerance;
    double damping = kLBPDefaults.damping;
    bool operator==(const LBPParams&) const = default;
};

struct AnnealedMapTuning {
    double speed = kAnnealedMapDefaults.speed;
    double t_min = kAnnealedMapDefaults.tMin;
    double t_init = kAnnealedMapDefaults.tInit;
    double k_reheat = kAnnealedMapDefaults.kReheat;
    int k_map = kAnnealedMapDefaults.kMAP;
    double k_r_factor = kAnnealedMapDefaults.kRFactor;
    int stop_after = kAnnealedMapDefaults.stopAfter;
    int iterations_per_temperature = kAnnealedMapDefaults.iterationsPerTemperature;
    bool operator==(const AnnealedMapTuning&) const = default;
};

// ---- raising -----------------------------------------------------------------------

// "QUARN Error <code> in function <function>[. <message>]".
[[noreturn]] void ThrowQuarnException(int code, const char* function, const char* message = nullptr);
[[noreturn]] void ThrowQuarnExceptionWithMessage(int code, const char* function, const std::string& message);
// The message is every logged error message, each preceded by a line feed.
[[noreturn]] void ThrowQuarnExceptionWithLog(int code, const char* function, const VEK_logger& logger);
void ValidateResult(int code, const char* function);
void ValidateResultWithMessage(int code, const char* function, const std::string& message);

// Strings reach the engine as C strings: a NUL inside would silently cut
// them short, so it is refused with -4, naming what held it.
void ValidateText(const std::string& text, const char* function, const char* what = "Text");

// ---- logging ----------------------------------------------------------------------

// The redirect that redirect_log installs: it forwards every message to the
// chosen stream and keeps those of the call under way, so that exception
// texts stay complete while the log goes elsewhere.
class LogTee : public VEK_loggerRedirect {
public:
    explicit LogTee(VEK_loggerRedirect* sink);
    void LogError(int code, const char* message) override;
    VEK_loggerRedirect* Clone() const override;
    const std::vector<std::string>& Recent() const { return recent_; }
    void ClearRecent() { recent_.clear(); }

private:
    static constexpr size_t kMaxRecent = 256;
    std::unique_ptr<VEK_loggerRedirect> sink_;
    std::vector<std::string> recent_;
};

// Clears the network's logged messages before a call, including those a
// redirect kept.
void ClearLog(VEK_logger& logger);

// Throws code -1 "QUARN Error Occured. Passed object is NULL" for null.
void ValidateObject(const void* object);
template <class T>
T& Deref(T* object) {
    ValidateObject(object);
    return *object;
}

// ---- validation ---------------------------------------------------------------------

void ValidateNodeHandle(const VEK_network& net, int handle);
// Returns the handle of the node bearing id.
int ValidateNodeId(const VEK_network& net, const std::string& id);
void ValidateCase(const VEK_network& net, int index);
void ValidateOutcomeIndex(const VEK_network& net, int handle, int index);
// Returns the index of the outcome bearing id.
int ValidateOutcomeId(const VEK_network& net, int handle, const std::string& id);
void ValidateSlice(const VEK_network& net, int slice);
void ValidateId(const std::string& id);
void EnsureNodeValueValid(const VEK_network& net, int handle);
void ValidatePatternEdgeIndex(int index, int size);
void ValidatePatternEdgeType(int value);

// Validated access to a node and its parts (ValidateNodeHandle first).
VEK_node& GetNode(const VEK_network& net, int handle);
VEK_nodeDef& GetDef(const VEK_network& net, int handle);
VEK_nodeVal& GetVal(const VEK_network& net, int handle);
// The discrete-outcome layer of a node's definition; code -51 labelled with
// function when the definition has none.
VEK_discDef& GetDiscDef(const VEK_network& net, int handle, const char* function);
// Outcome count of the node's definition (0 when it has no outcomes).
int GetOutcomeCount(const VEK_network& net, int handle);

// ---- conversion ---------------------------------------------------------------------

std::vector<std::string> HandlesToIds(const VEK_network& net, const std::vector<int>& handles);
std::vector<std::string> HandlesToIds(const VEK_network& net, const VEK_intArray& handles);
std::vector<int> IdsToHandles(const VEK_network& net, const std::vector<std::string>& ids);
std::vector<std::string> IdArrayToVector(const VEK_stringArray& ids);
// Status of the array: -2 when an id is refused (invalid or duplicated).
int VectorToIdArray(const std::vector<std::string>& ids, VEK_idArray& out);
std::vector<int> IntArrayToVector(const VEK_intArray& items);
VEK_intArray VectorToIntArray(const std::vector<int>& items);
std::vector<double> DoubleArrayToVector(const VEK_doubleArray& items);
std::vector<double> DoubleArrayToVector(const VEK_Dmatrix& matrix);
VEK_doubleArray VectorToDoubleArray(const std::vector<double>& items);
std::string CopyConstCharPtr(const char* text);

// Rectangles: Python gives the top-left corner, the engine keeps the centre
// (x + width / 2, truncating integer division).
std::vector<int> GetPosition(const VEK_rectangle& rect);
std::vector<int> GetPosition(const VEK_screenInfo& info);
VEK_rectangle MakeRectangle(int x, int y, int width, int height);
// A list form of a position: exactly four ints, otherwise ValidateResult(1,
// function) with function naming the Python call.
VEK_rectangle MakeRectangle(const std::vector<int>& position, const char* function);

// Records, one function per direction.
std::vector<UserProperty> UserPropertiesToVector(const VEK_userProperties& props);
void VectorToUserProperties(const std::vector<UserProperty>& items, VEK_userProperties& out);
std::vector<DocItemInfo> DocumentationToVector(const VEK_documentation& doc);
void VectorToDocumentation(const std::vector<DocItemInfo>& items, VEK_documentation& out);
TemporalInfo MakeTemporalInfo(const VEK_network& net, int parentHandle, int order);
CaseEvidence CaseEvidenceFromEngine(const VEK_caseEvidence& item);
VEK_caseEvidence CaseEvidenceToEngine(const CaseEvidence& item, int node);
EPISParams EPISParamsFromEngine(const VEK_EPISParams& p);
VEK_EPISParams EPISParamsToEngine(const EPISParams& p);
LBPParams LBPParamsFromEngine(const VEK_LBPParams& p);
// The engine's record with the given settings; the fields Python does not
// see keep the values of base.
VEK_LBPParams LBPParamsToEngine(const LBPParams& p, const VEK_LBPParams& base);
AnnealedMapTuning AnnealedMapTuningFromEngine(const VEK_AnnealedMAPParams& p);
VEK_AnnealedMAPParams AnnealedMapTuningToEngine(const AnnealedMapTuning& p);

// Py record lists <-> Wrp record lists (the Py classes derive from the Wrp ones).
template <class Rec, class PyRec>
std::vector<Rec> FromPyRecords(const std::vector<PyRec>& items) {
    return std::vector<Rec>(items.begin(), items.end());
}
template <class PyRec, class Rec>
std::vector<PyRec> ToPyRecords(const std::vector<Rec>& items) {
    std::vector<PyRec> out;
    out.reserve(items.size());
    for (const Rec& r : items) out.emplace_back(r);
    return out;
}

}  // namespace Wrp

// ---- the record classes seen from Python ----------------------------------------------

template <class Rec>
class PyRecord : public PyWrapper, public Rec {
public:
    PyRecord() = default;
    PyRecord(const Rec& r) : PyWrapper(), Rec(r) {}
    PyRecord(const PyRecord& other) : PyWrapper(), Rec(other) {}
    PyRecord& operator=(const PyRecord& other) {
        Rec::operator=(other);
        return *this;
    }
    bool operator==(const PyRecord& other) const {
        return static_cast<const Rec&>(*this) == static_cast<const Rec&>(other);
    }
};

using PyUserProperty = PyRecord<Wrp::UserProperty>;
using PyDocItemInfo = PyRecord<Wrp::DocItemInfo>;
using PyTemporalInfo = PyRecord<Wrp::TemporalInfo>;
using PyDiscretizationInterval = PyRecord<Wrp::DiscretizationInterval>;
using PyCaseEvidenceInfo = PyRecord<Wrp::CaseEvidence>;
using PyEPISParams = PyRecord<Wrp::EPISParams>;
using PyLBPParams = PyRecord<Wrp::LBPParams>;
using PyAnnealedMapTuning = PyRecord<Wrp::AnnealedMapTuning>;
