#include "xml/xmlTovra.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dynamic/dynamicNet.h"
#include "network/discDef.h"
#include "network/identifier.h"
#include "xml/xmlNetworkSaver.h"
#include "xml/xmlReader.h"

// ============================================================== helpers

namespace {

// Stored colours keep red in the lowest byte; the file shows red first.
unsigned SwapRedBlue(unsigned c) { return (c & 0xFF00FF00u) | ((c & 0xFFu) << 16) | ((c >> 16) & 0xFFu); }

bool ParseLongLongToken(const char*& p, long long& value) {
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
    if (!*p) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(p, &end, 10);
    if (end == p || errno == ERANGE) return false;
    if (*end && !(*end == ' ' || (*end >= '\t' && *end <= '\r'))) return false;
    p = end;
    return true;
}

bool FitsInt(long long v) { return v >= INT_MIN && v <= INT_MAX; }

const VEK_font kDefaultFont;

}  // namespace

std::string XmlColorText(unsigned color) {
    char text[16];
    std::snprintf(text, sizeof text, "%06lx", static_cast<unsigned long>(SwapRedBlue(color)));
    return text;
}

bool XmlParseColor(const char* text, unsigned& color) {
    if (!text) return false;
    size_t n = std::strlen(text);
    if (n == 0 || n > 8) return false;
    unsigned long v = 0;
    for (size_t i = 0; i < n; ++i) {
        char c = text[i];
        int d;
        if (c >= '0' && c <= '9') {
            d = c - '0';
        } else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') {
            d = (c | 0x20) - 'a' + 10;
        } else {
            return false;
        }
        v = v * 16 + static_cast<unsigned long>(d);
    }
    color = SwapRedBlue(static_cast<unsigned>(v));
    return true;
}

std::string XmlPositionText(const VEK_rectangle& rect) {
    long long left = static_cast<long long>(rect.centerX) - rect.width / 2;
    long long top = static_cast<long long>(rect.centerY) - rect.height / 2;
    char text[96];
    std::snprintf(text, sizeof text, "%lld %lld %lld %lld", left, top, left + rect.width, top + rect.height);
    return text;
}

bool XmlParsePosition(const char* text, VEK_rectangle& rect) {
    if (!text) return false;
    long long v[4];
    const char* p = text;
    for (long long& x : v) {
        if (!ParseLongLongToken(p, x)) return false;
    }
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
    if (*p) return false;
    for (long long x : v) {
        if (!FitsInt(x)) return false;
    }
    long long width = v[2] - v[0];
    long long height = v[3] - v[1];
    if (!FitsInt(width) || !FitsInt(height)) return false;
    // The centre is the left edge plus half the width, halved as an int.
    long long cx = v[0] + static_cast<int>(width) / 2;
    long long cy = v[1] + static_cast<int>(height) / 2;
    if (!FitsInt(cx) || !FitsInt(cy)) return false;
    rect.centerX = static_cast<int>(cx);
    rect.centerY = static_cast<int>(cy);
    rect.width = static_cast<int>(width);
    rect.height = static_cast<int>(height);
    return true;
}

// ============================================================== loader

