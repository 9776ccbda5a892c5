#include "inference/inferenceCache.h"

#include <iterator>

#include "inference/tsJoinTree.h"
#include "network/network.h"

VEK_inferenceCache::VEK_inferenceCache() = default;
VEK_inferenceCache::~VEK_inferenceCache() = default;

uint64_t VEK_inferenceCache::Hash(const std::vector<int>& key, size_t from, uint64_t seed) {
    uint64_t h = seed;
    for (size_t i = from; i < key.size(); ++i) {
        h ^= static_cast<uint32_t>(key[i]);
        h *= 1099511628211ULL;
    }
    return h;
}

TsJoinTree* VEK_inferenceCache::FindTree(const std::vector<int>& key, uint64_t h) {
    for (auto it = trees_.begin(); it != trees_.end(); ++it) {
        if (it->hash == h && it->key == key) {
            if (it != trees_.begin()) trees_.splice(trees_.begin(), trees_, it);
            trees_.front().pass = pass_;
            return trees_.front().tree.get();
        }
    }
    return nullptr;
}

TsJoinTree* VEK_inferenceCache::StoreTree(std::vector<int>&& key, std::unique_ptr<TsJoinTree> tree) {
    Entry e;
    e.hash = Hash(key);
    e.pass = pass_;
    e.key = std::move(key);
    e.tree = std::move(tree);
    trees_.push_front(std::move(e));
    Trim();
    return trees_.front().tree.get();
}

void VEK_inferenceCache::Trim() {
    int current = 0;
    int earlier = 0;
    for (auto it = trees_.begin(); it != trees_.end();) {
        const bool recent = it->pass + 1 >= pass_;
        const bool keep = recent ? ++current <= kMaxPassTrees : ++earlier <= kMaxTrees;
        it = keep ? std::next(it) : trees_.erase(it);
    }
    // Older trees give up their potential storage first, then go entirely.
    int64_t used = 0;
    for (auto it = std::next(trees_.begin()); it != trees_.end(); ++it) {
        const int64_t a = it->tree->ArenaSize();
        if (used + a > kArenaBudget) {
            it->tree->ReleaseArena();
        } else {
            used += a;
        }
    }
}

void VEK_inferenceCache::DropTrees() {
    trees_.clear();
    choices_.clear();
}

int VEK_inferenceCache::FindChoice(const std::vector<int>& pattern, uint64_t h) const {
    for (const Choice& c : choices_)
        if (c.hash == h && c.pattern == pattern) return c.whole ? 1 : 0;
    return -1;
}

void VEK_inferenceCache::StoreChoice(const std::vector<int>& pattern, uint64_t hash, bool whole) {
    Choice c;
    c.pattern = pattern;
    c.hash = hash;
    c.whole = whole;
    choices_.push_front(std::move(c));
    if (static_cast<int>(choices_.size()) > kMaxChoices) choices_.pop_back();
}

// ---------------------------------------------------------------- holder in the network

VEK_inferenceCacheHolder::~VEK_inferenceCacheHolder() { delete cache_; }

VEK_inferenceCache& VEK_inferenceCacheHolder::Get() const {
    if (!cache_) cache_ = new VEK_inferenceCache();
    return *cache_;
}

void VEK_inferenceCacheHolder::Reset() {
    delete cache_;
    cache_ = nullptr;
}
