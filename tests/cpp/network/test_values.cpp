// Node values: evidence and its flags, soft evidence, propagated evidence,
// interventions, utility rescaling, type changes, outcome changes and the
// evidence snapshot.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "network/beliefVector.h"
#include "network/discDef.h"
#include "network/expectedUtility.h"
#include "network/mauExpectedUtility.h"
#include "network/network.h"
#include "network/networkState.h"
#include "network/nodeDef.h"
#include "network/policyValues.h"

namespace {

// Chance node with the given outcome ids.
int AddChance(VEK_network& net, const char* id, const std::vector<std::string>& outcomes, int type = VEK_CPT) {
    int h = net.AddNode(type, id);
    EXPECT_GE(h, 0);
    VEK_idArray ids;
    for (const auto& o : outcomes) ids.Add(o.c_str());
    EXPECT_EQ(net.GetDef(h)->SetNumberOfOutcomes(ids), VEK_OKAY);
    return h;
}

std::vector<double> Items(const VEK_nodeVal* v) {
    const VEK_Dmatrix* m = v->GetMatrix();
    return m ? m->GetItems().ToVector() : std::vector<double>{};
}

VEK_discDef* Disc(VEK_network& net, int h) { return dynamic_cast<VEK_discDef*>(net.GetDef(h)); }

// a (3 outcomes) -> b (2) -> c (2); d (2) stands apart.
class ValueTest : public ::testing::Test {
protected:
    void SetUp() override {
        a = AddChance(net, "a", {"a0", "a1", "a2"});
        b = AddChance(net, "b", {"b0", "b1"});
        c = AddChance(net, "c", {"c0", "c1"});
        d = AddChance(net, "d", {"d0", "d1"});
        ASSERT_EQ(net.AddArc(a, b), VEK_OKAY);
        ASSERT_EQ(net.AddArc(b, c), VEK_OKAY);
    }
    VEK_nodeVal* V(int h) { return net.GetVal(h); }

    VEK_network net;
    int a = -1, b = -1, c = -1, d = -1;
};

}  // namespace

// ---------------------------------------------------------------- hard evidence

TEST_F(ValueTest, HardEvidenceByOutcomeOrIdentifierAndClearing) {
    VEK_nodeVal* v = V(a);
    EXPECT_EQ(v->GetType(), VEK_BELIEFVECTOR);
    EXPECT_EQ(v->GetEvidence(), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetEvidenceId(), nullptr);
    ASSERT_EQ(v->SetEvidence(1), VEK_OKAY);
    ASSERT_EQ(v->SetEvidence(2), VEK_OKAY);  // replaces
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);
    EXPECT_STREQ(v->GetEvidenceId(), "a2");
    EXPECT_EQ(Items(v), (std::vector<double>{0.0, 0.0, 1.0}));
    EXPECT_EQ(v->GetMatrix()->GetNumberOfDimensions(), 1);
    EXPECT_EQ(V(b)->GetFlags(), 0);  // other nodes are untouched

    ASSERT_EQ(v->SetEvidence("a0"), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(), 0);
    // Refused: unknown ids (case matters) and outcomes out of range; the
    // evidence stays as it was.
    EXPECT_EQ(v->SetEvidence("nope"), VEK_ILLEGAL_IDENTIFIER);
    EXPECT_EQ(v->SetEvidence(static_cast<const char*>(nullptr)), VEK_ILLEGAL_IDENTIFIER);
    EXPECT_EQ(v->SetEvidence("A2"), VEK_ILLEGAL_IDENTIFIER);
    EXPECT_EQ(v->SetEvidence(3), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->SetEvidence(-1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);
    EXPECT_EQ(Items(v), (std::vector<double>{1.0, 0.0, 0.0}));

    // Nor does a refusal take away virtual evidence.
    VEK_nodeVal* w = V(b);
    ASSERT_EQ(w->SetVirtualEvidence(std::vector<double>{0.3, 0.7}), VEK_OKAY);
    EXPECT_EQ(w->SetEvidence(2), VEK_OUT_OF_RANGE);
    EXPECT_TRUE(w->IsVirtualEvidence());

    v->SetStamp(7);
    EXPECT_EQ(v->ClearEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetStamp(), 0);
    EXPECT_EQ(v->GetEvidence(), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetEvidenceId(), nullptr);
}

TEST_F(ValueTest, EvidenceAsNumberThroughIntervals) {
    VEK_discDef* def = Disc(net, a);
    ASSERT_EQ(def->SetIntervals({0.0, 1.0, 2.0, 3.0}), VEK_OKAY);
    VEK_nodeVal* v = V(a);
    double x = 0.0;

    ASSERT_EQ(v->SetEvidence(1.5), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(), 1);
    ASSERT_EQ(v->GetEvidence(x), VEK_OKAY);
    EXPECT_EQ(x, 1.5);
    EXPECT_TRUE(dynamic_cast<VEK_discVal*>(v)->IsEvidenceAsNumber());
    double mean = 0.0, sd = -1.0;
    ASSERT_EQ(v->GetMean(mean), VEK_OKAY);
    EXPECT_EQ(mean, 1.5);
    ASSERT_EQ(v->GetStdDev(sd), VEK_OKAY);
    EXPECT_EQ(sd, 0.0);

    // A number outside every interval is refused and changes nothing.
    EXPECT_LT(v->SetEvidence(7.0), 0);
    EXPECT_EQ(v->GetEvidence(), 1);
    ASSERT_EQ(v->GetEvidence(x), VEK_OKAY);
    EXPECT_EQ(x, 1.5);

    // Evidence given as an outcome has no number.
    ASSERT_EQ(v->SetEvidence(2), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(x), VEK_NO_ITEM);
    EXPECT_FALSE(dynamic_cast<VEK_discVal*>(v)->IsEvidenceAsNumber());
    ASSERT_EQ(v->ClearEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(x), VEK_OUT_OF_RANGE);
}