XmlTovraLoader::XmlTovraLoader(VEK_network& net) : net_(net) {
    using L = XmlTovraLoader;
    auto* tovra = Bind("tovra", &L::OnTovraStart, &L::OnTovraEnd);
    for (const char* a : {"version", "app", "name", "leftwidth", "rightwidth"}) tovra->AddAttribute(a, false);
    root_ = tovra;

    auto* comment = Bind("comment", nullptr, &L::OnCommentEnd);
    auto* link = Bind("link", &L::OnLinkStart, nullptr);
    link->AddAttribute("title", false);
    link->AddAttribute("path", false);
    auto* name = Bind("name", nullptr, &L::OnNameEnd);
    auto* interior = Bind("interior", &L::OnInteriorStart, nullptr);
    interior->AddAttribute("color", true);
    auto* outline = Bind("outline", &L::OnOutlineStart, nullptr);
    outline->AddAttribute("color", true);
    outline->AddAttribute("width", false);
    auto* font = Bind("font", &L::OnFontStart, nullptr);
    for (const char* a : {"name", "size", "color"}) font->AddAttribute(a, true);
    for (const char* a : {"bold", "italic", "align"}) font->AddAttribute(a, false);
    auto* position = Bind("position", nullptr, &L::OnPositionEnd);
    auto* caption = Bind("caption", nullptr, &L::OnCaptionEnd);
    auto* barchart = Bind("barchart", &L::OnBarchartStart, nullptr);
    for (const char* a : {"active", "width", "height"}) barchart->AddAttribute(a, false);
    auto* question = Bind("question", nullptr, &L::OnQuestionEnd);
    auto* fix = Bind("fix", nullptr, &L::OnFixEnd);
    auto* state = Bind("state", &L::OnStateStart, &L::OnPop);
    state->AddAttribute("id", true);
    state->AddAttribute("fix", false);
    state->AddAttribute("comment", false);
    state->AddChild(fix, 0);
    state->AddChild(comment, 0);
    state->AddChild(link, XmlChildMayRepeat);

    auto* plate = Bind("plate", &L::OnPlateStart, &L::OnPop);
    plate->AddChild(position, 0);
    // Accepted, not kept: the engine has no submodel window geometry.
    auto* ignored = new XmlBinding(nullptr, "position", XmlModeInherit);
    bindings_.push_back(ignored);
    auto* window = new XmlBinding(nullptr, "window", XmlModeInherit);
    bindings_.push_back(window);
    window->AddChild(ignored, 0);

    auto* node = Bind("node", &L::OnNodeStart, &L::OnPop);
    node->AddAttribute("id", true);
    for (IXmlBinding* b : {static_cast<IXmlBinding*>(name), static_cast<IXmlBinding*>(interior),
                           static_cast<IXmlBinding*>(outline), static_cast<IXmlBinding*>(font),
                           static_cast<IXmlBinding*>(position), static_cast<IXmlBinding*>(comment),
                           static_cast<IXmlBinding*>(barchart), static_cast<IXmlBinding*>(question)}) {
        node->AddChild(b, 0);
    }
    node->AddChild(state, XmlChildMayRepeat);
    node->AddChild(link, XmlChildMayRepeat);

    auto* textbox = Bind("textbox", &L::OnTextboxStart, &L::OnPop);
    textbox->AddChild(caption, 0);
    textbox->AddChild(font, 0);
    textbox->AddChild(position, 0);

    auto* submodel = Bind("submodel", &L::OnSubmodelStart, &L::OnPop);
    submodel->AddAttribute("id", true);
    for (IXmlBinding* b : {static_cast<IXmlBinding*>(name), static_cast<IXmlBinding*>(comment),
                           static_cast<IXmlBinding*>(interior), static_cast<IXmlBinding*>(outline),
                           static_cast<IXmlBinding*>(font), static_cast<IXmlBinding*>(position),
                           static_cast<IXmlBinding*>(window)}) {
        submodel->AddChild(b, 0);
    }
    submodel->AddChild(node, XmlChildMayRepeat);
    submodel->AddChild(submodel, XmlChildMayRepeat);
    submodel->AddChild(textbox, XmlChildMayRepeat);

    tovra->AddChild(comment, 0);
    tovra->AddChild(plate, 0);
    tovra->AddChild(link, XmlChildMayRepeat);
    tovra->AddChild(node, XmlChildMayRepeat);
    tovra->AddChild(submodel, XmlChildMayRepeat);
    tovra->AddChild(textbox, XmlChildMayRepeat);
}

XmlTovraLoader::~XmlTovraLoader() {
}

XmlHandler<XmlTovraLoader>* XmlTovraLoader::Bind(const char* name, void (XmlTovraLoader::*start)(IXmlReader*),
                                                 void (XmlTovraLoader::*end)(IXmlReader*)) {
    auto* b = new XmlHandler<XmlTovraLoader>(this, name, start, end);
    bindings_.push_back(b);
    return b;
}

