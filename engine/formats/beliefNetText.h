// The "belief network" text family shared by the Microsoft (.dsc) and KI
// (.dxp) formats:
//
//     belief network "name"
//     properties { type key = string; key = "value"; }
//     node id {
//         name = "full name";
//         type = discrete[2] = { "state a", "state b" };   // or type : ...
//         position = (x, y);
//         key = "value";                                  // node property
//     }
//     probability(child | parent1, parent2) {
//         (0, 1) : 0.2, 0.8;          // parent states by index or by name
//         default = 0.5, 0.5;         // every configuration not listed
//     }
//
// A table may also be given flat (probability(a) { 0.3, 0.7; }), parents
// slowest and the child's states fastest. '=' and ':' are interchangeable
// after a field's name and commas between items may be left out.
//
// Holds discrete chance nodes only; canonical and deterministic nodes are
// written as their probability tables. State names are quoted strings, so
// any label survives; node names sit in the name field.
#pragma once

#include <vector>

#include "formats/textSpeaker.h"

struct VEK_beliefNetDialect {
    const char* formatName;
    bool spacedStyle;   // "type : discrete [ 2 ]", "probability ( a | b )", "( 0, 1 ) :"
    bool positions;     // writes position = (x, y)
    bool properties;    // writes user properties (declared in properties { })
};

class VEK_beliefNetSpeaker : public VEK_textSpeaker {
public:
    VEK_beliefNetSpeaker(VEK_network& net, const VEK_beliefNetDialect& dialect);

protected:
    [[nodiscard]] int Parse(VEK_netDesc& desc) override;
    std::string CheckWritable() override;
    void WriteText() override;

private:
    struct RowRef {
        size_t table;
        size_t row;
        size_t parent;
        VEK_token token;  // an index or a state name
    };

    [[nodiscard]] int ParseProperties(VEK_netDesc& desc);
    [[nodiscard]] int ParseNode(VEK_netDesc& desc, const VEK_token& name);
    [[nodiscard]] int ParseProbability(VEK_netDesc& desc, const VEK_token& keyword);
    // Reads tokens up to the ';' of a field, brackets nested; the value's
    // text for a property.
    [[nodiscard]] int ReadValueText(std::string& text);
    // Numbers up to ';', commas optional.
    [[nodiscard]] int ReadNumbers(std::vector<double>& values, VEK_descPos& pos);
    [[nodiscard]] int ResolveRows(VEK_netDesc& desc);

    VEK_beliefNetDialect dialect_;
    std::vector<RowRef> refs_;
};