TEST_F(ValueTest, EvidenceAsNumberThroughPointValues) {
    VEK_nodeVal* v = V(b);
    EXPECT_EQ(v->SetEvidence(1.0), VEK_NO_ITEM);  // neither intervals nor point values
    EXPECT_FALSE(v->IsEvidence());
    ASSERT_EQ(Disc(net, b)->SetPointValues({10.0, 20.0}), VEK_OKAY);
    ASSERT_EQ(v->SetEvidence(20.0), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(), 1);
    EXPECT_LT(v->SetEvidence(15.0), 0);
    EXPECT_EQ(v->GetEvidence(), 1);

    // Mean of the evidence vector of an outcome: its point value.
    ASSERT_EQ(v->SetEvidence(0), VEK_OKAY);
    double mean = 0.0;
    ASSERT_EQ(v->GetMean(mean), VEK_OKAY);
    EXPECT_DOUBLE_EQ(mean, 10.0);
    // Without a computed value there is nothing to average.
    ASSERT_EQ(v->ClearEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetMean(mean), VEK_NO_ITEM);
}

// ---------------------------------------------------------------- virtual evidence

TEST_F(ValueTest, VirtualEvidenceScalingAndChecks) {
    VEK_nodeVal* v = V(b);
    std::vector<double> out;
    EXPECT_EQ(v->GetVirtualEvidence(out), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->ClearVirtualEvidence(), VEK_NO_ITEM);

    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.2, 0.2}), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_VIRTUAL);
    ASSERT_EQ(v->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_EQ(out, (std::vector<double>{0.5, 0.5}));

    // Within 5e-6 of a sum of 1 the values are kept exactly.
    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.5, 0.50000001}), VEK_OKAY);
    ASSERT_EQ(v->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_EQ(out, (std::vector<double>{0.5, 0.50000001}));
    // Just past the tolerance they are scaled.
    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.5, 0.50001}), VEK_OKAY);
    ASSERT_EQ(v->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_DOUBLE_EQ(out[0], 0.5 / 1.00001);
    EXPECT_DOUBLE_EQ(out[0] + out[1], 1.0);

    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.25, 0.75}), VEK_OKAY);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{0.0, 0.0}), VEK_NO_ITEM);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{1.2, 0.0}), VEK_INVALID_VALUE);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{-0.1, 0.5}), VEK_INVALID_VALUE);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{NAN, 0.5}), VEK_INVALID_VALUE);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{0.5}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->SetVirtualEvidence(std::vector<double>{}), VEK_OUT_OF_RANGE);
    // Every refusal kept the last accepted values.
    ASSERT_EQ(v->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_EQ(out, (std::vector<double>{0.25, 0.75}));

    // The VEK_doubleArray forms behave the same.
    VEK_doubleArray arr;
    EXPECT_EQ(v->SetVirtualEvidence(VEK_doubleArray{0.1}), VEK_OUT_OF_RANGE);
    ASSERT_EQ(v->SetVirtualEvidence(VEK_doubleArray{0.1, 0.1}), VEK_OKAY);
    ASSERT_EQ(v->GetVirtualEvidence(arr), VEK_OKAY);
    EXPECT_EQ(arr.ToVector(), (std::vector<double>{0.5, 0.5}));
    EXPECT_EQ(v->ClearVirtualEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
    EXPECT_EQ(v->GetVirtualEvidence(arr), VEK_OUT_OF_RANGE);
}

TEST_F(ValueTest, HardAndVirtualEvidenceExcludeEachOther) {
    VEK_nodeVal* v = V(a);
    std::vector<double> out;
    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OKAY);
    ASSERT_EQ(v->SetEvidence(0), VEK_OKAY);
    EXPECT_FALSE(v->IsVirtualEvidence());
    EXPECT_EQ(v->GetVirtualEvidence(out), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);

    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OKAY);
    EXPECT_FALSE(v->IsEvidence());
    EXPECT_EQ(v->GetEvidence(), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_VIRTUAL);  // soft evidence does not fix the value

    // ClearEvidence also takes soft evidence away.
    EXPECT_EQ(v->ClearEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
    EXPECT_EQ(v->ClearEvidence(), VEK_OUT_OF_RANGE);
}