void XmlTovraLoader::Fail(IXmlReader* r, const char* message, const std::string& name) {
    std::string text = message;
    text += ": '";
    text += name;
    text += "'";
    r->StopParse(text.c_str());
}

int XmlTovraLoader::Container() const {
    for (auto it = stack_.rbegin(); it != stack_.rend(); ++it) {
        if (it->kind == Kind::Submodel) return it->handle;
    }
    return net_.Submodels().GetMainSubmodel();
}

VEK_screenInfo* XmlTovraLoader::Screen() {
    if (stack_.empty()) return nullptr;
    const Context& c = stack_.back();
    if (c.kind == Kind::Node) return &net_.GetNode(c.handle)->Info().screen;
    if (c.kind == Kind::Submodel) return &net_.Submodels().Get(c.handle)->info;
    return nullptr;
}

bool XmlTovraLoader::ReadColor(IXmlReader* r, const char* attribute, unsigned& color) {
    std::string text;
    r->GetAttribute(attribute, text);
    if (!XmlParseColor(text.c_str(), color)) {
        Fail(r, "Invalid color", text);
        return false;
    }
    return true;
}

void XmlTovraLoader::OnTovraStart(IXmlReader* r) {
    std::string version;
    r->GetAttribute("version", version);
    if (!CheckVersion(r, version.c_str(), "1.0")) return;
    const char* name = nullptr;
    std::string nameText;
    if (auto* reader = dynamic_cast<XmlReader*>(r)) {
        name = reader->GetRawAttribute("name");
    } else {
        r->GetAttribute("name", nameText);
        if (!nameText.empty()) name = nameText.c_str();
    }
    if (name) net_.Header().SetName(name);
    std::string left;
    std::string right;
    r->GetAttribute("leftwidth", left);
    r->GetAttribute("rightwidth", right);
    if (!left.empty() || !right.empty()) {
        int l = 0;
        int w = 0;
        if (!r->GetAttribute("leftwidth", l, 0) || !r->GetAttribute("rightwidth", w, 0)) return;
        net_.Dynamic().SetPlateWidths(l, w);
    }
    stack_.clear();
    nodes_.clear();
    for (int h = net_.GetFirstNode(); h >= 0; h = net_.GetNextNode(h)) nodes_.emplace(net_.GetNodeId(h), h);
}

void XmlTovraLoader::OnTovraEnd(IXmlReader*) { stack_.clear(); }

void XmlTovraLoader::OnPop(IXmlReader*) {
    if (!stack_.empty()) stack_.pop_back();
}

void XmlTovraLoader::OnNodeStart(IXmlReader* r) {
    std::string id;
    r->GetAttribute("id", id);
    auto it = nodes_.find(id);
    if (it == nodes_.end()) return Fail(r, "Invalid node identifier", id);
    int container = Container();
    if (container != net_.Submodels().GetMainSubmodel() && net_.SetNodeSubmodel(it->second, container) < 0) {
        return Fail(r, "Can't move node into submodel", id);
    }
    stack_.push_back({Kind::Node, it->second, 0});
}

void XmlTovraLoader::OnSubmodelStart(IXmlReader* r) {
    std::string id;
    r->GetAttribute("id", id);
    int h = net_.AddSubmodel(Container(), id.c_str());
    if (h == VEK_ILLEGAL_IDENTIFIER) return Fail(r, "Invalid submodel identifier", id);
    if (h == VEK_DUPLICATED_IDENTIFIER) return Fail(r, "Duplicated submodel identifier", id);
    if (h < 0) return Fail(r, "Can't add submodel", id);
    stack_.push_back({Kind::Submodel, h, 0});
}

void XmlTovraLoader::OnPlateStart(IXmlReader*) { stack_.push_back({Kind::Plate, -1, 0}); }

