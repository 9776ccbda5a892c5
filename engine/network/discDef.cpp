#include "network/discDef.h"

#include <cmath>

#include "inference/randGen.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_discDef::VEK_discDef(VEK_network& net, int handle) : VEK_nodeDef(net, handle) { InitDefaultOutcomeIds(2); }

VEK_discDef::VEK_discDef(const VEK_discDef& other)
    : VEK_nodeDef(other),
      outcomeIds_(other.outcomeIds_),
      intervals_(other.intervals_),
      pointValues_(other.pointValues_),
      ext_(other.ext_ ? std::make_unique<VEK_discDefExtension>(*other.ext_) : nullptr) {}

void VEK_discDef::InitDefaultOutcomeIds(int count) {
    outcomeIds_.Clear();
    for (int i = 0; i < count; ++i) outcomeIds_.CreateAndAddValidId(GetOutcomePrefix(), i);
    intervals_.clear();
    pointValues_.clear();
    ext_.reset();
}

bool VEK_discDef::NodeIsInNetwork() const { return Network().IsValidNode(Handle()); }

// ---------------------------------------------------------------- notifications

int VEK_discDef::NotifyOutcomeInserted(int position) {
    if (!NodeIsInNetwork()) return VEK_OKAY;
    VEK_network& net = Network();
    const int h = Handle();
    net.OnAddOutcome(h, position);
    int res = VEK_OKAY;
    const VEK_intArray children(GetChildren());
    for (int c : children) {
        VEK_nodeDef* def = GetPeerDef(c);
        if (def && (res = def->OnParentOutcomeAdd(h, position)) < 0) break;
    }
    net.RelevanceDefinitionChanged(h, VEK_REL_DEF_CHANGE_1);
    return res < 0 ? res : VEK_OKAY;
}

int VEK_discDef::NotifyOutcomeRemoved(int position) {
    if (!NodeIsInNetwork()) return VEK_OKAY;
    VEK_network& net = Network();
    const int h = Handle();
    net.OnDeleteOutcome(h, position);
    int res = VEK_OKAY;
    const VEK_intArray children(GetChildren());
    for (int c : children) {
        VEK_nodeDef* def = GetPeerDef(c);
        if (def && (res = def->OnParentOutcomeRemove(h, position)) < 0) break;
    }
    net.RelevanceDefinitionChanged(h, VEK_REL_DEF_CHANGE_1);
    return res < 0 ? res : VEK_OKAY;
}

int VEK_discDef::NotifyOutcomesReordered(const VEK_intArray& order) {
    if (!NodeIsInNetwork()) return VEK_OKAY;
    VEK_network& net = Network();
    const int h = Handle();
    net.OnReorderOutcomes(h, order);
    int res = VEK_OKAY;
    const VEK_intArray children(GetChildren());
    for (int c : children) {
        VEK_nodeDef* def = GetPeerDef(c);
        if (def && (res = def->OnParentOutcomeReorder(h, order)) < 0) break;
    }
    net.RelevanceDefinitionChanged(h, VEK_REL_DEF_CHANGE_1);
    return res < 0 ? res : VEK_OKAY;
}

// ---------------------------------------------------------------- outcomes

int VEK_discDef::AddOutcome(const char* id) { return InsertOutcome(GetNumberOfOutcomes(), id); }

int VEK_discDef::InsertOutcome(int position, const char* id) {
    if (HasFixedOutcomes()) return VEK_WRONG_NODE_TYPE;
    const int n = GetNumberOfOutcomes();
    if (position < 0 || position > n) return VEK_OUT_OF_RANGE;
    VEK_updateImmediateContext scope(Network());

    if (outcomeIds_.Insert(position, id) < 0) {
        int res = outcomeIds_.CreateAndInsertValidId(GetOutcomePrefix(), n, position);
        if (res < 0) return res;
    }
    if (!pointValues_.empty()) {
        // The new outcome borrows its neighbour's value until the caller sets one.
        double v = pointValues_[position < n ? position : n - 1];
        pointValues_.insert(pointValues_.begin() + position, v);
    }
    if (!intervals_.empty()) {
        // Duplicating edge k gives the new outcome an empty interval there;
        // every other outcome keeps its interval.
        double e = intervals_[position];
        intervals_.insert(intervals_.begin() + position, e);
    }
    if (ext_) {
        ext_->outcomes.insert(ext_->outcomes.begin() + position, VEK_outcomeInfo());
        if (ext_->defaultOutcome >= position) ++ext_->defaultOutcome;
    }
    AfterInsertOutcome(position);
    return NotifyOutcomeInserted(position);
}

