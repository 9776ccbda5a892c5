"""Troubleshooting a car that will not start. A dozen faults cause the
symptoms that a mechanic can check, each check at its own cost. A diagnosis
session ranks the checks by how much each is expected to tell about the four
most likely faults, weighed against its cost; the mechanic performs the best
one, and so on until one fault is more than 95% certain.

Each run plants one fault, and every check answers as the network says it
would with that fault present."""

import random

import pyquarn
from pyquarn import MultiFaultAlgorithmType, NodeDiagType, NodeType

FAULTS = {  # prior probability of each fault
    "battery_dead": 0.06, "terminals_corroded": 0.04, "alternator_failed": 0.03,
    "starter_failed": 0.03, "ignition_switch_failed": 0.02, "fuel_empty": 0.05,
    "fuel_pump_failed": 0.02, "fuel_filter_clogged": 0.02, "spark_plugs_fouled": 0.03,
    "ignition_coil_failed": 0.02, "main_fuse_blown": 0.02, "immobilizer_fault": 0.02,
}

CHECKS = {  # cost, and the faults that make the check abnormal with their strengths
    "dash_lights_dim": (1, {"battery_dead": 0.95, "terminals_corroded": 0.7, "main_fuse_blown": 0.9}),
    "headlights_dim": (1, {"battery_dead": 0.9, "terminals_corroded": 0.6, "alternator_failed": 0.5}),
    "engine_cranks_not": (1, {"battery_dead": 0.9, "terminals_corroded": 0.8, "starter_failed": 0.95,
                              "ignition_switch_failed": 0.9}),
    "clicking_sound": (1, {"starter_failed": 0.7, "battery_dead": 0.5}),
    "battery_voltage_low": (5, {"battery_dead": 0.97, "alternator_failed": 0.8}),
    "fuel_gauge_empty": (1, {"fuel_empty": 0.95}),
    "fuel_pump_silent": (2, {"fuel_pump_failed": 0.9, "main_fuse_blown": 0.9, "ignition_switch_failed": 0.6}),
    "fuel_pressure_low": (20, {"fuel_empty": 0.95, "fuel_pump_failed": 0.95, "fuel_filter_clogged": 0.9}),
    "no_spark": (15, {"ignition_coil_failed": 0.95, "ignition_switch_failed": 0.7, "immobilizer_fault": 0.8}),
    "plugs_fouled": (25, {"spark_plugs_fouled": 0.95}),
    "security_light_blinks": (1, {"immobilizer_fault": 0.9}),
    "terminals_look_corroded": (3, {"terminals_corroded": 0.9}),
    "alternator_output_low": (30, {"alternator_failed": 0.95}),
    "fuse_open": (5, {"main_fuse_blown": 0.98}),
    "filter_dirty": (20, {"fuel_filter_clogged": 0.95}),
    "coil_resistance_wrong": (15, {"ignition_coil_failed": 0.95}),
    "starter_bench_fails": (40, {"starter_failed": 0.97}),
    "key_switch_fails": (10, {"ignition_switch_failed": 0.95}),
}
LEAK = 0.01  # a check can look abnormal with no fault at all


def noisy_or(strengths, states):
    """P(abnormal) given which parent faults are present."""
    p_normal = 1.0 - LEAK
    for s, present in zip(strengths, states):
        if present:
            p_normal *= 1.0 - s
    return 1.0 - p_normal


def add_binary(net, node_id, outcomes):
    net.add_node(NodeType.CPT, node_id)
    net.set_outcome_id(node_id, 0, outcomes[0])
    net.set_outcome_id(node_id, 1, outcomes[1])


def add_effect(net, node_id, parents, strengths):
    add_binary(net, node_id, ("normal", "abnormal"))
    for parent in parents:
        net.add_arc(parent, node_id)
    table = []
    for config in range(2 ** len(parents)):  # first parent most significant
        states = [(config >> (len(parents) - 1 - i)) & 1 for i in range(len(parents))]
        p = noisy_or(strengths, states)
        table += [1.0 - p, p]
    net.set_node_definition(node_id, table)
    net.set_node_diag_type(node_id, NodeDiagType.OBSERVATION)


def build():
    net = pyquarn.Network()
    for fault, prior in FAULTS.items():
        add_binary(net, fault, ("ok", "faulty"))
        net.set_node_definition(fault, [1.0 - prior, prior])
        net.set_node_diag_type(fault, NodeDiagType.FAULT)
        net.set_fault_outcome(fault, "faulty", True)
        net.set_default_outcome(fault, "ok")
    # The complaint itself: every fault keeps the engine from starting. It
    # must be observed before any check is proposed.
    add_effect(net, "wont_start", list(FAULTS), [0.97] * len(FAULTS))
    net.set_mandatory("wont_start", True)
    for check, (cost, causes) in CHECKS.items():
        add_effect(net, check, list(causes), list(causes.values()))
        net.set_node_cost(check, [float(cost)])
    return net


def answer(check, planted, rng):
    """The check's outcome drawn with the planted fault present."""
    strengths = [s for f, s in CHECKS[check][1].items() if f == planted]
    return "abnormal" if rng.random() < noisy_or(strengths, [True] * len(strengths)) else "normal"


def troubleshoot(net, planted, rng):
    session = pyquarn.DiagNetwork(net)
    # The expected drop of the entropy of the pursued faults' distribution,
    # less a tenth of a bit for a check of cost 40 or more.
    session.set_multi_fault_algorithm(MultiFaultAlgorithmType.MARGINAL_2)
    session.set_entropy_cost_ratio(0.1, 40.0)
    session.instantiate_observation("wont_start", "abnormal")
    asked, spent = [], 0.0
    while True:
        faults = sorted(session.get_faults(), key=lambda f: -f.probability)
        if faults[0].probability > 0.95 or not session.get_unperformed_tests():
            return asked, spent, faults[0]
        session.set_pursued_faults([f.index for f in faults[:4]])
        best = session.update().observations[0]
        asked.append(best.node_id)
        spent += best.cost
        session.instantiate_observation(best.node_id, answer(best.node_id, planted, rng))


def main():
    net = build()
    rng = random.Random(2024)
    found = 0
    runs = 2 * len(FAULTS)
    for run in range(runs):
        planted = list(FAULTS)[run % len(FAULTS)]
        asked, spent, top = troubleshoot(net, planted, rng)
        found += top.node_id == planted
        print(f"run {run:2d}: planted {planted}; checks: {', '.join(asked)}; "
              f"diagnosis {top.node_id} ({top.probability:.3f}) for a cost of {spent:.0f}")
    print(f"Found the planted fault in {found} of {runs} runs")


if __name__ == "__main__":
    main()
