#include "inference/tsClique.h"

#include <algorithm>

void TsClique::SortNodes() {
    if (nodes.size() > 2) std::sort(nodes.begin() + 1, nodes.end());
}

TsClique* TsClique::Pool::New() {
    auto c = std::make_unique<TsClique>();
    c->creation = Count();
    cliques_.push_back(std::move(c));
    return cliques_.back().get();
}

void TsClique::Pool::Mark(const TsClique& c) {
    if (scratch_.size() != static_cast<size_t>(nodeCount_)) scratch_.assign(static_cast<size_t>(nodeCount_), 0);
    for (int n : c.nodes) scratch_[static_cast<size_t>(n)] = 1;
}

void TsClique::Pool::Unmark(const TsClique& c) {
    for (int n : c.nodes) scratch_[static_cast<size_t>(n)] = 0;
}
