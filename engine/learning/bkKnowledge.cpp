#include "learning/bkKnowledge.h"

#include <algorithm>
#include <functional>

#include "learning/dataset.h"
#include "network/status.h"

namespace {

int Fail(int code, std::string* errorMessage, const std::string& text) {
    if (errorMessage) *errorMessage = text;
    return code;
}

std::string ArcText(const VEK_bkKnowledge::Arc& a) { return "'" + a.first + "' -> '" + a.second + "'"; }

}  // namespace

void VEK_bkConstraints::Reset(int n) {
    size = n;
    forced.assign(static_cast<size_t>(n) * n, 0);
    forbidden.assign(static_cast<size_t>(n) * n, 0);
    tier.assign(n, -1);
}

int VEK_bkKnowledge::Check(std::string* errorMessage) const {
    for (const Arc& a : forced_) {
        if (a.first == a.second) return Fail(VEK_INVALID_VALUE, errorMessage, "Arc " + ArcText(a) + " is a loop");
        if (std::find(forbidden_.begin(), forbidden_.end(), a) != forbidden_.end()) {
            return Fail(VEK_INVALID_VALUE, errorMessage, "Arc " + ArcText(a) + " is both forced and forbidden");
        }
        auto p = tiers_.find(a.first), c = tiers_.find(a.second);
        if (p != tiers_.end() && c != tiers_.end() && p->second > c->second) {
            return Fail(VEK_INVALID_VALUE, errorMessage,
                        "Forced arc " + ArcText(a) + " goes from tier " + std::to_string(p->second) + " to tier " +
                            std::to_string(c->second));
        }
    }
    for (const Arc& a : forbidden_) {
        if (a.first == a.second) return Fail(VEK_INVALID_VALUE, errorMessage, "Arc " + ArcText(a) + " is a loop");
    }
    // Forced arcs must be acyclic: depth-first search with colours.
    std::map<std::string, int> colour;
    std::function<bool(const std::string&)> cyclic = [&](const std::string& v) {
        colour[v] = 1;
        for (const Arc& a : forced_) {
            if (a.first != v) continue;
            const int c = colour[a.second];
            if (c == 1 || (c == 0 && cyclic(a.second))) return true;
        }
        colour[v] = 2;
        return false;
    };
    for (const Arc& a : forced_) {
        if (colour[a.first] == 0 && cyclic(a.first)) {
            return Fail(VEK_CYCLE, errorMessage, "The forced arcs form a cycle");
        }
    }
    return VEK_OKAY;
}

int VEK_bkKnowledge::AddForcedArc(const std::string& parent, const std::string& child, std::string* errorMessage) {
    forced_.emplace_back(parent, child);
    const int res = Check(errorMessage);
    if (res != VEK_OKAY) forced_.pop_back();
    return res;
}

int VEK_bkKnowledge::AddForbiddenArc(const std::string& parent, const std::string& child, std::string* errorMessage) {
    forbidden_.emplace_back(parent, child);
    const int res = Check(errorMessage);
    if (res != VEK_OKAY) forbidden_.pop_back();
    return res;
}

int VEK_bkKnowledge::SetTier(const std::string& column, int tier, std::string* errorMessage) {
    if (tier < 0) return Fail(VEK_OUT_OF_RANGE, errorMessage, "A tier can't be negative");
    auto it = tiers_.find(column);
    const bool had = it != tiers_.end();
    const int old = had ? it->second : 0;
    tiers_[column] = tier;
    const int res = Check(errorMessage);
    if (res != VEK_OKAY) {
        if (had) tiers_[column] = old;
        else tiers_.erase(column);
    }
    return res;
}

void VEK_bkKnowledge::Clear() {
    forced_.clear();
    forbidden_.clear();
    tiers_.clear();
}

int VEK_bkKnowledge::Resolve(const VEK_dataset& data, VEK_bkConstraints& out, std::string* errorMessage) const {
    const int res = Check(errorMessage);
    if (res != VEK_OKAY) return res;
    VEK_bkConstraints c;
    c.Reset(data.GetNumberOfVariables());
    auto find = [&](const std::string& id, int& index) {
        index = data.FindVariable(id.c_str());
        if (index >= 0) return VEK_OKAY;
        return Fail(VEK_NO_ITEM, errorMessage, "Background knowledge names column '" + id + "', which is not in the data");
    };
    for (int pass = 0; pass < 2; ++pass) {
        for (const Arc& a : pass == 0 ? forced_ : forbidden_) {
            int p = 0, ch = 0;
            if (find(a.first, p) != VEK_OKAY || find(a.second, ch) != VEK_OKAY) return VEK_NO_ITEM;
            (pass == 0 ? c.forced : c.forbidden)[static_cast<size_t>(p) * c.size + ch] = 1;
        }
    }
    for (const auto& [id, t] : tiers_) {
        int v = 0;
        if (find(id, v) != VEK_OKAY) return VEK_NO_ITEM;
        c.tier[v] = t;
    }
    out = std::move(c);
    return VEK_OKAY;
}
