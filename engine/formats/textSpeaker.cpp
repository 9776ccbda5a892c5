#include "formats/textSpeaker.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "network/identifier.h"
#include "network/network.h"
#include "network/nodeDef.h"

namespace {
// Carries a described node's index through the build, as a user property that
// Read removes again (handles need not follow the order of the file).
const char* const kIndexKey = "\x01node-index";
}

std::string VEK_pathStem(const char* path) {
    if (!path) return std::string();
    const char* base = std::strrchr(path, '/');
    base = base ? base + 1 : path;
    std::string stem(base);
    size_t dot = stem.rfind('.');
    if (dot != std::string::npos && dot > 0) stem.erase(dot);
    return stem;
}

VEK_textSpeaker::VEK_textSpeaker(VEK_network& net, const char* formatName)
    : VEK_fileFormat(net), formatName_(formatName) {}

// ------------------------------------------------------------------ reading

int VEK_textSpeaker::Next(VEK_token& t) {
    int res = Tokenizer().Next(t);
    if (res == VEK_OKAY) return VEK_OKAY;
    if (res == VEK_NO_MORE_TOKENS) {
        t.kind = VEK_tokenKind::End;
        t.text.clear();
        Tokenizer().GetPosition(t.line, t.column);
        return VEK_OKAY;
    }
    return Fail(Tokenizer().ErrorLine(), Tokenizer().ErrorColumn(), Tokenizer().ErrorMessage());
}

int VEK_textSpeaker::Peek(VEK_token& t) {
    int res = Tokenizer().Peek(t);
    if (res == VEK_OKAY) return VEK_OKAY;
    if (res == VEK_NO_MORE_TOKENS) {
        t.kind = VEK_tokenKind::End;
        t.text.clear();
        Tokenizer().GetPosition(t.line, t.column);
        return VEK_OKAY;
    }
    return Fail(Tokenizer().ErrorLine(), Tokenizer().ErrorColumn(), Tokenizer().ErrorMessage());
}

int VEK_textSpeaker::Fail(const VEK_token& at, const std::string& message) {
    return Fail(at.line, at.column, message);
}

int VEK_textSpeaker::Fail(int line, int column, const std::string& message) {
    return LogFileReadingError(VEK_FILE_READ_ERROR, message, line, column);
}

int VEK_textSpeaker::Expect(const char* text) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (t.Is(text)) return VEK_OKAY;
    return Fail(t, std::string("Expected '") + text + "' but found " + t.Describe());
}

bool VEK_textSpeaker::Accept(const char* text) {
    VEK_token t;
    if (Peek(t) != VEK_OKAY || !t.Is(text)) return false;
    (void)Next(t);  // the token just peeked
    return true;
}

int VEK_textSpeaker::ExpectNumber(double& value, VEK_token* where) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (where) *where = t;
    if (t.IsNumber()) {
        value = t.number;
        return VEK_OKAY;
    }
    return Fail(t, "Number expected but found " + t.Describe());
}

int VEK_textSpeaker::ExpectPosition(bool& has, int& x, int& y) {
    double px, py;
    int res;
    if ((res = Expect("(")) < 0 || (res = ExpectNumber(px)) < 0) return res;
    Accept(",");
    if ((res = ExpectNumber(py)) < 0) return res;
    if ((res = Expect(")")) < 0 || (res = Expect(";")) < 0) return res;
    if (std::fabs(px) < 1e9 && std::fabs(py) < 1e9) {
        has = true;
        x = static_cast<int>(std::lround(px));
        y = static_cast<int>(std::lround(py));
    }
    return VEK_OKAY;
}

int VEK_textSpeaker::ExpectCount(long long limit, long long& value, const char* what) {
    VEK_token t;
    int res = Next(t);
    if (res < 0) return res;
    if (!t.IsNumber() || !t.isInteger) return Fail(t, std::string(what) + " expected but found " + t.Describe());
    if (t.integer < 0 || t.integer > limit) {
        return Fail(t, std::string(what) + " out of range: " + t.text);
    }
    value = t.integer;
    return VEK_OKAY;
}

void VEK_textSpeaker::SpecError(int code, const VEK_descPos& pos, const std::string& message) {
    // The builder's faults are the file's faults; memory is the exception.
    LogFileReadingError(code == VEK_OUT_OF_MEMORY ? code : VEK_FILE_READ_ERROR, message, pos.line, pos.column);
}

int VEK_textSpeaker::Read(const std::string& defaultName) {
    try {
        VEK_netDesc desc;
        int res = Parse(desc);
        if (res < 0) return res;
        if (!desc.hasName && !defaultName.empty()) {
            desc.hasName = true;
            desc.name = defaultName;
        }
        for (size_t i = 0; i < desc.nodes.size(); ++i) desc.nodes[i].properties.emplace_back(kIndexKey, std::to_string(i));
        res = VEK_buildNetwork(desc, Network(), *this);
        if (res < 0) return res == VEK_OUT_OF_MEMORY ? res : VEK_FILE_READ_ERROR;
        std::vector<int> handles(desc.nodes.size(), -1);
        VEK_network& net = Network();
        for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
            VEK_userProperties& props = net.GetNode(h)->Info().userProperties;
            int k = props.FindPropertyIndex(kIndexKey);
            if (k < 0) continue;
            size_t i = std::strtoul(props.GetPropertyValue(k), nullptr, 10);
            if (i < handles.size()) handles[i] = h;
            (void)props.DeleteProperty(k);  // the index is in range
        }
        for (size_t i = 0; i < desc.nodes.size(); ++i) desc.nodes[i].properties.pop_back();
        return Finish(desc, handles);
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the network", 0, 0);
    }
}

