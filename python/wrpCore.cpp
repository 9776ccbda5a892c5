#include "wrpCore.h"

#include <cstring>

#include "network/identifier.h"
#include "network/status.h"

namespace Wrp {

namespace {

const char kOccured[] = "QUARN Error Occured. ";

// Appends the UTF-8 form of the character whose code is value. Values that
// name no character (negative, surrogates, beyond Unicode) give U+FFFD, so
// the text stays valid for Python.
void AppendCharacterCode(std::string& out, int value) {
    unsigned cp = static_cast<unsigned>(value);
    if (value < 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

}  // namespace

// ---- raising -----------------------------------------------------------------------

void ThrowQuarnException(int code, const char* function, const char* message) {
    std::string text = "QUARN Error ";
    VEK_appendInt(text, code);
    text += " in function ";
    text += CopyConstCharPtr(function);
    if (message != nullptr && *message != 0) {
        text += ". ";
        text += message;
    }
    throw quarn_exception(code, text);
}

void ThrowQuarnExceptionWithMessage(int code, const char* function, const std::string& message) {
    ThrowQuarnException(code, function, message.c_str());
}

void ThrowQuarnExceptionWithLog(int code, const char* function, const VEK_logger& logger) {
    std::string message;
    for (int i = 0; i < logger.GetErrorCount(); ++i) {
        message += '\n';
        message += CopyConstCharPtr(logger.GetErrorMessage(i));
    }
    // A redirected logger stores nothing; the tee kept this call's messages.
    if (auto* tee = dynamic_cast<const LogTee*>(logger.GetRedirect())) {
        for (const std::string& m : tee->Recent()) {
            message += '\n';
            message += m;
        }
    }
    ThrowQuarnExceptionWithMessage(code, function, message);
}

// ---- logging -----------------------------------------------------------------------

LogTee::LogTee(VEK_loggerRedirect* sink) : sink_(sink) {}

void LogTee::LogError(int code, const char* message) {
    sink_->LogError(code, message);
    // Only the messages of the call under way are wanted; a bound keeps a
    // long run of calls that never clear the log from growing it.
    if (recent_.size() < kMaxRecent) recent_.emplace_back(CopyConstCharPtr(message));
}

VEK_loggerRedirect* LogTee::Clone() const { return new LogTee(sink_->Clone()); }

void ClearLog(VEK_logger& logger) {
    logger.Clear();
    if (auto* tee = dynamic_cast<LogTee*>(logger.GetRedirect())) tee->ClearRecent();
}

void ValidateText(const std::string& text, const char* function, const char* what) {
    if (text.find('\0') != std::string::npos) {
        ThrowQuarnExceptionWithMessage(VEK_INVALID_VALUE, function, std::string(what) + " holds a NUL character");
    }
}

void ValidateResult(int code, const char* function) {
    if (code != 0) ThrowQuarnException(code, function, nullptr);
}

void ValidateResultWithMessage(int code, const char* function, const std::string& message) {
    if (code != 0) ThrowQuarnExceptionWithMessage(code, function, message);
}

void ValidateObject(const void* object) {
    if (object == nullptr) throw quarn_exception(VEK_GENERAL_ERROR, std::string(kOccured) + "Passed object is NULL");
}

// ---- validation ---------------------------------------------------------------------

void ValidateNodeHandle(const VEK_network& net, int handle) {
    if (!net.IsValidNode(handle)) {
        std::string text = std::string(kOccured) + "Invalid node handle: ";
        VEK_appendInt(text, handle);
        throw quarn_exception(VEK_NO_ITEM, text);
    }
}

int ValidateNodeId(const VEK_network& net, const std::string& id) {
    // The engine compares C strings: an id holding a NUL must not match the
    // node whose id is the part before it.
    int handle = id.find('\0') == std::string::npos ? net.FindNode(id.c_str()) : VEK_OUT_OF_RANGE;
    ValidateNodeHandle(net, handle);
    return handle;
}

void ValidateCase(const VEK_network& net, int index) {
    if (!net.Cases().IsValid(index)) {
        std::string text = std::string(kOccured) + "Invalid case index: ";
        VEK_appendInt(text, index);
        throw quarn_exception(VEK_NO_ITEM, text);
    }
}

void ValidateOutcomeIndex(const VEK_network& net, int handle, int index) {
    ValidateNodeHandle(net, handle);
    int count = GetOutcomeCount(net, handle);
    if (index < 0 || index >= count) {
        // The index goes in as one character whose code is the index; the
        // upper bound is decimal.
        std::string text = std::string(kOccured) + "Invalid outcome index ";
        AppendCharacterCode(text, index);
        text += " for node '";
        text += CopyConstCharPtr(net.GetNodeId(handle));
        text += "', valid indices are 0..";
        VEK_appendInt(text, count - 1);
        throw quarn_exception(VEK_OUT_OF_RANGE, text);
    }
}

int ValidateOutcomeId(const VEK_network& net, int handle, const std::string& id) {
    ValidateNodeHandle(net, handle);
    const VEK_idArray* ids = net.GetDef(handle)->GetOutcomeIds();
    int position = ids ? ids->FindPosition(id.c_str()) : -1;
    // FindPosition compares a null entry as empty, and C strings: neither an
    // empty id nor one holding a NUL is ever an outcome.
    if (position < 0 || id.empty() || id.find('\0') != std::string::npos) {
        std::string text = std::string(kOccured) + "Invalid outcome identifier '" + id + "' for node '" +
                           CopyConstCharPtr(net.GetNodeId(handle)) + "'";
        throw quarn_exception(VEK_INVALID_VALUE, text);
    }
    return position;
}

void ValidateSlice(const VEK_network& net, int slice) {
    if (slice < 0) throw quarn_exception(VEK_INVALID_VALUE, std::string(kOccured) + "Slice cannot be negative");
    int count = net.GetNumberOfSlices();
    if (slice >= count) {
        std::string text = std::string(kOccured) + "Slice index must be less than slice count, which is set to ";
        VEK_appendInt(text, count);
        throw quarn_exception(VEK_OUT_OF_RANGE, text);
    }
}

void ValidateId(const std::string& id) {
    // An embedded NUL would make the engine see a shorter id than Python gave.
    if (!VEK_isValidIdentifier(id.c_str()) || id.find('\0') != std::string::npos) {
        throw quarn_exception(VEK_INVALID_VALUE, "Identifier '" + id +
                                                     "' is invalid - it should start with a letter and contain "
                                                     "only letters, digits and underscores");
    }
}

void EnsureNodeValueValid(const VEK_network& net, int handle) {
    const VEK_nodeVal& val = GetVal(net, handle);
    if (!val.IsValueValid()) {
        std::string message = "Value of node '" + CopyConstCharPtr(net.GetNodeId(handle)) + "' is not valid";
        ThrowQuarnException(VEK_INVALID_VALUE, "NodeValueValidation", message.c_str());
    }
}

void ValidatePatternEdgeIndex(int index, int size) {
    if (index < 0 || index >= size) {
        std::string text = "Invalid Pattern edge index: ";
        VEK_appendInt(text, index);
        throw quarn_exception(VEK_OUT_OF_RANGE, text);
    }
}

void ValidatePatternEdgeType(int value) {
    if (value >= 3) {
        std::string text = "Invalid Pattern edge type: ";
        VEK_appendInt(text, value);
        throw quarn_exception(VEK_OUT_OF_RANGE, text);
    }
}

VEK_node& GetNode(const VEK_network& net, int handle) {
    ValidateNodeHandle(net, handle);
    return *net.GetNode(handle);
}

VEK_nodeDef& GetDef(const VEK_network& net, int handle) {
    VEK_nodeDef* def = GetNode(net, handle).Definition();
    ValidateObject(def);
    return *def;
}

VEK_nodeVal& GetVal(const VEK_network& net, int handle) {
    VEK_nodeVal* val = GetNode(net, handle).Value();
    ValidateObject(val);
    return *val;
}

VEK_discDef& GetDiscDef(const VEK_network& net, int handle, const char* function) {
    auto* disc = dynamic_cast<VEK_discDef*>(&GetDef(net, handle));
    if (disc == nullptr) ThrowQuarnException(VEK_WRONG_NODE_TYPE, function, nullptr);
    return *disc;
}

int GetOutcomeCount(const VEK_network& net, int handle) {
    int count = GetDef(net, handle).GetNumberOfOutcomes();
    return count < 0 ? 0 : count;
}

// ---- conversion ---------------------------------------------------------------------

std::vector<std::string> HandlesToIds(const VEK_network& net, const std::vector<int>& handles) {
    std::vector<std::string> ids;
    ids.reserve(handles.size());
    for (int h : handles) {
        ValidateNodeHandle(net, h);
        ids.push_back(CopyConstCharPtr(net.GetNodeId(h)));
    }
    return ids;
}

std::vector<std::string> HandlesToIds(const VEK_network& net, const VEK_intArray& handles) {
    return HandlesToIds(net, IntArrayToVector(handles));
}

std::vector<int> IdsToHandles(const VEK_network& net, const std::vector<std::string>& ids) {
    std::vector<int> handles;
    handles.reserve(ids.size());
    for (const std::string& id : ids) handles.push_back(ValidateNodeId(net, id));
    return handles;
}

std::vector<std::string> IdArrayToVector(const VEK_stringArray& ids) {
    std::vector<std::string> out;
    out.reserve(ids.GetSize());
    for (int i = 0; i < ids.GetSize(); ++i) out.push_back(CopyConstCharPtr(ids[i]));
    return out;
}

int VectorToIdArray(const std::vector<std::string>& ids, VEK_idArray& out) {
    out.Clear();
    for (const std::string& id : ids) {
        int res = out.Add(id.c_str());
        if (res != VEK_OKAY) return res;
    }
    return VEK_OKAY;
}

std::vector<int> IntArrayToVector(const VEK_intArray& items) {
    return std::vector<int>(items.begin(), items.end());
}

VEK_intArray VectorToIntArray(const std::vector<int>& items) {
    VEK_intArray out;
    (void)out.Reserve(static_cast<int>(items.size()));  // a size
    for (int v : items) out.Add(v);
    return out;
}

std::vector<double> DoubleArrayToVector(const VEK_doubleArray& items) {
    return std::vector<double>(items.begin(), items.end());
}

std::vector<double> DoubleArrayToVector(const VEK_Dmatrix& matrix) { return DoubleArrayToVector(matrix.GetItems()); }

VEK_doubleArray VectorToDoubleArray(const std::vector<double>& items) {
    VEK_doubleArray out;
    (void)out.Reserve(static_cast<int>(items.size()));  // a size
    for (double v : items) out.Add(v);
    return out;
}

std::string CopyConstCharPtr(const char* text) { return text ? std::string(text) : std::string(); }

std::vector<int> GetPosition(const VEK_rectangle& rect) {
    // Computed wide so that extreme stored values cannot overflow.
    return {static_cast<int>(static_cast<long long>(rect.centerX) - rect.width / 2),
            static_cast<int>(static_cast<long long>(rect.centerY) - rect.height / 2), rect.width, rect.height};
}

std::vector<int> GetPosition(const VEK_screenInfo& info) { return GetPosition(info.position); }

VEK_rectangle MakeRectangle(int x, int y, int width, int height) {
    VEK_rectangle r;
    r.centerX = static_cast<int>(static_cast<long long>(x) + width / 2);
    r.centerY = static_cast<int>(static_cast<long long>(y) + height / 2);
    r.width = width;
    r.height = height;
    return r;
}

VEK_rectangle MakeRectangle(const std::vector<int>& position, const char* function) {
    if (position.size() != 4) ValidateResult(1, function);
    return MakeRectangle(position[0], position[1], position[2], position[3]);
}

std::vector<UserProperty> UserPropertiesToVector(const VEK_userProperties& props) {
    std::vector<UserProperty> out;
    for (const auto& item : props.Items()) out.push_back({item.first, item.second});
    return out;
}

void VectorToUserProperties(const std::vector<UserProperty>& items, VEK_userProperties& out) {
    out.Clear();
    // Names come as strings, never null: adding cannot fail.
    for (const UserProperty& p : items) (void)out.AddProperty(p.name.c_str(), p.value.c_str());
}

std::vector<DocItemInfo> DocumentationToVector(const VEK_documentation& doc) {
    std::vector<DocItemInfo> out;
    for (const auto& item : doc.Items()) out.push_back({item.first, item.second});
    return out;
}

void VectorToDocumentation(const std::vector<DocItemInfo>& items, VEK_documentation& out) {
    out.Clear();
    for (const DocItemInfo& d : items) out.AddItem(d.title.c_str(), d.path.c_str());
}

TemporalInfo MakeTemporalInfo(const VEK_network& net, int parentHandle, int order) {
    ValidateNodeHandle(net, parentHandle);
    return {parentHandle, CopyConstCharPtr(net.GetNodeId(parentHandle)), order};
}

CaseEvidence CaseEvidenceFromEngine(const VEK_caseEvidence& item) {
    CaseEvidence out;
    out.type = static_cast<CaseEvidenceType::Value>(item.type);
    out.outcome = item.outcome;
    out.value = item.value;
    out.virtual_evidence = item.virtualEvidence;
    out.slice = item.slice;
    return out;
}

VEK_caseEvidence CaseEvidenceToEngine(const CaseEvidence& item, int node) {
    VEK_caseEvidence out;
    out.node = node;
    out.slice = item.slice;
    out.type = static_cast<int>(item.type);
    out.outcome = item.outcome;
    out.value = item.value;
    out.virtualEvidence = item.virtual_evidence;
    return out;
}

EPISParams EPISParamsFromEngine(const VEK_EPISParams& p) {
    return {p.propagationLength, p.numStateSmall,    p.numStateMedium, p.numStateBig,
            p.stateSmallEpsil,   p.stateMediumEpsil, p.stateBigEpsil,  p.stateOtherwise};
}

VEK_EPISParams EPISParamsToEngine(const EPISParams& p) {
    VEK_EPISParams out;
    out.propagationLength = p.propagation_length;
    out.numStateSmall = p.num_state_small;
    out.numStateMedium = p.num_state_medium;
    out.numStateBig = p.num_state_big;
    out.stateSmallEpsil = p.state_small_epsil;
    out.stateMediumEpsil = p.state_medium_epsil;
    out.stateBigEpsil = p.state_big_epsil;
    out.stateOtherwise = p.state_otherwise;
    return out;
}

LBPParams LBPParamsFromEngine(const VEK_LBPParams& p) { return {p.maxIterations, p.tolerance, p.damping}; }

VEK_LBPParams LBPParamsToEngine(const LBPParams& p, const VEK_LBPParams& base) {
    VEK_LBPParams out = base;
    out.maxIterations = p.max_iterations;
    out.tolerance = p.tolerance;
    out.damping = p.damping;
    return out;
}

AnnealedMapTuning AnnealedMapTuningFromEngine(const VEK_AnnealedMAPParams& p) {
    return {p.speed, p.tMin, p.tInit, p.kReheat, p.kMAP, p.kRFactor, p.stopAfter, p.iterationsPerTemperature};
}

VEK_AnnealedMAPParams AnnealedMapTuningToEngine(const AnnealedMapTuning& p) {
    VEK_AnnealedMAPParams out;
    out.speed = p.speed;
    out.tMin = p.t_min;
    out.tInit = p.t_init;
    out.kReheat = p.k_reheat;
    out.kMAP = p.k_map;
    out.kRFactor = p.k_r_factor;
    out.stopAfter = p.stop_after;
    out.iterationsPerTemperature = p.iterations_per_temperature;
    return out;
}

}  // namespace Wrp