int VEK_discDef::RemoveOutcome(int position) {
    if (HasFixedOutcomes()) return VEK_WRONG_NODE_TYPE;
    const int n = GetNumberOfOutcomes();
    if (n <= 2 || position < 0 || position >= n) return VEK_OUT_OF_RANGE;
    VEK_updateImmediateContext scope(Network());

    (void)outcomeIds_.Delete(position);  // position checked above
    if (!pointValues_.empty()) pointValues_.erase(pointValues_.begin() + position);
    if (!intervals_.empty()) {
        // A neighbour takes over the removed range: the next outcome, or the
        // previous one when the last outcome goes, so the covered range stays.
        int edge = position == n - 1 ? position : position + 1;
        intervals_.erase(intervals_.begin() + edge);
    }
    if (ext_) {
        ext_->outcomes.erase(ext_->outcomes.begin() + position);
        if (ext_->defaultOutcome == position) {
            ext_->defaultOutcome = -1;
        } else if (ext_->defaultOutcome > position) {
            --ext_->defaultOutcome;
        }
    }
    AfterRemoveOutcome(position);
    return NotifyOutcomeRemoved(position);
}

int VEK_discDef::RenameOutcome(int position, const char* id) {
    if (!ValidOutcome(position)) return VEK_OUT_OF_RANGE;
    return outcomeIds_.SetString(position, id);
}

