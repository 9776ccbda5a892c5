// Visits a definition through the overload of its class (file writers are
// visitors). Every specific Visit forwards to the VEK_nodeDef one by default,
// the truth table's to the CPT one.
#pragma once

class VEK_nodeDef;
class VEK_cpt;
class VEK_truthTable;
class VEK_noisyMAX;
class VEK_noisyAdder;
class VEK_cast;
class VEK_demorgan;
class VEK_equation;
class VEK_decision;
class VEK_utility;
class VEK_mau;

class VEK_nodeDefVisitor {
public:
    virtual ~VEK_nodeDefVisitor() = default;

    virtual void Visit(VEK_nodeDef*) {}
    virtual void Visit(VEK_cpt* def);
    virtual void Visit(VEK_truthTable* def);
    virtual void Visit(VEK_noisyMAX* def);
    virtual void Visit(VEK_noisyAdder* def);
    virtual void Visit(VEK_cast* def);
    virtual void Visit(VEK_demorgan* def);
    virtual void Visit(VEK_equation* def);
    virtual void Visit(VEK_decision* def);
    virtual void Visit(VEK_utility* def);
    virtual void Visit(VEK_mau* def);

    // Calls the Visit that matches the definition's type id; null is ignored.
    void Dispatch(VEK_nodeDef* def);
};
