// Writing the XML network format: one element per node, parents before
// children, each through a definition visitor whose kinds share one routine
// for the node element, its attributes, states, intervals and parents.
#pragma once

#include <string>
#include <vector>

#include "network/nodeDefVisitor.h"

class VEK_dynamicNet;
class VEK_network;
class VEK_nodeDef;
class VEK_discDef;
class IXmlWriterExtension;
class XmlWriter;
class XmlTovraSaver;

class XmlNetworkSaver : private VEK_nodeDefVisitor {
public:
    // extension writes inside <extensions>; builtIn, when it is the built-in
    // graphical saver, lets an empty extension be left out.
    XmlNetworkSaver(VEK_network& net, XmlWriter& writer, IXmlWriterExtension* extension,
                    const XmlTovraSaver* builtIn);
    // 0, or -51 (logged) for a node kind the format cannot hold yet.
    [[nodiscard]] int DoSave();

private:
    struct NodeAttributes {
        const char* function = nullptr;  // noisy-adder combination
        bool hasDstate = false;
        int dstate = 0;
        bool synchronized = false;
    };

    void Visit(VEK_nodeDef* def) override;
    void Visit(VEK_cpt* def) override;
    void Visit(VEK_truthTable* def) override;
    void Visit(VEK_noisyMAX* def) override;
    void Visit(VEK_noisyAdder* def) override;
    void Visit(VEK_cast* def) override;
    void Visit(VEK_demorgan* def) override;
    void Visit(VEK_decision* def) override;
    void Visit(VEK_utility* def) override;
    void Visit(VEK_mau* def) override;
    void Visit(VEK_equation* def) override;

    // Opens the node element: attributes, states, intervals or point
    // values, parents.
    void StartNode(const char* element, VEK_nodeDef* def, bool states, const NodeAttributes& extra);
    void StartNode(const char* element, VEK_nodeDef* def, bool states);
    // Node properties, then the closing tag.
    void EndNode(const char* element);
    void WriteStates(const VEK_discDef& def);
    void WriteParents();
    void WriteNodes();
    void WriteTemporalDefinitions(const VEK_dynamicNet& dyn);
    void WriteCosts();
    void WriteCases();

    VEK_network& net_;
    XmlWriter& w_;
    IXmlWriterExtension* extension_;
    const XmlTovraSaver* builtIn_;
    std::vector<int> order_;
    int node_ = -1;
    std::vector<const char*> strings_;
    int status_ = 0;
};

// Every node after all its parents; ties in handle order (the network's
// partial order, computed without recursion).
void XmlNodeOrder(const VEK_network& net, std::vector<int>& order);

// Writes the network to the file at path, or else appends it to *out,
// starting with the XML declaration. extension replaces the built-in
// graphical extension when not null. 0 or a negative status (logged).
[[nodiscard]] int XmlSave(const char* path, std::string* out, VEK_network* net, IXmlWriterExtension* extension);