void XmlTovraLoader::OnTextboxStart(IXmlReader*) {
    VEK_textBox box;
    box.submodel = Container();
    net_.TextBoxes().push_back(box);
    stack_.push_back({Kind::Textbox, -1, static_cast<int>(net_.TextBoxes().size()) - 1});
}

void XmlTovraLoader::OnStateStart(IXmlReader* r) {
    std::string id;
    r->GetAttribute("id", id);
    int node = stack_.empty() ? -1 : stack_.back().handle;
    auto* def = dynamic_cast<VEK_discDef*>(net_.GetDef(node));
    int outcome = def ? def->FindOutcome(id.c_str()) : -1;
    if (outcome < 0) return Fail(r, "Invalid outcome identifier", id);
    std::string text;
    r->GetAttribute("fix", text);
    if (!text.empty()) (void)def->SetOutcomeFix(outcome, text.c_str());  // the outcome index is in range
    r->GetAttribute("comment", text);
    if (!text.empty()) (void)def->SetOutcomeComment(outcome, text.c_str());  // the outcome index is in range
    stack_.push_back({Kind::State, node, outcome});
}

void XmlTovraLoader::OnCommentEnd(IXmlReader* r) {
    r->GetUnescapedContent(text_);
    if (stack_.empty()) {
        net_.Header().SetComment(text_.c_str());
        return;
    }
    const Context& c = stack_.back();
    if (c.kind == Kind::Node) net_.GetNode(c.handle)->Header().SetComment(text_.c_str());
    if (c.kind == Kind::Submodel) net_.Submodels().Get(c.handle)->header.SetComment(text_.c_str());
    if (c.kind == Kind::State) (void)static_cast<VEK_discDef*>(net_.GetDef(c.handle))->SetOutcomeComment(c.index, text_.c_str());  // the outcome index is in range
}

void XmlTovraLoader::OnLinkStart(IXmlReader* r) {
    std::string title;
    std::string path;
    r->GetAttribute("title", title);
    r->GetAttribute("path", path);
    if (stack_.empty()) {
        net_.Documentation().AddItem(title.c_str(), path.c_str());
        return;
    }
    const Context& c = stack_.back();
    if (c.kind == Kind::Node) net_.GetNode(c.handle)->Info().documentation.AddItem(title.c_str(), path.c_str());
    if (c.kind == Kind::State) {
        auto* def = static_cast<VEK_discDef*>(net_.GetDef(c.handle));
        std::vector<std::string> titles;
        std::vector<std::string> paths;
        (void)def->GetOutcomeDocumentation(c.index, titles, paths);  // the outcome index is in range
        titles.push_back(title);
        paths.push_back(path);
        (void)def->SetOutcomeDocumentation(c.index, titles, paths);  // the titles and paths were read together
    }
}

void XmlTovraLoader::OnNameEnd(IXmlReader* r) {
    if (stack_.empty()) return;
    r->GetUnescapedContent(text_);
    const Context& c = stack_.back();
    if (c.kind == Kind::Node) net_.GetNode(c.handle)->Header().SetName(text_.c_str());
    if (c.kind == Kind::Submodel) net_.Submodels().Get(c.handle)->header.SetName(text_.c_str());
}

void XmlTovraLoader::OnInteriorStart(IXmlReader* r) {
    unsigned color = 0;
    if (!ReadColor(r, "color", color)) return;
    if (VEK_screenInfo* s = Screen()) s->color = color;
}

void XmlTovraLoader::OnOutlineStart(IXmlReader* r) {
    unsigned color = 0;
    if (!ReadColor(r, "color", color)) return;
    VEK_screenInfo* s = Screen();
    int width = s ? s->borderThickness : 1;
    if (!r->GetAttribute("width", width, width)) return;
    if (s) {
        s->borderColor = color;
        s->borderThickness = width;
    }
}