int VEK_discDef::RenameOutcomes(const VEK_idArray& ids) {
    if (ids.GetSize() != GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;
    // Checked as a whole: the new ids may swap names with the old ones.
    VEK_idArray fresh;
    for (int i = 0; i < ids.GetSize(); ++i) {
        if (fresh.Add(ids[i]) < 0) return VEK_OUT_OF_RANGE;
    }
    outcomeIds_ = fresh;
    return VEK_OKAY;
}

int VEK_discDef::RenameOutcomes(const std::vector<std::string>& ids) {
    if (static_cast<int>(ids.size()) != GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;
    VEK_idArray fresh;
    for (const std::string& id : ids) {
        if (fresh.Add(id.c_str()) < 0) return VEK_OUT_OF_RANGE;
    }
    outcomeIds_ = fresh;
    return VEK_OKAY;
}

void VEK_discDef::ReplaceOutcomes(const VEK_idArray& ids) {
    const int n = ids.GetSize();
    outcomeIds_ = ids;
    // Edges and point values described the old outcomes.
    intervals_.clear();
    pointValues_.clear();
    if (ext_) {
        ext_->outcomes.resize(n);
        if (ext_->defaultOutcome >= n) ext_->defaultOutcome = -1;
    }
    AfterOutcomeCountChanged();
    if (NodeIsInNetwork()) {
        Network().OnOutcomeCountChanged(Handle());
        Network().RelevanceDefinitionChanged(Handle(), VEK_REL_DEF_CHANGE_1);
    }
}

int VEK_discDef::SetNumberOfOutcomesWithAddAndRemove(int count) {
    VEK_updateImmediateContext scope(Network());
    while (GetNumberOfOutcomes() < count) {
        int res = AddOutcome(nullptr);
        if (res < 0) return res;
    }
    while (GetNumberOfOutcomes() > count) {
        int res = RemoveOutcome(GetNumberOfOutcomes() - 1);
        if (res < 0) return res;
    }
    return VEK_OKAY;
}

int VEK_discDef::SetNumberOfOutcomes(int count) {
    if (HasFixedOutcomes()) return VEK_WRONG_NODE_TYPE;
    if (count < 2) return VEK_WRONG_NUM_STATES;
    const int n = GetNumberOfOutcomes();
    if (count == n) return VEK_OKAY;
    VEK_updateImmediateContext scope(Network());
    if (GetChildren().GetSize() > 0) return SetNumberOfOutcomesWithAddAndRemove(count);

    VEK_idArray ids;
    for (int i = 0; i < count && i < n; ++i) (void)ids.Add(outcomeIds_[i]);  // ids of a valid list
    for (int i = n; i < count; ++i) ids.CreateAndAddValidId(GetOutcomePrefix(), i);
    ReplaceOutcomes(ids);
    return VEK_OKAY;
}

int VEK_discDef::SetNumberOfOutcomes(const VEK_idArray& ids) {
    if (HasFixedOutcomes()) return VEK_WRONG_NODE_TYPE;
    const int count = ids.GetSize();
    if (count < 2) return VEK_WRONG_NUM_STATES;
    VEK_idArray fresh;
    for (int i = 0; i < count; ++i) {
        if (fresh.Add(ids[i]) < 0) return VEK_OUT_OF_RANGE;
    }
    if (count == GetNumberOfOutcomes()) {
        outcomeIds_ = fresh;
        return VEK_OKAY;
    }
    VEK_updateImmediateContext scope(Network());
    if (GetChildren().GetSize() > 0) {
        int res = SetNumberOfOutcomesWithAddAndRemove(count);
        if (res < 0) return res;
        outcomeIds_ = fresh;
        return VEK_OKAY;
    }
    ReplaceOutcomes(fresh);
    return VEK_OKAY;
}

int VEK_discDef::ChangeOrderOfOutcomes(const VEK_intArray& order) {
    const int n = GetNumberOfOutcomes();
    if (order.GetSize() != n || !order.IsPermutation()) return VEK_OUT_OF_RANGE;
    if (order.IsIdentityPermutation()) return VEK_OKAY;
    VEK_updateImmediateContext scope(Network());

    (void)outcomeIds_.ChangeOrder(order);  // checked to be a permutation above
    if (!pointValues_.empty()) {
        std::vector<double> old(pointValues_);
        for (int i = 0; i < n; ++i) pointValues_[i] = old[order[i]];
    }
    // Interval edges must ascend with the outcome index; a reordered node
    // cannot keep them.
    intervals_.clear();
    if (ext_) {
        std::vector<VEK_outcomeInfo> old(std::move(ext_->outcomes));
        ext_->outcomes.resize(n);
        int newDefault = -1;
        for (int i = 0; i < n; ++i) {
            ext_->outcomes[i] = std::move(old[order[i]]);
            if (order[i] == ext_->defaultOutcome) newDefault = i;
        }
        ext_->defaultOutcome = newDefault;
    }
    AfterReorderOutcomes(order);
    return NotifyOutcomesReordered(order);
}

// order[i] is the old index of new outcome i, or -1 for a new outcome; old
// outcomes missing from order are removed. New outcomes are added first so
// that the node never drops below two outcomes on the way.
int VEK_discDef::ChangeOrderOfOutcomesWithAddAndRemove(const VEK_idArray& ids, const VEK_intArray& order) {
    if (HasFixedOutcomes()) return VEK_WRONG_NODE_TYPE;
    const int n = GetNumberOfOutcomes();
    const int m = order.GetSize();
    if (ids.GetSize() != m) return VEK_OUT_OF_RANGE;
    if (m < 2) return VEK_WRONG_NUM_STATES;
    VEK_idArray fresh;
    for (int i = 0; i < m; ++i) {
        if (fresh.Add(ids[i]) < 0) return VEK_OUT_OF_RANGE;
    }
    std::vector<char> used(n, 0);
    for (int i = 0; i < m; ++i) {
        int o = order[i];
        if (o < -1 || o >= n || (o >= 0 && used[o])) return VEK_OUT_OF_RANGE;
        if (o >= 0) used[o] = 1;
    }
    VEK_updateImmediateContext scope(Network());

    // full[i]: the current index of what becomes outcome i.
    std::vector<int> full(m);
    int next = n;
    for (int i = 0; i < m; ++i) {
        if (order[i] >= 0) {
            full[i] = order[i];
        } else {
            int res = AddOutcome(nullptr);
            if (res < 0) return res;
            full[i] = next++;
        }
    }
    for (int k = n - 1; k >= 0; --k) {
        if (used[k]) continue;
        int res = RemoveOutcome(k);
        if (res < 0) return res;
        for (int& f : full) {
            if (f > k) --f;
        }
    }
    VEK_intArray perm(full);
    int res = ChangeOrderOfOutcomes(perm);
    if (res < 0) return res;
    outcomeIds_ = fresh;
    return VEK_OKAY;
}

// ---------------------------------------------------------------- intervals and point values

int VEK_discDef::SetIntervals(const std::vector<double>& edges, bool adjustCount) {
    const int count = static_cast<int>(edges.size());
    if (count < 3) return VEK_OUT_OF_RANGE;
    for (int i = 0; i + 1 < count; ++i) {
        if (!(edges[i] <= edges[i + 1])) return VEK_INVALID_VALUE;
        if (i + 2 < count && edges[i] == edges[i + 1] && edges[i + 1] == edges[i + 2]) return VEK_INVALID_VALUE;
    }
    if (count - 1 != GetNumberOfOutcomes()) {
        if (!adjustCount) return VEK_OUT_OF_RANGE;
        int res = SetNumberOfOutcomes(count - 1);
        if (res < 0) return res;
    }
    intervals_ = edges;
    return VEK_OKAY;
}

int VEK_discDef::GetInterval(int outcome, double& lo, double& hi) const {
    if (intervals_.empty()) return VEK_NO_ITEM;
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    lo = intervals_[outcome];
    hi = intervals_[outcome + 1];
    return VEK_OKAY;
}

int VEK_discDef::SetPointValues(const std::vector<double>& values) {
    if (static_cast<int>(values.size()) != GetNumberOfOutcomes()) return VEK_OUT_OF_RANGE;
    pointValues_ = values;
    return VEK_OKAY;
}

int VEK_discDef::GetPointValue(int outcome, double& value) const {
    if (pointValues_.empty()) return VEK_NO_ITEM;
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    value = pointValues_[outcome];
    return VEK_OKAY;
}

int VEK_discDef::PointValueToOutcomeIndex(double value) const {
    if (pointValues_.empty()) return VEK_NO_ITEM;
    for (int i = 0; i < static_cast<int>(pointValues_.size()); ++i) {
        if (pointValues_[i] == value) return i;
    }
    return VEK_OUT_OF_RANGE;
}

// Intervals are closed below and open above, except the last, which also
// holds its upper edge; an empty interval holds its single point.
int VEK_discDef::Discretize(double value) const {
    if (intervals_.empty()) return VEK_NO_ITEM;
    const int n = static_cast<int>(intervals_.size()) - 1;
    for (int i = 0; i < n; ++i) {
        double lo = intervals_[i];
        double hi = intervals_[i + 1];
        if (lo == hi ? value == lo : (value >= lo && value < hi)) return i;
    }
    if (value == intervals_[n]) return n - 1;
    return VEK_OUT_OF_RANGE;
}

int VEK_discDef::SamplePoint(int outcome, VEK_randGen& gen, double& value) const {
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    if (!pointValues_.empty()) {
        value = pointValues_[outcome];
        return VEK_OKAY;
    }
    if (intervals_.empty()) return VEK_NO_ITEM;
    double lo = intervals_[outcome];
    double hi = intervals_[outcome + 1];
    if (!std::isfinite(lo) || !std::isfinite(hi)) {
        // An open-ended interval has no uniform draw: take its finite edge.
        value = std::isfinite(lo) ? lo : hi;
        return VEK_OKAY;
    }
    value = lo + (hi - lo) * gen.GetDouble();
    return VEK_OKAY;
}

namespace {

// Per outcome the value that stands for it: the point value, else the
// interval's midpoint.
bool RepresentativeValues(const std::vector<double>& points, const std::vector<double>& edges, int n,
                          std::vector<double>& out) {
    if (!points.empty()) {
        out = points;
        return true;
    }
    if (edges.empty()) return false;
    out.resize(n);
    for (int i = 0; i < n; ++i) out[i] = 0.5 * (edges[i] + edges[i + 1]);
    return true;
}

}  // namespace

int VEK_discDef::GetMean(const double* distribution, double& mean) const {
    if (!distribution) return VEK_OUT_OF_RANGE;
    const int n = GetNumberOfOutcomes();
    std::vector<double> v;
    if (!RepresentativeValues(pointValues_, intervals_, n, v)) return VEK_NO_ITEM;
    double total = 0.0;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        total += distribution[i];
        sum += distribution[i] * v[i];
    }
    if (total <= 0.0) return VEK_INVALID_VALUE;
    mean = sum / total;
    return VEK_OKAY;
}

int VEK_discDef::GetStdDev(const double* distribution, double& sd) const {
    double mean = 0.0;
    int res = GetMean(distribution, mean);
    if (res < 0) return res;
    const int n = GetNumberOfOutcomes();
    std::vector<double> v;
    RepresentativeValues(pointValues_, intervals_, n, v);
    double total = 0.0;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        double d = v[i] - mean;
        total += distribution[i];
        sum += distribution[i] * d * d;
    }
    sd = std::sqrt(sum / total);
    return VEK_OKAY;
}

