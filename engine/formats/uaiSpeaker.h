// UAI .uai files: the network format of the inference competitions. In
// order: the word BAYES; the number of variables; the number of states of
// each; the number of functions (one per variable); each function's scope as
// a count followed by variable indices (0-based), the parents first and the
// child last; then each function's table as an entry count followed by the
// entries, the last variable of the scope varying fastest (the engine's own
// order). MARKOV files describe undirected models and are refused.
//
// The format has no names: variables read as nodes v0, v1, ... with states
// s0, s1, ..., in the order of the file. Written variables follow the
// network's node order, which is also the order in which an evidence file
// (.uai.evid: the number of observed variables, then index and state pairs)
// names them.
#pragma once

#include <vector>

#include "formats/textSpeaker.h"

struct VEK_uaiFunction {
    std::vector<int> scope;  // parents, then the child
    VEK_descPos pos;
    std::vector<double> values;
};

class VEK_uaiSpeaker : public VEK_textSpeaker {
public:
    explicit VEK_uaiSpeaker(VEK_network& net) : VEK_textSpeaker(net, "UAI") {}

    // Sets the evidence of an evidence file on the network: the named
    // variables get the given states, the other nodes keep theirs. The file
    // is checked as a whole first, so a faulty file changes nothing.
    [[nodiscard]] int ReadEvidence(const char* path);
    [[nodiscard]] int ReadEvidenceFromString(const char* text);

protected:
    // Builds the nodes straight into the network, in the file's order (the
    // description would place parents first, and evidence files count on
    // the order); desc carries nothing.
    [[nodiscard]] int Parse(VEK_netDesc& desc) override;
    std::string CheckWritable() override;
    void WriteText() override;

private:
    // owner[v]: the function whose child v is.
    [[nodiscard]] int CheckAcyclic(const std::vector<VEK_uaiFunction>& functions, const std::vector<int>& owner);
    [[nodiscard]] int SetEvidenceFromInput();
};
