#include "network/cpt.h"

#include "inference/randGen.h"
#include "network/beliefVector.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

VEK_cpt::VEK_cpt(VEK_network& net, int handle) : VEK_tableDef(net, handle) {
    (void)Table().SetSingleDimension(GetNumberOfOutcomes());  // a node has at least two outcomes
    (void)VEK_cpt::MakeUniform();  // a table of a node with outcomes cannot refuse
}

VEK_cpt::VEK_cpt(const VEK_nodeXformContext& ctx) : VEK_tableDef(*ctx.net, ctx.handle) {
    TakeOutcomesFrom(ctx);
    VEK_intArray dims;
    ParentTableDims(dims, GetNumberOfOutcomes());
    if (ctx.table && ctx.table->GetDimensions() == dims) {
        Table() = *ctx.table;
    } else {
        (void)Table().Setup(dims);  // parent and own outcome counts are at least 1
        (void)VEK_cpt::MakeUniform();  // a table of a node with outcomes cannot refuse
    }
}

VEK_nodeDef* VEK_cpt::Clone(VEK_network& net) const {
    VEK_cpt* copy = new VEK_cpt(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_nodeVal* VEK_cpt::CreateValue() const { return new VEK_beliefVector(Network(), Handle()); }

VEK_nodeVal* VEK_cpt::CreateValue(const VEK_valXformContext& ctx) const {
    return new VEK_beliefVector(Network(), Handle(), ctx);
}

int VEK_cpt::GetColumnCount() const {
    int last = Table().GetLastDimensionSize();
    return last > 0 ? Table().GetSize() / last : 0;
}

// ---------------------------------------------------------------- own outcomes

void VEK_cpt::AfterInsertOutcome(int position) {
    // The new outcome has probability 0 everywhere; columns still sum to 1.
    if (const int res = VEK_insertSlices(Table(), Table().GetNumberOfDimensions() - 1, position, 1, 0.0); res < 0) {
        Network().Logger().LogError(res, "The table could not take the new outcome");
    }
}

void VEK_cpt::AfterRemoveOutcome(int position) {
    // Deliberately not renormalised: the caller sets the new values.
    if (const int res = VEK_removeSlices(Table(), Table().GetNumberOfDimensions() - 1, position, 1); res < 0) {
        Network().Logger().LogError(res, "The table could not drop the outcome");
    }
}

void VEK_cpt::AfterReorderOutcomes(const VEK_intArray& order) {
    (void)Table().ChangeOrderWithinDimension(Table().GetNumberOfDimensions() - 1, order);
}

void VEK_cpt::AfterOutcomeCountChanged() {
    // The parent dimensions are those of the table already: no need to reach
    // the parents.
    VEK_intArray dims(Table().GetDimensions());
    if (dims.IsEmpty()) {
        dims.Add(GetNumberOfOutcomes());
    } else {
        dims[dims.GetSize() - 1] = GetNumberOfOutcomes();
    }
    (void)Table().Setup(dims);  // parent and own outcome counts are at least 1
    // Not the virtual one: a truth table makes its columns deterministic after.
    (void)VEK_cpt::MakeUniform();  // a table of a node with outcomes cannot refuse
}

// ---------------------------------------------------------------- contents

int VEK_cpt::MakeUniform() {
    const int n = GetNumberOfOutcomes();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    Table().FillWith(1.0 / n);
    return VEK_OKAY;
}

int VEK_cpt::MakeRandom(VEK_randGen& gen) {
    const int n = Table().GetLastDimensionSize();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    double* items = Table().Items();
    for (int start = 0; start < Table().GetSize(); start += n) {
        int res = gen.Multinomial(n, items + start);
        if (res < 0) return res;
    }
    return VEK_OKAY;
}

void VEK_cpt::InitXform(VEK_nodeXformContext& ctx) const {
    VEK_discDef::InitXform(ctx);
    ctx.table = &Table();
}