void XmlTovraLoader::OnFontStart(IXmlReader* r) {
    VEK_font font;
    unsigned color = 0;
    r->GetAttribute("name", font.name);
    if (!r->GetAttribute("size", font.size, font.size) || !ReadColor(r, "color", color) ||
        !r->GetAttribute("bold", font.bold, false) || !r->GetAttribute("italic", font.italic, false)) {
        return;
    }
    if (stack_.empty()) return;
    const Context& c = stack_.back();
    if (c.kind == Kind::Textbox) {
        net_.TextBoxes()[c.index].font = font;
    } else if (VEK_screenInfo* s = Screen()) {
        s->font = font;
        s->fontColor = color;
    }
}

void XmlTovraLoader::OnPositionEnd(IXmlReader* r) {
    VEK_rectangle rect;
    if (!XmlParsePosition(r->GetContent().c_str(), rect)) return Fail(r, "Invalid position", r->GetContent());
    if (stack_.empty()) return;
    const Context& c = stack_.back();
    if (c.kind == Kind::Textbox) {
        net_.TextBoxes()[c.index].position = rect;
    } else if (c.kind == Kind::Plate) {
        net_.Dynamic().PlatePosition() = rect;
    } else if (VEK_screenInfo* s = Screen()) {
        s->position = rect;
    }
}

void XmlTovraLoader::OnCaptionEnd(IXmlReader* r) {
    if (stack_.empty() || stack_.back().kind != Kind::Textbox) return;
    r->GetUnescapedContent(net_.TextBoxes()[stack_.back().index].text);
}

void XmlTovraLoader::OnBarchartStart(IXmlReader* r) {
    if (stack_.empty() || stack_.back().kind != Kind::Node) return;
    VEK_barChart chart;
    if (!r->GetAttribute("active", chart.active, chart.active) || !r->GetAttribute("width", chart.width, chart.width) ||
        !r->GetAttribute("height", chart.height, chart.height)) {
        return;
    }
    net_.GetNode(stack_.back().handle)->Info().barChart = chart;
}

void XmlTovraLoader::OnQuestionEnd(IXmlReader* r) {
    if (stack_.empty() || stack_.back().kind != Kind::Node) return;
    r->GetUnescapedContent(text_);
    net_.GetNode(stack_.back().handle)->SetQuestion(text_.c_str());
}

void XmlTovraLoader::OnFixEnd(IXmlReader* r) {
    if (stack_.empty() || stack_.back().kind != Kind::State) return;
    r->GetUnescapedContent(text_);
    const Context& c = stack_.back();
    (void)static_cast<VEK_discDef*>(net_.GetDef(c.handle))->SetOutcomeFix(c.index, text_.c_str());  // the state index is in range
}

// ============================================================== saver

namespace {

void WriteColor(IXmlWriter* w, const char* element, unsigned color) {
    w->PushAttribute("color", XmlColorText(color).c_str());
    w->WriteElement(element, nullptr);
}

void WriteFont(IXmlWriter* w, const VEK_font& font, unsigned color) {
    w->PushAttribute("name", font.name.empty() ? "Arial" : font.name.c_str());
    w->PushAttribute("size", font.size);
    w->PushAttribute("color", XmlColorText(color).c_str());
    if (font.bold) w->PushAttribute("bold", true);
    if (font.italic) w->PushAttribute("italic", true);
    w->WriteElement("font", nullptr);
}

void WriteScreen(IXmlWriter* w, const VEK_screenInfo& s) {
    WriteColor(w, "interior", s.color);
    w->PushAttribute("color", XmlColorText(s.borderColor).c_str());
    w->PushAttribute("width", s.borderThickness);
    w->WriteElement("outline", nullptr);
    WriteFont(w, s.font, s.fontColor);
    w->WriteElement("position", XmlPositionText(s.position).c_str());
}

void WriteLinks(IXmlWriter* w, const std::vector<std::string>& titles, const std::vector<std::string>& paths) {
    for (size_t i = 0; i < titles.size() && i < paths.size(); ++i) {
        w->PushAttribute("title", titles[i].c_str());
        w->PushAttribute("path", paths[i].c_str());
        w->WriteElement("link", nullptr);
    }
}

bool OutcomeHasTexts(const VEK_discDef& def, int k) {
    std::vector<std::string> titles;
    std::vector<std::string> paths;
    (void)def.GetOutcomeDocumentation(k, titles, paths);  // the outcome index is in range
    return *def.GetOutcomeFix(k) || *def.GetOutcomeComment(k) || !titles.empty();
}

}  // namespace

