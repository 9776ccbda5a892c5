#include "learning/dataSampler.h"

#include <new>
#include <vector>

#include "inference/randGen.h"
#include "learning/dataset.h"
#include "network/dmatrix.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/status.h"

int VEK_sampleDataset(const VEK_network& net, int records, VEK_randGen& gen, double missingRate, VEK_dataset& out) {
    if (records < 0) return VEK_OUT_OF_RANGE;
    try {
        VEK_dataset data;
        std::vector<int> handles;
        for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
            const VEK_nodeDef* def = net.GetDef(h);
            // Only chance tables can be drawn from: one distribution per column.
            if (!def || !def->GetMatrix() || (def->GetType() & 6) == 0) return VEK_WRONG_NODE_TYPE;
            handles.push_back(h);
            const int column = data.AddIntVariable(net.GetNodeId(h));
            if (column < 0) return column;
        }
        const VEK_intArray order = const_cast<VEK_network&>(net).PartialOrdering();
        std::vector<int> state(static_cast<size_t>(net.GetSlotCount()), -1);
        for (int r = 0; r < records; ++r) {
            if (const int res = data.AddEmptyRecord(); res < 0) return res;
            for (int i = 0; i < order.GetSize(); ++i) {
                const int h = order[i];
                const VEK_Dmatrix& t = *net.GetDef(h)->GetMatrix();
                const VEK_intArray& parents = net.GetNode(h)->Parents();
                int at = 0;
                for (int k = 0; k < parents.GetSize(); ++k) at += state[parents[k]] * t.GetProducts()[k];
                state[h] = VEK_randGen::Roulette(gen.GetDouble(), t.Items() + at, t.GetLastDimensionSize());
            }
            for (size_t v = 0; v < handles.size(); ++v) {
                if (gen.GetDouble() >= missingRate) {
                    if (const int res = data.SetInt(static_cast<int>(v), r, state[handles[v]]); res < 0) return res;
                }
            }
        }
        out = std::move(data);
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return VEK_OUT_OF_MEMORY;
    }
}