// ---------------------------------------------------------------- per-outcome extras

VEK_discDefExtension& VEK_discDef::Extension() {
    if (!ext_) {
        ext_ = std::make_unique<VEK_discDefExtension>();
        ext_->outcomes.resize(GetNumberOfOutcomes());
    }
    return *ext_;
}

const char* VEK_discDef::GetOutcomeLabel(int outcome) const {
    return ext_ && ValidOutcome(outcome) ? ext_->outcomes[outcome].label.c_str() : "";
}

const char* VEK_discDef::GetOutcomeComment(int outcome) const {
    return ext_ && ValidOutcome(outcome) ? ext_->outcomes[outcome].comment.c_str() : "";
}

const char* VEK_discDef::GetOutcomeFix(int outcome) const {
    return ext_ && ValidOutcome(outcome) ? ext_->outcomes[outcome].fix.c_str() : "";
}

int VEK_discDef::GetOutcomeDocumentation(int outcome, std::vector<std::string>& titles,
                                         std::vector<std::string>& paths) const {
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    titles.clear();
    paths.clear();
    if (ext_) {
        titles = ext_->outcomes[outcome].docTitles;
        paths = ext_->outcomes[outcome].docPaths;
    }
    return VEK_OKAY;
}

bool VEK_discDef::IsFaultOutcome(int outcome) const {
    return ext_ && ValidOutcome(outcome) && ext_->outcomes[outcome].fault;
}