bool XmlTovraSaver::NodeIsPlain(int handle) const {
    const VEK_node* node = net_.GetNode(handle);
    if (std::strcmp(node->Header().GetName(), node->GetId()) != 0 || node->Header().HasComment()) return false;
    const VEK_nodeInfo& info = node->Info();
    if (!(info.screen == VEK_screenInfo{}) || !(info.barChart == VEK_barChart{})) return false;
    if (info.documentation.GetNumberOfItems() > 0 || *node->GetQuestion()) return false;
    if (const auto* def = dynamic_cast<const VEK_discDef*>(node->Definition())) {
        for (int k = 0; k < def->GetNumberOfOutcomes(); ++k) {
            if (OutcomeHasTexts(*def, k)) return false;
        }
    }
    return true;
}

bool XmlTovraSaver::HasPlate() const {
    const VEK_dynamicNet* dyn = net_.GetDynamic();
    return dyn && (!(dyn->PlatePosition() == VEK_rectangle{}) || dyn->GetLeftWidth() != 0 || dyn->GetRightWidth() != 0);
}

bool XmlTovraSaver::HasContent() const {
    if (HasPlate()) return true;
    const VEK_header& h = net_.Header();
    if (std::strcmp(h.GetName(), h.GetId()) != 0 || h.HasComment()) return true;
    if (net_.Documentation().GetNumberOfItems() > 0 || !net_.TextBoxes().empty()) return true;
    if (net_.Submodels().GetNumberOfSubmodels() > 1) return true;
    for (int n = net_.GetFirstNode(); n >= 0; n = net_.GetNextNode(n)) {
        if (!NodeIsPlain(n)) return true;
    }
    return false;
}

void XmlTovraSaver::WriteNode(IXmlWriter* w, int handle) const {
    const VEK_node* node = net_.GetNode(handle);
    const VEK_nodeInfo& info = node->Info();
    w->PushAttribute("id", node->GetId());
    IXmlWriter::ScopedElement element(w, "node");
    w->WriteElement("name", node->Header().GetName(), true);
    WriteScreen(w, info.screen);
    if (node->Header().HasComment()) w->WriteElement("comment", node->Header().GetComment(), true);
    if (!(info.barChart == VEK_barChart{})) {
        w->PushAttribute("active", info.barChart.active);
        w->PushAttribute("width", info.barChart.width);
        w->PushAttribute("height", info.barChart.height);
        w->WriteElement("barchart", nullptr);
    }
    if (*node->GetQuestion()) w->WriteElement("question", node->GetQuestion(), true);
    if (const auto* def = dynamic_cast<const VEK_discDef*>(node->Definition())) {
        for (int k = 0; k < def->GetNumberOfOutcomes(); ++k) {
            if (!OutcomeHasTexts(*def, k)) continue;
            w->PushAttribute("id", (*def->GetOutcomeIds())[k]);
            IXmlWriter::ScopedElement state(w, "state");
            if (*def->GetOutcomeFix(k)) w->WriteElement("fix", def->GetOutcomeFix(k), true);
            if (*def->GetOutcomeComment(k)) w->WriteElement("comment", def->GetOutcomeComment(k), true);
            std::vector<std::string> titles;
            std::vector<std::string> paths;
            (void)def->GetOutcomeDocumentation(k, titles, paths);  // the outcome index is in range
            WriteLinks(w, titles, paths);
        }
    }
    std::vector<std::string> titles;
    std::vector<std::string> paths;
    for (const auto& [t, p] : info.documentation.Items()) {
        titles.push_back(t);
        paths.push_back(p);
    }
    WriteLinks(w, titles, paths);
}

