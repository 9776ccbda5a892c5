// Netica .dne files: a bnet block of node blocks, each a list of
// "field = value;" statements and nested blocks (visual, user...). Read:
// kind (NATURE, DECISION, UTILITY, CONSTANT), discrete, chance (CHANCE or
// DETERMIN), states, numstates, levels, parents, probs, functable, title,
// comment, statetitles, statecomments and the centre of the node's visual
// block; the bnet's own title and comment. Everything else is skipped.
//
// Written: chance nodes (canonical ones by their computed table), truth
// tables as deterministic nature nodes with a functable, decisions and
// utility nodes. Netica names are ASCII, start with a letter and have at
// most 30 characters: an id that is not such a name is written shortened
// or repaired, with the original text kept as the title.
#pragma once

#include <string>
#include <vector>

#include "formats/textSpeaker.h"

class VEK_neticaSpeaker : public VEK_textSpeaker {
public:
    explicit VEK_neticaSpeaker(VEK_network& net) : VEK_textSpeaker(net, "Netica") {}

    // What the network description does not carry, per described node.
    struct Extra {
        bool hasComment = false;
        std::string comment;
        std::vector<std::string> stateTitles;
        std::vector<std::string> stateComments;
    };

protected:
    [[nodiscard]] int Parse(VEK_netDesc& desc) override;
    [[nodiscard]] int Finish(const VEK_netDesc& desc, const std::vector<int>& handles) override;
    std::string CheckWritable() override;
    void WriteText() override;

private:
    struct NodeParse;  // the fields of one node block as read

    [[nodiscard]] int ParseBnet(VEK_netDesc& desc);
    [[nodiscard]] int ParseNode(VEK_netDesc& desc, const VEK_token& nameToken);
    [[nodiscard]] int ParseVisual(NodeParse& np);
    [[nodiscard]] int ParseField(NodeParse& np, const std::string& field);
    [[nodiscard]] int ParseWordField(NodeParse& np, const std::string& field);
    [[nodiscard]] int MakeStates(NodeParse& np);
    [[nodiscard]] int MakeTable(NodeParse& np);
    [[nodiscard]] int ReadList(std::vector<VEK_token>& items, VEK_descPos& pos);
    [[nodiscard]] int ReadNested(const std::string& node, std::vector<VEK_token>* items, std::vector<double>* numbers,
                   VEK_descPos& pos);
    [[nodiscard]] int ReadText(std::string& text);
    // Skips "= value ;" or "header { ... } [;]" after a field name.
    [[nodiscard]] int SkipStatement();
    // Skips a value up to its ';', brackets balanced; after the '='.
    [[nodiscard]] int SkipValue();
    [[nodiscard]] int SkipBlockBody();

    std::vector<Extra> extras_;
    bool hasTitle_ = false;
    std::string title_;
    bool hasComment_ = false;
    std::string comment_;
};
