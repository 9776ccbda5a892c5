"""A first tour of pyquarn: build a small diagnostic network, enter
evidence and read the posterior beliefs."""

import pyquarn


def build_network():
    net = pyquarn.Network()
    net.set_id("lung_clinic")
    net.set_name("Lung clinic")

    def chance(node_id, parents, table, states=("yes", "no")):
        h = net.add_node(pyquarn.NodeType.CPT, node_id)
        net.set_outcome_id(h, 0, states[0])
        net.set_outcome_id(h, 1, states[1])
        for p in parents:
            net.add_arc(p, node_id)
        net.set_node_definition(node_id, table)
        return h

    chance("visit_asia", [], [0.01, 0.99])
    chance("smoker", [], [0.5, 0.5])
    chance("tuberculosis", ["visit_asia"], [0.05, 0.95, 0.01, 0.99])
    chance("lung_cancer", ["smoker"], [0.1, 0.9, 0.01, 0.99])
    chance("bronchitis", ["smoker"], [0.6, 0.4, 0.3, 0.7])
    # Deterministic OR of its two parents.
    h = net.add_node(pyquarn.NodeType.TRUTH_TABLE, "either")
    net.set_outcome_id(h, 0, "yes")
    net.set_outcome_id(h, 1, "no")
    net.add_arc("tuberculosis", "either")
    net.add_arc("lung_cancer", "either")
    net.set_node_definition("either", [1, 0, 1, 0, 1, 0, 0, 1])
    chance("xray", ["either"], [0.98, 0.02, 0.05, 0.95], ("abnormal", "normal"))
    chance("dyspnoea", ["bronchitis", "either"], [0.9, 0.1, 0.8, 0.2, 0.7, 0.3, 0.1, 0.9])
    return net


def show(net, title):
    print(title)
    for node_id in net.get_all_node_ids():
        beliefs = net.get_node_value(node_id)
        states = net.get_outcome_ids(node_id)
        cells = "  ".join(f"{s}={p:.4f}" for s, p in zip(states, beliefs))
        print(f"  {node_id:<13} {cells}")


def main():
    net = build_network()
    print(f"{net.get_name()}: {net.get_node_count()} nodes")
    for node_id in net.get_all_node_ids():
        parents = net.get_parent_ids(node_id)
        print(f"  {node_id:<13} parents: {', '.join(parents) or '-'}")

    net.update_beliefs()
    show(net, "\nBeliefs with no evidence:")

    net.set_evidence("smoker", "yes")
    net.set_evidence("xray", "abnormal")
    net.update_beliefs()
    show(net, "\nBeliefs for a smoker with an abnormal x-ray:")
    print(f"\nP(evidence) = {net.prob_evidence():.6f}")

    try:
        net.set_evidence("xray", "blurred")
    except pyquarn.QUARNException as e:
        print(f"\nA mistake is reported, not a crash: [{e.error_code}] {e}")


if __name__ == "__main__":
    main()