void XmlTovraSaver::WriteSubmodelHead(IXmlWriter* w, const VEK_submodel& s) const {
    w->PushAttribute("id", s.header.GetId());
    w->OpenElement("submodel");
    w->WriteElement("name", s.header.GetName(), true);
    if (s.header.HasComment()) w->WriteElement("comment", s.header.GetComment(), true);
    WriteScreen(w, s.info);
}

void XmlTovraSaver::WriteTextbox(IXmlWriter* w, const VEK_textBox& box) const {
    IXmlWriter::ScopedElement element(w, "textbox");
    w->WriteElement("caption", box.text.c_str(), true);
    WriteFont(w, box.font, 0);
    w->WriteElement("position", XmlPositionText(box.position).c_str());
}

void XmlTovraSaver::Write(IXmlWriter* w) {
    const VEK_header& header = net_.Header();
    w->PushAttribute("version", "1.0");
    w->PushAttribute("app", "pyquarn");
    if (std::strcmp(header.GetName(), header.GetId()) != 0) w->PushAttribute("name", header.GetName());
    const VEK_dynamicNet* dyn = HasPlate() ? net_.GetDynamic() : nullptr;
    if (dyn && (dyn->GetLeftWidth() != 0 || dyn->GetRightWidth() != 0)) {
        w->PushAttribute("leftwidth", dyn->GetLeftWidth());
        w->PushAttribute("rightwidth", dyn->GetRightWidth());
    }
    IXmlWriter::ScopedElement tovra(w, "tovra");
    if (header.HasComment()) w->WriteElement("comment", header.GetComment(), true);
    if (dyn && !(dyn->PlatePosition() == VEK_rectangle{})) {
        IXmlWriter::ScopedElement plate(w, "plate");
        w->WriteElement("position", XmlPositionText(dyn->PlatePosition()).c_str());
    }
    for (const auto& [title, path] : net_.Documentation().Items()) {
        w->PushAttribute("title", title.c_str());
        w->PushAttribute("path", path.c_str());
        w->WriteElement("link", nullptr);
    }

    // Contents of every submodel entry: its nodes, child submodels and text
    // boxes; written depth first without recursion (the tree may be deep).
    const VEK_submodelHandler& subs = net_.Submodels();
    const int capacity = subs.GetCapacity();
    std::vector<std::vector<int>> nodes(capacity);
    std::vector<std::vector<int>> children(capacity);
    std::vector<std::vector<size_t>> boxes(capacity);
    auto indexOf = [&](int handle) {
        return subs.IsValidSubmodel(handle) ? VEK_submodelHandler::ToIndex(handle) : 0;
    };
    std::vector<int> order;
    XmlNodeOrder(net_, order);
    for (int h : order) nodes[indexOf(net_.GetNode(h)->GetSubmodel())].push_back(h);
    for (int s = subs.GetNextSubmodel(subs.GetMainSubmodel()); s >= 0; s = subs.GetNextSubmodel(s)) {
        children[indexOf(subs.GetParent(s))].push_back(VEK_submodelHandler::ToIndex(s));
    }
    for (size_t i = 0; i < net_.TextBoxes().size(); ++i) boxes[indexOf(net_.TextBoxes()[i].submodel)].push_back(i);

    for (int h : nodes[0]) {
        if (!NodeIsPlain(h)) WriteNode(w, h);
    }
    struct Frame {
        int index;
        size_t next;
    };
    std::vector<Frame> stack{{0, 0}};
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next < children[f.index].size()) {
            int c = children[f.index][f.next++];
            WriteSubmodelHead(w, *subs.Get(VEK_submodelHandler::ToHandle(c)));
            for (int h : nodes[c]) WriteNode(w, h);
            stack.push_back({c, 0});
            continue;
        }
        for (size_t b : boxes[f.index]) WriteTextbox(w, net_.TextBoxes()[b]);
        if (f.index != 0) w->CloseElement("submodel");
        stack.pop_back();
    }
}
