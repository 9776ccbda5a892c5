// The graphical extension of the XML network format, element `tovra` inside
// `extensions`: network name, comment and documentation, and per node and
// submodel the presentation (name, colours, font, position, comment, bar
// chart), diagnostic texts (question, per-state fix, comment and links,
// links), the submodel tree with its members, and text boxes.
//
// Layout written (every part only when it holds something):
//   <tovra version="1.0" app="pyquarn" name="..." leftwidth="L" rightwidth="R">
//     <comment>network comment</comment>
//     <plate><position>left top right bottom</position></plate>
//                                                    the temporal plate
//     <link title="..." path="..." />                network documentation
//     <node id="A"> name, interior, outline, font, position, comment,
//                   barchart, question, state*, link* </node>
//     <submodel id="S"> name, comment, interior, outline, font, position,
//                   then its own node*, submodel*, textbox* </submodel>
//     <textbox> caption, font, position </textbox>
//   </tovra>
// A graphical `node` is written for every node inside a submodel and for
// main-model nodes whose presentation differs from the defaults. A `state`
// holds `fix` and `comment` children (so any text survives) and `link`s
// for the outcome's documentation; fix and comment are also read as
// attributes. The temporal plate's widths are written (both) when either is
// not 0, its position when it is not all 0. `window` and `align` are
// accepted and ignored: the engine keeps no submodel window or text
// alignment yet.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "network/network.h"
#include "xml/xmlHandler.h"
#include "xml/xmlWriter.h"

class IXmlReader;

// A loader of the graphical extension: its binding is hung under the
// document's `extensions` element.
class IXmlTovraLoader {
public:
    // The `tovra` binding; owned by the loader.
    virtual IXmlBinding* GetBinding() = 0;
    virtual void Delete() { delete this; }
    virtual ~IXmlTovraLoader() = default;
};

class XmlTovraLoader : public IXmlTovraLoader {
public:
    explicit XmlTovraLoader(VEK_network& net);
    ~XmlTovraLoader() override;
    XmlTovraLoader(const XmlTovraLoader&) = delete;
    XmlTovraLoader& operator=(const XmlTovraLoader&) = delete;

    IXmlBinding* GetBinding() override { return root_; }

private:
    enum class Kind { Node, Submodel, Textbox, State, Plate };
    struct Context {
        Kind kind;
        int handle;  // node, submodel, or the state's node
        int index;   // state: outcome index; text box: index in boxes_
    };

    XmlHandler<XmlTovraLoader>* Bind(const char* name, void (XmlTovraLoader::*start)(IXmlReader*),
                                     void (XmlTovraLoader::*end)(IXmlReader*));
    void Fail(IXmlReader* r, const char* message, const std::string& name);
    int Container() const;
    VEK_screenInfo* Screen();
    VEK_font* Font();
    [[nodiscard]] bool ReadColor(IXmlReader* r, const char* attribute, unsigned& color);

    void OnTovraStart(IXmlReader* r);
    void OnTovraEnd(IXmlReader* r);
    void OnCommentEnd(IXmlReader* r);
    void OnLinkStart(IXmlReader* r);
    void OnNodeStart(IXmlReader* r);
    void OnSubmodelStart(IXmlReader* r);
    void OnTextboxStart(IXmlReader* r);
    void OnPlateStart(IXmlReader* r);
    void OnStateStart(IXmlReader* r);
    void OnPop(IXmlReader* r);
    void OnNameEnd(IXmlReader* r);
    void OnInteriorStart(IXmlReader* r);
    void OnOutlineStart(IXmlReader* r);
    void OnFontStart(IXmlReader* r);
    void OnPositionEnd(IXmlReader* r);
    void OnCaptionEnd(IXmlReader* r);
    void OnBarchartStart(IXmlReader* r);
    void OnQuestionEnd(IXmlReader* r);
    void OnFixEnd(IXmlReader* r);

    VEK_network& net_;
    XmlBindingList bindings_;
    IXmlBinding* root_ = nullptr;
    std::unordered_map<std::string, int> nodes_;
    std::vector<Context> stack_;
    std::vector<VEK_textBox> boxes_;
    std::string text_;
};

class XmlTovraSaver : public IXmlWriterExtension {
public:
    explicit XmlTovraSaver(const VEK_network& net) : net_(net) {}
    // True when the network holds anything the extension writes.
    bool HasContent() const;
    void Write(IXmlWriter* writer) override;

private:
    bool NodeIsPlain(int handle) const;
    bool HasPlate() const;
    void WriteNode(IXmlWriter* w, int handle) const;
    void WriteSubmodelHead(IXmlWriter* w, const VEK_submodel& s) const;
    void WriteTextbox(IXmlWriter* w, const VEK_textBox& box) const;

    const VEK_network& net_;
};

// Helpers shared with the tests: the file's colour text for a stored colour
// (red in the lowest byte) and back.
std::string XmlColorText(unsigned color);
[[nodiscard]] bool XmlParseColor(const char* text, unsigned& color);
// "left top right bottom" of a rectangle stored by its centre, and back;
// false when the text is not four ints or the result does not fit.
std::string XmlPositionText(const VEK_rectangle& rect);
[[nodiscard]] bool XmlParsePosition(const char* text, VEK_rectangle& rect);