TEST_F(ValueTest, ValuesWithoutEvidenceSupportRefuse) {
    int u = net.AddNode(VEK_TABLE, "u");
    int dec = net.AddNode(VEK_LIST, "dec");
    ASSERT_GE(u, 0);
    ASSERT_GE(dec, 0);
    VEK_nodeVal* uv = V(u);
    EXPECT_EQ(uv->GetType(), VEK_EXPECTEDUTILITY);
    EXPECT_EQ(uv->SetEvidence(0), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->SetEvidence("x"), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->SetEvidence(1.0), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->GetEvidence(), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->ClearEvidence(), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->SetPropagatedEvidence(0), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->SetVirtualEvidence(std::vector<double>{1.0}), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->ControlValue(0), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(uv->GetFlags(), 0);

    // A decision can be observed but takes neither soft evidence nor control.
    VEK_nodeVal* dv = V(dec);
    EXPECT_EQ(dv->GetType(), VEK_POLICYVALUES);
    EXPECT_EQ(dv->SetVirtualEvidence(std::vector<double>{0.5, 0.5}), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(dv->ControlValue(0), VEK_WRONG_NODE_TYPE);
    EXPECT_FALSE(dv->IsControllable());
    EXPECT_EQ(dv->SetEvidence("Choice1"), VEK_OKAY);
    EXPECT_EQ(Items(dv), (std::vector<double>{0.0, 1.0}));
    double mean = 0.0;
    EXPECT_EQ(dv->GetMean(mean), VEK_WRONG_NODE_TYPE);
}

// ---------------------------------------------------------------- propagated evidence

TEST_F(ValueTest, PropagatedEvidenceRules) {
    VEK_nodeVal* v = V(a);
    EXPECT_EQ(v->ClearPropagatedEvidence(), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->SetPropagatedEvidence(3), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetFlags(), 0);

    ASSERT_EQ(v->SetEvidence(0), VEK_OKAY);
    EXPECT_EQ(v->SetPropagatedEvidence(1), VEK_OUT_OF_RANGE);  // already has evidence
    EXPECT_EQ(v->GetEvidence(), 0);
    ASSERT_EQ(v->ClearEvidence(), VEK_OKAY);

    // Propagated evidence replaces soft evidence.
    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OKAY);
    ASSERT_EQ(v->SetPropagatedEvidence(2), VEK_OKAY);
    EXPECT_FALSE(v->IsVirtualEvidence());
    EXPECT_EQ(Items(v), (std::vector<double>{0.0, 0.0, 1.0}));
    EXPECT_EQ(v->SetPropagatedEvidence(1), VEK_OUT_OF_RANGE);  // already propagated
    EXPECT_EQ(v->GetEvidence(), 2);

    EXPECT_EQ(v->GetFlags(), VEK_VALUE_PROPAGATED | VEK_VALUE_VALID);
    EXPECT_STREQ(v->GetEvidenceId(), "a2");
    EXPECT_FALSE(v->IsEvidence());
    // Other evidence conflicts; the same outcome turns it into ordinary evidence.
    EXPECT_EQ(v->SetEvidence(0), VEK_EVIDENCE_CONFLICT);
    EXPECT_EQ(v->GetEvidence(), 2);
    ASSERT_EQ(v->SetEvidence(2), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);
    EXPECT_EQ(v->ClearPropagatedEvidence(), VEK_OUT_OF_RANGE);
    ASSERT_EQ(v->ClearEvidence(), VEK_OKAY);

    ASSERT_EQ(v->SetPropagatedEvidence(0), VEK_OKAY);
    v->SetStamp(5);
    ASSERT_EQ(v->ClearPropagatedEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
    EXPECT_EQ(v->GetStamp(), 0);
    EXPECT_EQ(v->GetEvidence(), VEK_OUT_OF_RANGE);

    // On a plate node the value stays invalid.
    net.GetNode(d)->SetTemporalType(3);
    ASSERT_EQ(V(d)->SetPropagatedEvidence(0), VEK_OKAY);
    EXPECT_EQ(V(d)->GetFlags(), VEK_VALUE_PROPAGATED);
    EXPECT_EQ(V(d)->GetEvidence(), 0);
}

// b becomes a truth table over a: a0 -> b0, a1 -> b1, a2 -> b1.
namespace {
void MakeDeterministic(VEK_network& net, int b) {
    ASSERT_EQ(net.ChangeNodeType(b, VEK_TRUTHTABLE), VEK_OKAY);
    ASSERT_EQ(net.GetDef(b)->SetDefinition(std::vector<double>{1, 0, 0, 1, 0, 1}), VEK_OKAY);
}
}  // namespace

TEST_F(ValueTest, RefusedEvidencePutsBackWhatItReplaced) {
    // Outcome d1 is impossible.
    ASSERT_EQ(net.GetDef(d)->SetDefinition(std::vector<double>{1.0, 0.0}), VEK_OKAY);
    VEK_nodeVal* v = V(d);
    ASSERT_EQ(v->SetEvidence(0), VEK_OKAY);
    EXPECT_EQ(v->SetEvidence(1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);
    EXPECT_EQ(v->GetEvidence(), 0);
    EXPECT_EQ(Items(v), (std::vector<double>{1.0, 0.0}));

    ASSERT_EQ(v->SetVirtualEvidence(std::vector<double>{0.3, 0.7}), VEK_OKAY);
    EXPECT_EQ(v->SetEvidence("d1"), VEK_OUT_OF_RANGE);
    std::vector<double> out;
    ASSERT_EQ(v->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_EQ(out, (std::vector<double>{0.3, 0.7}));
    EXPECT_FALSE(v->IsEvidence());

    ASSERT_EQ(v->ControlValue(0), VEK_OKAY);
    EXPECT_EQ(v->ControlValue(1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->SetEvidence(1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID | VEK_VALUE_CONTROLLED);
    EXPECT_EQ(v->GetEvidence(), 0);
}

// ---------------------------------------------------------------- controlled values

TEST_F(ValueTest, ControlRefusedWhenDescendantHasEvidence) {
    ASSERT_EQ(V(c)->SetEvidence(1), VEK_OKAY);  // grandchild of a
    EXPECT_FALSE(V(a)->IsControllable());
    EXPECT_EQ(V(a)->ControlValue(0), VEK_OUT_OF_RANGE);
    EXPECT_EQ(V(a)->GetFlags(), 0);
    EXPECT_EQ(V(c)->GetEvidence(), 1);

    // Evidence that was propagated there counts too.
    ASSERT_EQ(V(c)->ClearEvidence(), VEK_OKAY);
    ASSERT_EQ(V(b)->SetPropagatedEvidence(0), VEK_OKAY);
    EXPECT_FALSE(V(a)->IsControllable());
    // Evidence on unrelated nodes or ancestors does not.
    ASSERT_EQ(V(b)->ClearPropagatedEvidence(), VEK_OKAY);
    ASSERT_EQ(V(d)->SetEvidence(0), VEK_OKAY);
    ASSERT_EQ(V(a)->SetEvidence(0), VEK_OKAY);
    EXPECT_TRUE(V(b)->IsControllable());
    // Nor does a controlled descendant.
    net.ClearAllEvidence();
    ASSERT_EQ(V(c)->ControlValue(0), VEK_OKAY);
    EXPECT_TRUE(V(a)->IsControllable());
    ASSERT_EQ(V(a)->ControlValue(2), VEK_OKAY);
    EXPECT_TRUE(V(c)->IsControlled());
    EXPECT_EQ(V(c)->GetEvidence(), 0);
}

TEST_F(ValueTest, ControlValueSetsEvidenceAndStalesOthers) {
    int e = AddChance(net, "e", {"e0", "e1"});  // unrelated to a
    ASSERT_EQ(V(d)->SetEvidence(1), VEK_OKAY);
    ASSERT_EQ(V(e)->SetPropagatedEvidence(1), VEK_OKAY);
    ASSERT_EQ(V(a)->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OKAY);
    V(c)->SetValueValid();  // as after an update
    V(c)->SetStamp(3);

    EXPECT_EQ(V(a)->ControlValue(3), VEK_OUT_OF_RANGE);
    EXPECT_TRUE(V(a)->IsVirtualEvidence());
    EXPECT_TRUE(V(c)->IsValueValid());

    ASSERT_EQ(V(a)->ControlValue(1), VEK_OKAY);
    EXPECT_EQ(V(a)->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID | VEK_VALUE_CONTROLLED);
    EXPECT_FALSE(V(a)->IsVirtualEvidence());
    EXPECT_EQ(V(a)->GetEvidence(), 1);
    EXPECT_EQ(Items(V(a)), (std::vector<double>{0.0, 1.0, 0.0}));
    // Nodes without evidence went stale, propagated evidence included.
    EXPECT_EQ(V(c)->GetFlags(), 0);
    EXPECT_EQ(V(c)->GetStamp(), 0);
    EXPECT_EQ(V(e)->GetFlags(), 0);
    EXPECT_EQ(V(e)->GetEvidence(), VEK_OUT_OF_RANGE);
    // Evidence elsewhere stays.
    EXPECT_EQ(V(d)->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);

    // A new controlled value replaces the old one.
    ASSERT_EQ(V(a)->ControlValue(2), VEK_OKAY);
    EXPECT_EQ(V(a)->GetEvidence(), 2);
    EXPECT_TRUE(V(a)->IsControlled());
}

TEST_F(ValueTest, ClearingControlledValues) {
    VEK_nodeVal* v = V(a);
    ASSERT_EQ(v->SetEvidence(1), VEK_OKAY);
    // Ordinary evidence is not a controlled value and stays.
    EXPECT_EQ(v->ClearControlledValue(), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(), 1);

    ASSERT_EQ(v->ControlValue(0), VEK_OKAY);
    EXPECT_EQ(v->ClearControlledValue(), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
    EXPECT_EQ(v->GetEvidence(), VEK_OUT_OF_RANGE);

    // Clearing the evidence of a controlled node ends the control as well.
    ASSERT_EQ(v->ControlValue(0), VEK_OKAY);
    EXPECT_EQ(v->ClearEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
    // And ordinary evidence set over it is no longer a controlled value.
    ASSERT_EQ(v->ControlValue(0), VEK_OKAY);
    ASSERT_EQ(v->SetEvidence(2), VEK_OKAY);
    EXPECT_FALSE(v->IsControlled());

    // ClearAllEvidence takes controlled values away too.
    ASSERT_EQ(v->ControlValue(1), VEK_OKAY);
    ASSERT_EQ(net.ClearAllEvidence(), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
}

// ---------------------------------------------------------------- validity and indexing

TEST_F(ValueTest, InvalidateKeepsValuesFixedByEvidence) {
    VEK_nodeVal* free = V(d);
    VEK_Dmatrix* m = free->GetWriteableMatrix();
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->GetDimensions().ToVector(), (std::vector<int>{2}));
    (*m)[0] = 0.25;
    (*m)[1] = 0.75;
    free->SetValueValid();
    free->SetStamp(4);
    free->Invalidate();
    EXPECT_FALSE(free->IsValueValid());
    EXPECT_EQ(free->GetStamp(), 0);
    EXPECT_EQ(free->GetMatrix()->GetSize(), 0);

    ASSERT_EQ(V(a)->SetEvidence(2), VEK_OKAY);
    V(a)->Invalidate();
    EXPECT_TRUE(V(a)->IsValueValid());
    EXPECT_EQ(Items(V(a)), (std::vector<double>{0.0, 0.0, 1.0}));

    ASSERT_EQ(V(b)->SetPropagatedEvidence(0), VEK_OKAY);
    net.InvalidateAllBeliefs();
    EXPECT_TRUE(V(b)->IsValueValid());
    EXPECT_TRUE(V(a)->IsValueValid());
}

TEST_F(ValueTest, IndexingParentsShapeTheWriteableMatrix) {
    VEK_nodeVal* v = V(d);
    EXPECT_EQ(v->AddIndexingParent(99), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->AddIndexingParent(-1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v->AddIndexingParent(a), VEK_OKAY);
    EXPECT_EQ(v->AddIndexingParent(b), VEK_OKAY);
    EXPECT_EQ(v->AddIndexingParent(a), VEK_OKAY);
    EXPECT_EQ(v->GetIndexingParents().ToVector(), (std::vector<int>{a, b}));
    EXPECT_EQ(v->GetWriteableMatrix()->GetDimensions().ToVector(), (std::vector<int>{3, 2, 2}));

    int u = net.AddNode(VEK_TABLE, "u");
    VEK_nodeVal* uv = V(u);
    EXPECT_EQ(uv->GetWriteableMatrix()->GetDimensions().ToVector(), (std::vector<int>{1}));
    uv->Invalidate();
    ASSERT_EQ(uv->AddIndexingParent(a), VEK_OKAY);
    EXPECT_EQ(uv->GetWriteableMatrix()->GetDimensions().ToVector(), (std::vector<int>{3, 1}));

    v->SetValueValid();
    v->InitIndexingParents();
    EXPECT_TRUE(v->GetIndexingParents().IsEmpty());
    EXPECT_FALSE(v->IsValueValid());
    EXPECT_EQ(v->GetWriteableMatrix()->GetDimensions().ToVector(), (std::vector<int>{2}));
}

// ---------------------------------------------------------------- utility rescaling

namespace {

void Fill(VEK_nodeVal* v, const std::vector<double>& items) {
    VEK_Dmatrix* m = v->GetWriteableMatrix();
    m->SetSingleDimension(static_cast<int>(items.size()));
    m->FillFrom(items);
}

}  // namespace

TEST_F(ValueTest, NormalizeExpectedUtilities) {
    int u = net.AddNode(VEK_TABLE, "u");
    auto* eu = dynamic_cast<VEK_expectedUtility*>(V(u));
    ASSERT_NE(eu, nullptr);

    // From [0, 1] back onto a utility range.
    Fill(eu, {0.0, 0.25, 1.0});
    EXPECT_EQ(eu->NormalizeExpectedUtilities(0.0, 1.0, -10.0, 10.0), VEK_OKAY);
    EXPECT_EQ(Items(eu), (std::vector<double>{-10.0, -5.0, 10.0}));
    EXPECT_EQ(eu->GetMinimumUtility(), -10.0);
    EXPECT_EQ(eu->GetMaximumUtility(), 10.0);

    // The range widens to cover the matrix's own items.
    Fill(eu, {-1.0, 0.5, 2.0});
    EXPECT_EQ(eu->NormalizeExpectedUtilities(0.0, 1.0, 0.0, 3.0), VEK_OKAY);
    EXPECT_EQ(Items(eu), (std::vector<double>{0.0, 1.5, 3.0}));

    // An empty range sets every item to the upper bound; it is not widened.
    Fill(eu, {-1.0, 0.5, 2.0});
    EXPECT_EQ(eu->NormalizeExpectedUtilities(4.0, 4.0, 0.0, 7.0), VEK_OKAY);
    EXPECT_EQ(Items(eu), (std::vector<double>{7.0, 7.0, 7.0}));

    // Source range equal to the target: nothing happens.
    Fill(eu, {0.2, 0.9});
    EXPECT_EQ(eu->NormalizeExpectedUtilities(0.0, 1.0, 0.0, 1.0), VEK_OKAY);
    EXPECT_EQ(Items(eu), (std::vector<double>{0.2, 0.9}));

    // Undefined items neither count for the range nor change.
    Fill(eu, {0.0, VEK_UNDEFINED_VALUE, 2.0});
    EXPECT_EQ(eu->GetMinimumUtility(), 0.0);
    EXPECT_EQ(eu->NormalizeExpectedUtilities(1.0, 2.0, 0.0, 10.0), VEK_OKAY);
    EXPECT_EQ(Items(eu), (std::vector<double>{0.0, VEK_UNDEFINED_VALUE, 10.0}));
    Fill(eu, {-3.0, VEK_UNDEFINED_VALUE});
    EXPECT_EQ(eu->NormalizeExpectedUtilities(1.0, 1.0, 0.0, 5.0), VEK_OKAY);
    EXPECT_EQ(Items(eu), (std::vector<double>{5.0, VEK_UNDEFINED_VALUE}));

    // Bounds that are not numbers are refused without change.
    Fill(eu, {0.1, 0.2});
    EXPECT_EQ(eu->NormalizeExpectedUtilities(0.0, NAN, 0.0, 1.0), VEK_INVALID_VALUE);
    EXPECT_EQ(eu->NormalizeExpectedUtilities(0.0, 1.0, -INFINITY, 1.0), VEK_INVALID_VALUE);
    EXPECT_EQ(Items(eu), (std::vector<double>{0.1, 0.2}));
}

TEST_F(ValueTest, MultiAttributeUtilityValue) {
    int u1 = net.AddNode(VEK_TABLE, "u1");
    int m = net.AddNode(VEK_MAU, "m");
    ASSERT_GE(m, 0);
    ASSERT_EQ(net.AddArc(u1, m), VEK_OKAY);
    auto* mv = dynamic_cast<VEK_mauExpectedUtility*>(V(m));
    ASSERT_NE(mv, nullptr);
    EXPECT_EQ(mv->GetType(), VEK_MAUEXPECTEDUTILITY);
    // Rescaling is that of the utility value; computing the combination is
    // refused here and leaves the items.
    Fill(mv, {50.0, 100.0, VEK_UNDEFINED_VALUE});
    EXPECT_EQ(mv->CalculateMAU(), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(Items(mv), (std::vector<double>{50.0, 100.0, VEK_UNDEFINED_VALUE}));
    EXPECT_EQ(mv->SetEvidence(0), VEK_WRONG_NODE_TYPE);
}

// ---------------------------------------------------------------- type changes and copies

TEST_F(ValueTest, EvidenceSurvivesTypeChange) {
    ASSERT_EQ(V(a)->SetEvidence(2), VEK_OKAY);
    ASSERT_EQ(net.ChangeNodeType(a, VEK_TRUTHTABLE), VEK_OKAY);
    VEK_nodeVal* v = V(a);
    EXPECT_EQ(v->GetType(), VEK_BELIEFVECTOR);
    EXPECT_EQ(v->GetFlags(), VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);
    EXPECT_EQ(v->GetEvidence(), 2);
    EXPECT_STREQ(v->GetEvidenceId(), "a2");
    EXPECT_EQ(Items(v), (std::vector<double>{0.0, 0.0, 1.0}));
    ASSERT_EQ(v->ClearEvidence(), VEK_OKAY);

    // Evidence given as a number stays a number.
    ASSERT_EQ(Disc(net, d)->SetPointValues({3.0, 4.0}), VEK_OKAY);
    ASSERT_EQ(V(d)->SetEvidence(4.0), VEK_OKAY);
    ASSERT_EQ(net.ChangeNodeType(d, VEK_TRUTHTABLE), VEK_OKAY);
    double x = 0.0;
    ASSERT_EQ(V(d)->GetEvidence(x), VEK_OKAY);
    EXPECT_EQ(x, 4.0);
    EXPECT_EQ(V(d)->GetEvidence(), 1);

    // Soft evidence too, between chance types.
    ASSERT_EQ(V(c)->SetVirtualEvidence(std::vector<double>{0.2, 0.6}), VEK_OKAY);
    ASSERT_EQ(net.ChangeNodeType(c, VEK_TRUTHTABLE), VEK_OKAY);
    std::vector<double> out;
    ASSERT_EQ(V(c)->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_DOUBLE_EQ(out[0], 0.25);
    EXPECT_DOUBLE_EQ(out[1], 0.75);
    ASSERT_EQ(net.ChangeNodeType(c, VEK_CPT), VEK_OKAY);
    EXPECT_TRUE(V(c)->IsVirtualEvidence());

    // A decision keeps the choice but not soft evidence.
    ASSERT_EQ(net.ChangeNodeType(c, VEK_LIST), VEK_OKAY);
    EXPECT_EQ(V(c)->GetType(), VEK_POLICYVALUES);
    EXPECT_EQ(V(c)->GetFlags(), 0);
    ASSERT_EQ(V(c)->SetEvidence(1), VEK_OKAY);
    ASSERT_EQ(net.ChangeNodeType(c, VEK_CPT), VEK_OKAY);
    EXPECT_EQ(V(c)->GetEvidence(), 1);
    EXPECT_EQ(Items(V(c)), (std::vector<double>{0.0, 1.0}));
}

TEST_F(ValueTest, EvidenceIsCopiedWithTheNetwork) {
    ASSERT_EQ(V(a)->SetEvidence(1), VEK_OKAY);
    ASSERT_EQ(V(d)->SetVirtualEvidence(std::vector<double>{0.4, 0.6}), VEK_OKAY);
    VEK_network copy(net);
    VEK_nodeVal* ca = copy.GetVal(a);
    ASSERT_NE(ca, nullptr);
    EXPECT_EQ(&ca->Network(), &copy);
    EXPECT_EQ(ca->GetEvidence(), 1);
    EXPECT_EQ(Items(ca), (std::vector<double>{0.0, 1.0, 0.0}));
    std::vector<double> out;
    ASSERT_EQ(copy.GetVal(d)->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_EQ(out, (std::vector<double>{0.4, 0.6}));

    // The copy is independent.
    ASSERT_EQ(ca->SetEvidence(0), VEK_OKAY);
    EXPECT_EQ(V(a)->GetEvidence(), 1);
    EXPECT_STREQ(ca->GetEvidenceId(), "a0");
}

// ---------------------------------------------------------------- outcome changes

TEST_F(ValueTest, EvidenceFollowsOutcomeInsertRemoveAndReorder) {
    VEK_discDef* def = Disc(net, a);
    VEK_nodeVal* v = V(a);
    ASSERT_EQ(v->SetEvidence("a1"), VEK_OKAY);

    ASSERT_EQ(def->InsertOutcome(0, "first"), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(), 2);
    EXPECT_STREQ(v->GetEvidenceId(), "a1");
    EXPECT_EQ(Items(v), (std::vector<double>{0.0, 0.0, 1.0, 0.0}));
    ASSERT_EQ(def->AddOutcome("last"), VEK_OKAY);
    EXPECT_STREQ(v->GetEvidenceId(), "a1");
    ASSERT_EQ(def->InsertOutcome(2, "mid"), VEK_OKAY);  // at the observed position
    EXPECT_STREQ(v->GetEvidenceId(), "a1");

    ASSERT_EQ(def->RemoveOutcome(0), VEK_OKAY);
    EXPECT_STREQ(v->GetEvidenceId(), "a1");
    EXPECT_EQ(v->GetEvidence(), 2);
    EXPECT_EQ(Items(v), (std::vector<double>{0.0, 0.0, 1.0, 0.0, 0.0}));
    ASSERT_EQ(def->RemoveOutcome(4), VEK_OKAY);
    EXPECT_STREQ(v->GetEvidenceId(), "a1");

    // a0 mid a1 a2 reordered to a1 a0 a2 mid.
    ASSERT_EQ(def->ChangeOrderOfOutcomes(VEK_intArray{2, 0, 3, 1}), VEK_OKAY);
    EXPECT_EQ(v->GetEvidence(), 0);
    EXPECT_STREQ(v->GetEvidenceId(), "a1");
    EXPECT_EQ(Items(v), (std::vector<double>{1.0, 0.0, 0.0, 0.0}));

    // Removing the observed outcome clears the evidence.
    ASSERT_EQ(def->RemoveOutcome(0), VEK_OKAY);
    EXPECT_EQ(v->GetFlags(), 0);
    EXPECT_EQ(v->GetEvidence(), VEK_OUT_OF_RANGE);

    // Propagated evidence follows reordering the same way. Relevance is off so
    // that the network does not derive it afresh after the change.
    net.EnableRelevance(false);
    ASSERT_EQ(V(b)->SetPropagatedEvidence(0), VEK_OKAY);
    ASSERT_EQ(Disc(net, b)->ChangeOrderOfOutcomes(VEK_intArray{1, 0}), VEK_OKAY);
    EXPECT_TRUE(V(b)->IsPropagatedEvidence());
    EXPECT_STREQ(V(b)->GetEvidenceId(), "b0");
    EXPECT_EQ(V(b)->GetEvidence(), 1);
}

TEST_F(ValueTest, OutcomeChangesDropSoftEvidenceAndComputedValues) {
    ASSERT_EQ(V(a)->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OKAY);
    ASSERT_EQ(Disc(net, a)->ChangeOrderOfOutcomes(VEK_intArray{1, 0, 2}), VEK_OKAY);
    EXPECT_FALSE(V(a)->IsVirtualEvidence());
    ASSERT_EQ(V(a)->SetVirtualEvidence(std::vector<double>{0.2, 0.3, 0.5}), VEK_OKAY);
    ASSERT_EQ(Disc(net, a)->AddOutcome("a3"), VEK_OKAY);
    EXPECT_FALSE(V(a)->IsVirtualEvidence());
    EXPECT_EQ(V(a)->GetFlags(), 0);

    VEK_nodeVal* v = V(d);
    Fill(v, {0.4, 0.6});
    v->SetValueValid();
    ASSERT_EQ(Disc(net, d)->AddOutcome("d2"), VEK_OKAY);
    EXPECT_FALSE(v->IsValueValid());
    // The next write gets a matrix of the new size.
    EXPECT_EQ(v->GetWriteableMatrix()->GetDimensions().ToVector(), (std::vector<int>{3}));
}

TEST_F(ValueTest, EvidenceAcrossOutcomeCountChange) {
    VEK_discDef* def = Disc(net, d);  // no children: ids are replaced at once
    ASSERT_EQ(V(d)->SetEvidence(1), VEK_OKAY);
    ASSERT_EQ(def->SetNumberOfOutcomes(4), VEK_OKAY);
    EXPECT_EQ(V(d)->GetEvidence(), 1);
    EXPECT_EQ(Items(V(d)), (std::vector<double>{0.0, 1.0, 0.0, 0.0}));
    ASSERT_EQ(V(d)->SetEvidence(3), VEK_OKAY);
    ASSERT_EQ(def->SetNumberOfOutcomes(2), VEK_OKAY);
    EXPECT_FALSE(V(d)->IsEvidence());
    EXPECT_EQ(V(d)->GetEvidence(), VEK_OUT_OF_RANGE);

    // A controlled value on a removed outcome ends.
    ASSERT_EQ(V(c)->ControlValue(1), VEK_OKAY);
    ASSERT_EQ(Disc(net, c)->RemoveOutcome(1), VEK_OUT_OF_RANGE);  // a node keeps two outcomes
    ASSERT_EQ(Disc(net, c)->AddOutcome("c2"), VEK_OKAY);
    ASSERT_EQ(Disc(net, c)->RemoveOutcome(1), VEK_OKAY);
    EXPECT_EQ(V(c)->GetFlags(), 0);
}

// ---------------------------------------------------------------- snapshot

TEST_F(ValueTest, SnapshotRestoresEvidenceOfEveryKind) {
    int e = AddChance(net, "e", {"e0", "e1"});
    ASSERT_EQ(Disc(net, d)->SetIntervals({0.0, 5.0, 10.0}), VEK_OKAY);
    ASSERT_EQ(V(a)->SetEvidence(2), VEK_OKAY);
    ASSERT_EQ(V(d)->SetEvidence(7.5), VEK_OKAY);
    ASSERT_EQ(V(b)->SetVirtualEvidence(std::vector<double>{0.1, 0.9}), VEK_OKAY);
    ASSERT_EQ(V(c)->ControlValue(1), VEK_OKAY);
    ASSERT_EQ(V(e)->SetPropagatedEvidence(0), VEK_OKAY);

    VEK_networkState plain(net);
    VEK_networkState withVirtual(net, VEK_STATE_VIRTUAL);
    ASSERT_EQ(plain.GetCount(), 4);
    EXPECT_EQ(plain.GetItems()[0].handle, a);
    EXPECT_EQ(plain.GetItems()[0].outcome, 2);
    EXPECT_TRUE(std::isnan(plain.GetItems()[0].number));
    EXPECT_EQ(plain.GetItems()[2].handle, d);
    EXPECT_EQ(plain.GetItems()[2].number, 7.5);
    EXPECT_EQ(withVirtual.GetCount(), 5);

    ASSERT_EQ(net.ClearAllEvidence(), VEK_OKAY);
    ASSERT_EQ(V(a)->SetEvidence(0), VEK_OKAY);
    ASSERT_EQ(V(b)->SetVirtualEvidence(std::vector<double>{0.5, 0.5}), VEK_OKAY);

    ASSERT_EQ(plain.RestoreEvidence(), VEK_OKAY);
    EXPECT_EQ(V(a)->GetEvidence(), 2);
    EXPECT_FALSE(V(a)->IsControlled());
    EXPECT_TRUE(V(c)->IsControlled());
    EXPECT_EQ(V(c)->GetEvidence(), 1);
    EXPECT_TRUE(V(e)->IsPropagatedEvidence());
    EXPECT_FALSE(V(e)->IsEvidence());
    EXPECT_EQ(V(e)->GetEvidence(), 0);
    EXPECT_FALSE(V(b)->IsVirtualEvidence());  // not recorded, so cleared
    double x = 0.0;
    ASSERT_EQ(V(d)->GetEvidence(x), VEK_OKAY);
    EXPECT_EQ(x, 7.5);
    EXPECT_EQ(V(d)->GetEvidence(), 1);

    ASSERT_EQ(withVirtual.RestoreEvidence(), VEK_OKAY);
    std::vector<double> out;
    ASSERT_EQ(V(b)->GetVirtualEvidence(out), VEK_OKAY);
    EXPECT_EQ(out, (std::vector<double>{0.1, 0.9}));
}

TEST_F(ValueTest, SnapshotLeavesDerivedEvidenceToTheNetwork) {
    MakeDeterministic(net, b);
    ASSERT_EQ(V(a)->SetEvidence(2), VEK_OKAY);
    ASSERT_TRUE(V(b)->IsPropagatedEvidence());
    VEK_networkState state(net);
    ASSERT_EQ(state.GetCount(), 2);
    EXPECT_EQ(state.GetItems()[1].kind, VEK_VALUE_PROPAGATED);

    ASSERT_EQ(V(a)->SetEvidence(0), VEK_OKAY);
    ASSERT_EQ(V(b)->GetEvidence(), 0);
    ASSERT_EQ(state.RestoreEvidence(), VEK_OKAY);
    EXPECT_EQ(V(a)->GetEvidence(), 2);
    EXPECT_TRUE(V(b)->IsPropagatedEvidence());
    EXPECT_EQ(V(b)->GetEvidence(), 1);
}

TEST_F(ValueTest, SnapshotRestoreStopsAtFirstError) {
    ASSERT_EQ(V(a)->SetEvidence(1), VEK_OKAY);
    ASSERT_EQ(V(c)->SetEvidence(0), VEK_OKAY);
    ASSERT_EQ(V(d)->SetEvidence(1), VEK_OKAY);
    VEK_networkState state(net);
    ASSERT_EQ(net.DeleteNode(c), VEK_OKAY);
    ASSERT_EQ(V(d)->ClearEvidence(), VEK_OKAY);

    EXPECT_EQ(state.RestoreEvidence(), VEK_OUT_OF_RANGE);
    EXPECT_EQ(V(a)->GetEvidence(), 1);  // before the failing node
    EXPECT_FALSE(V(d)->IsEvidence());   // after it
}
