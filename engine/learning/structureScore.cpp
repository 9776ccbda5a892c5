#include "learning/structureScore.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "learning/familyCounts.h"

const char* VEK_structureScore::TypeName(int type) {
    switch (type) {
    case BDEU: return "bdeu";
    case K2: return "k2";
    case BIC: return "bic";
    default: return "";
    }
}

int VEK_structureScore::TypeFromName(const std::string& name) {
    for (int t = BDEU; t <= BIC; ++t) {
        if (name == TypeName(t)) return t;
    }
    return -1;
}

VEK_structureScore::VEK_structureScore(const VEK_familyCounts& counts, int type, double ess)
    : counts_(counts), type_(type), ess_(ess) {
    const int n = counts.GetRecordCount();
    logRecords_ = std::log(static_cast<double>(std::max(n, 1)));
    // A table much larger than the data has mostly empty cells and cannot be
    // supported by it; bounding it bounds the counting buffers too.
    tableLimit_ = std::max<long long>(1 << 16, 4LL * n);
    const int small = std::min(n, 1 << 16) + 1;
    logTable_.resize(small);
    logTable_[0] = 0.0;
    for (int i = 1; i < small; ++i) logTable_[i] = i * std::log(static_cast<double>(i));
}

double VEK_structureScore::FromCounts(const int* counts, int q, int r) const {
    double s = 0.0;
    auto nlogn = [this](int x) {
        return x < static_cast<int>(logTable_.size()) ? logTable_[x] : x * std::log(static_cast<double>(x));
    };
    if (type_ == BIC) {
        for (int j = 0; j < q; ++j) {
            const int* c = counts + static_cast<size_t>(j) * r;
            int nj = 0;
            for (int k = 0; k < r; ++k) {
                nj += c[k];
                s += nlogn(c[k]);
            }
            s -= nlogn(nj);
        }
        return s - 0.5 * logRecords_ * static_cast<double>(q) * (r - 1);
    }
    const double ajk = type_ == K2 ? 1.0 : ess_ / (static_cast<double>(q) * r);
    const double aj = ajk * r;
    const double lgAjk = std::lgamma(ajk);
    const double lgAj = std::lgamma(aj);
    for (int j = 0; j < q; ++j) {
        const int* c = counts + static_cast<size_t>(j) * r;
        int nj = 0;
        for (int k = 0; k < r; ++k) {
            if (c[k] == 0) continue;
            nj += c[k];
            s += std::lgamma(ajk + c[k]) - lgAjk;
        }
        if (nj > 0) s += lgAj - std::lgamma(aj + nj);
    }
    return s;
}

std::string VEK_structureScore::Key(int child, std::vector<int> parents) const {
    std::sort(parents.begin(), parents.end());
    // Column indices below 2^16 make two bytes per column.
    std::string key(2 * (1 + parents.size()), '\0');
    key[0] = static_cast<char>(child & 0xff);
    key[1] = static_cast<char>(child >> 8);
    for (size_t i = 0; i < parents.size(); ++i) {
        key[2 + 2 * i] = static_cast<char>(parents[i] & 0xff);
        key[3 + 2 * i] = static_cast<char>(parents[i] >> 8);
    }
    return key;
}

double VEK_structureScore::Family(int child, const std::vector<int>& parents) {
    std::string key = Key(child, parents);
    auto it = cache_.find(key);
    if (it != cache_.end()) return it->second;
    const int r = counts_.GetStateCount(child);
    const int np = static_cast<int>(parents.size());
    const long long q = counts_.ConfigCount(parents.data(), np, tableLimit_ / r);
    double s = -std::numeric_limits<double>::infinity();
    if (q > 0) {
        counts_.Count(child, parents.data(), np, buffer_);
        s = FromCounts(buffer_.data(), static_cast<int>(q), r);
    }
    cache_.emplace(std::move(key), s);
    return s;
}

bool VEK_structureScore::Cached(int child, const std::vector<int>& parents, int extra, double& value) const {
    std::vector<int> all(parents);
    if (extra >= 0) all.push_back(extra);
    auto it = cache_.find(Key(child, std::move(all)));
    if (it == cache_.end()) return false;
    value = it->second;
    return true;
}

double VEK_structureScore::FamilyPlus(int child, const std::vector<int>& parents, const std::vector<int>& index,
                                      int q, int extra) {
    std::vector<int> all(parents);
    if (extra >= 0) all.push_back(extra);
    std::string key = Key(child, all);
    auto it = cache_.find(key);
    if (it != cache_.end()) return it->second;
    const int r = counts_.GetStateCount(child);
    const long long qq = static_cast<long long>(q) * (extra >= 0 ? counts_.GetStateCount(extra) : 1);
    double s = -std::numeric_limits<double>::infinity();
    if (qq * r <= tableLimit_) {
        counts_.CountIndexed(child, index, q, extra, buffer_);
        s = FromCounts(buffer_.data(), static_cast<int>(qq), r);
    }
    cache_.emplace(std::move(key), s);
    return s;
}