int VEK_discDef::SetOutcomeLabel(int outcome, const char* text) {
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    if (!ext_ && (!text || !*text)) return VEK_OKAY;
    Extension().outcomes[outcome].label = text ? text : "";
    return VEK_OKAY;
}

int VEK_discDef::SetOutcomeComment(int outcome, const char* text) {
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    if (!ext_ && (!text || !*text)) return VEK_OKAY;
    Extension().outcomes[outcome].comment = text ? text : "";
    return VEK_OKAY;
}

int VEK_discDef::SetOutcomeFix(int outcome, const char* text) {
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    if (!ext_ && (!text || !*text)) return VEK_OKAY;
    Extension().outcomes[outcome].fix = text ? text : "";
    return VEK_OKAY;
}

int VEK_discDef::SetOutcomeDocumentation(int outcome, const std::vector<std::string>& titles,
                                         const std::vector<std::string>& paths) {
    if (!ValidOutcome(outcome) || titles.size() != paths.size()) return VEK_OUT_OF_RANGE;
    if (!ext_ && titles.empty()) return VEK_OKAY;
    VEK_outcomeInfo& info = Extension().outcomes[outcome];
    info.docTitles = titles;
    info.docPaths = paths;
    return VEK_OKAY;
}

int VEK_discDef::SetFaultOutcome(int outcome, bool fault) {
    if (!ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    if (!ext_ && !fault) return VEK_OKAY;
    Extension().outcomes[outcome].fault = fault;
    return VEK_OKAY;
}

int VEK_discDef::SetDefaultOutcome(int outcome) {
    if (outcome != -1 && !ValidOutcome(outcome)) return VEK_OUT_OF_RANGE;
    if (!ext_ && outcome == -1) return VEK_OKAY;
    Extension().defaultOutcome = outcome;
    return VEK_OKAY;
}

// ---------------------------------------------------------------- type change

void VEK_discDef::InitXform(VEK_nodeXformContext& ctx) const {
    VEK_nodeDef::InitXform(ctx);
    ctx.hasOutcomes = true;
    ctx.outcomeIds = outcomeIds_;
    ctx.intervals = intervals_;
    ctx.pointValues = pointValues_;
    ctx.extension = ext_ ? std::make_unique<VEK_discDefExtension>(*ext_) : nullptr;
}

void VEK_discDef::TakeOutcomesFrom(const VEK_nodeXformContext& ctx) {
    if (!ctx.hasOutcomes || ctx.outcomeIds.GetSize() < 2) return;
    const int n = ctx.outcomeIds.GetSize();
    outcomeIds_ = ctx.outcomeIds;
    intervals_.clear();
    pointValues_.clear();
    ext_.reset();
    if (static_cast<int>(ctx.intervals.size()) == n + 1) intervals_ = ctx.intervals;
    if (static_cast<int>(ctx.pointValues.size()) == n) pointValues_ = ctx.pointValues;
    if (ctx.extension && static_cast<int>(ctx.extension->outcomes.size()) == n) {
        ext_ = std::make_unique<VEK_discDefExtension>(*ctx.extension);
    }
}
