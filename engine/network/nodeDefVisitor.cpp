#include "network/nodeDefVisitor.h"

#include "equations/equation.h"
#include "network/cast.h"
#include "network/cpt.h"
#include "network/decision.h"
#include "network/demorgan.h"
#include "network/mau.h"
#include "network/noisyAdder.h"
#include "network/noisyMAX.h"
#include "network/truthTable.h"
#include "network/utility.h"

void VEK_nodeDefVisitor::Visit(VEK_cpt* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_truthTable* def) { Visit(static_cast<VEK_cpt*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_noisyMAX* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_noisyAdder* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_cast* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_demorgan* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_decision* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_utility* def) { Visit(static_cast<VEK_nodeDef*>(def)); }
void VEK_nodeDefVisitor::Visit(VEK_mau* def) { Visit(static_cast<VEK_nodeDef*>(def)); }

void VEK_nodeDefVisitor::Visit(VEK_equation* def) { Visit(static_cast<VEK_nodeDef*>(def)); }

void VEK_nodeDefVisitor::Dispatch(VEK_nodeDef* def) {
    if (!def) return;
    switch (def->GetType()) {
        case VEK_CPT: Visit(static_cast<VEK_cpt*>(def)); return;
        case VEK_TRUTHTABLE: Visit(static_cast<VEK_truthTable*>(def)); return;
        case VEK_NOISY_MAX: Visit(static_cast<VEK_noisyMAX*>(def)); return;
        case VEK_NOISY_ADDER: Visit(static_cast<VEK_noisyAdder*>(def)); return;
        case VEK_CAST: Visit(static_cast<VEK_cast*>(def)); return;
        case VEK_DEMORGAN: Visit(static_cast<VEK_demorgan*>(def)); return;
        case VEK_EQUATION: Visit(static_cast<VEK_equation*>(def)); return;
        case VEK_LIST: Visit(static_cast<VEK_decision*>(def)); return;
        case VEK_TABLE: Visit(static_cast<VEK_utility*>(def)); return;
        case VEK_MAU: Visit(static_cast<VEK_mau*>(def)); return;
        default: Visit(def); return;
    }
}