int VEK_textSpeaker::ReadNetwork(const char* path) {
    std::string text;
    int res = ReadInputFile(path, text, VEK_FILE_IO_FAILED);
    if (res != VEK_OKAY) return res;
    try {
        SetInputText(text);
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the file", 0, 0);
    }
    text = std::string();
    return Read(VEK_pathStem(path));
}

int VEK_textSpeaker::ReadNetworkFromString(const char* text) {
    SetFileName(nullptr);
    try {
        SetInputText(text ? text : "");
    } catch (const std::bad_alloc&) {
        return LogFileReadingError(VEK_OUT_OF_MEMORY, "Out of memory while reading the text", 0, 0);
    }
    return Read(std::string());
}

// ------------------------------------------------------------------ writing

bool VEK_textSpeaker::IsChanceType(int type) {
    return type == VEK_CPT || type == VEK_TRUTHTABLE || type == VEK_NOISY_MAX || type == VEK_NOISY_ADDER ||
           type == VEK_CAST || type == VEK_DEMORGAN;
}

std::string VEK_textSpeaker::ChanceOnlyReason(const VEK_node& node) const {
    const VEK_nodeDef* def = node.Definition();
    const int type = def->GetType();
    std::string id = node.GetId();
    if (node.GetTemporalType() != 0) return "node '" + id + "' is temporal";
    if (type == VEK_LIST) return "node '" + id + "' is a decision node";
    if (type == VEK_TABLE || type == VEK_MAU) return "node '" + id + "' is a utility node";
    if (!IsChanceType(type) || !def->GetMatrix()) return "node '" + id + "' has no probability table";
    return std::string();
}

void VEK_textSpeaker::FlushText() {
    if (text_.empty()) return;
    Out().Write(text_);
    text_.clear();
}

int VEK_textSpeaker::Refuse(const std::string& reason) {
    std::string detail = std::string(formatName_) + " format: " + reason;
    Logger().LogError(VEK_OUT_OF_RANGE, detail.c_str());
    std::string message = std::string("ERROR: This Network cannot be saved in ") + formatName_ + " format";
    return Logger().LogError(VEK_OUT_OF_RANGE, message.c_str());
}

int VEK_textSpeaker::Write() {
    text_.clear();
    WriteText();
    FlushText();
    text_ = std::string();
    return CloseOutput();
}

int VEK_textSpeaker::WriteNetwork(const char* path) {
    try {
        std::string reason = CheckWritable();
        if (!reason.empty()) return Refuse(reason);
        int res = OpenOutput(path);
        if (res < 0) return res;
        return Write();
    } catch (const std::bad_alloc&) {
        (void)CloseOutput();  // the lack of memory is what is reported
        return Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the file");
    }
}

int VEK_textSpeaker::WriteNetworkToString(std::string& out) {
    out.clear();
    try {
        std::string reason = CheckWritable();
        if (!reason.empty()) return Refuse(reason);
        SetOutputString(out);
        int res = Write();
        if (res < 0) out.clear();
        return res;
    } catch (const std::bad_alloc&) {
        (void)CloseOutput();  // the lack of memory is what is reported
        out.clear();
        return Logger().LogError(VEK_OUT_OF_MEMORY, "Out of memory while writing the text");
    }
}

void VEK_textSpeaker::NumberNodes(std::vector<int>& handles, std::vector<int>& index) {
    VEK_network& net = Network();
    handles.clear();
    index.assign(static_cast<size_t>(net.GetSlotCount()), -1);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        index[static_cast<size_t>(h)] = static_cast<int>(handles.size());
        handles.push_back(h);
    }
}

void VEK_textSpeaker::AppendOutcomeCounts(const std::vector<int>& handles) {
    for (size_t i = 0; i < handles.size(); ++i) {
        if (i) text_ += ' ';
        text_ += std::to_string(Network().GetDef(handles[i])->GetNumberOfOutcomes());
    }
}

void VEK_textSpeaker::AppendTable(int handle) {
    const VEK_Dmatrix& m = *Network().GetDef(handle)->GetMatrix();
    const int size = m.GetSize();
    const int states = m.GetLastDimensionSize();
    text_ += std::to_string(size);
    text_ += '\n';
    for (int i = 0; i < size; ++i) {
        VEK_appendDouble(text_, m[i]);
        text_ += (i + 1) % states == 0 ? '\n' : ' ';
        if (text_.size() > (1 << 16)) FlushText();
    }
}
