"""Loopy belief propagation against its definition, and its parameters (the
engine's tests check the samplers)."""
import itertools
import math

import pytest

import pyquarn
from pyquarn import BayesianAlgorithmType as Alg
from pyquarn import NodeType

from conftest import quarn_error


def reference_loopy(net, sweeps=5000, tolerance=1e-13):
    """Loopy belief propagation from its definition: pi and lambda messages
    on every arc, all updated at once from the previous round, until they
    stop moving. Returns the beliefs by handle."""
    nodes = net.get_all_nodes()
    n = {h: net.get_outcome_count(h) for h in nodes}
    par = {h: net.get_parents(h) for h in nodes}
    kids = {h: net.get_children(h) for h in nodes}
    ev = {h: [float(not net.is_evidence(h) or s == net.get_evidence(h)) for s in range(n[h])] for h in nodes}
    cols = {h: list(zip(itertools.product(*(range(n[p]) for p in par[h])),
                        zip(*[iter(net.get_node_definition(h))] * n[h]))) for h in nodes}
    pi = {(p, c): [1.0 / n[p]] * n[p] for c in nodes for p in par[c]}
    lam = {(p, c): [1.0] * n[p] for c in nodes for p in par[c]}

    def norm(v):
        return [x / sum(v) for x in v] if sum(v) > 0 else list(v)

    def weight(x, u, msgs, skip=-1):
        return math.prod(msgs[(p, x)][s] for j, (p, s) in enumerate(zip(par[x], u)) if j != skip)

    def support(x, msgs):
        return [sum(weight(x, u, msgs) * col[s] for u, col in cols[x]) for s in range(n[x])]

    def likelihood(x, msgs, skip=None):
        return [ev[x][s] * math.prod(msgs[(x, c)][s] for c in kids[x] if c != skip) for s in range(n[x])]

    for _ in range(sweeps):
        new_pi = {(x, c): norm([a * b for a, b in zip(support(x, pi), likelihood(x, lam, c))])
                  for x in nodes for c in kids[x]}
        new_lam = {}
        for x in nodes:
            lx = likelihood(x, lam)
            for k, p in enumerate(par[x]):
                msg = [0.0] * n[p]
                for u, col in cols[x]:
                    msg[u[k]] += weight(x, u, pi, k) * sum(a * b for a, b in zip(lx, col))
                new_lam[(p, x)] = norm(msg)
        change = max([abs(a - b) for m, new in ((pi, new_pi), (lam, new_lam)) for key in m
                      for a, b in zip(m[key], new[key])] + [0.0])
        pi, lam = new_pi, new_lam
        if change < tolerance:
            break
    return {x: norm([a * b for a, b in zip(support(x, pi), likelihood(x, lam))]) for x in nodes}


def build_diamonds(net):
    """Two stacked diamonds whose tables make the parents of each join
    strongly dependent, so that loopy propagation is visibly inexact."""
    h = {i: net.add_node(NodeType.CPT, i) for i in "ABCDEFG"}
    for p, c in ["AB", "AC", "BD", "CD", "DE", "DF", "EG", "FG"]:
        net.add_arc(h[p], h[c])
    net.set_node_definition(h["A"], [0.3, 0.7])
    for child in "BCEF":
        net.set_node_definition(h[child], [0.95, 0.05, 0.1, 0.9])
    for join in "DG":
        net.set_node_definition(h[join], [0.9, 0.1, 0.4, 0.6, 0.3, 0.7, 0.05, 0.95])
    return h


@pytest.mark.parametrize("evidence", [{}, {"G": 0}, {"B": 1, "G": 0}])
def test_loopy_propagation_reaches_the_reference_fixed_point(net, evidence):
    h = build_diamonds(net)
    for node_id, state in evidence.items():
        net.set_evidence(node_id, state)
    net.update_beliefs()
    exact = {x: net.get_node_value(x) for x in h.values()}
    want = reference_loopy(net)
    net.set_bayesian_algorithm(Alg.LBP)
    for damping in (0.0, 0.5):
        net.set_lbp_params(pyquarn.LBPParams(damping=damping))
        net.update_beliefs()
        for x in h.values():
            assert net.get_node_value(x) == pytest.approx(want[x], abs=1e-7)
    # The loops make the fixed point differ from the exact posteriors.
    assert max(abs(a - b) for x in h.values() for a, b in zip(want[x], exact[x])) > 0.01


def test_loopy_propagation_parameters(net):
    build_diamonds(net)
    net.set_evidence("G", 0)
    assert net.get_lbp_params() == pyquarn.LBPParams()
    net.set_bayesian_algorithm(Alg.LBP)
    net.set_lbp_params(pyquarn.LBPParams(max_iterations=1, tolerance=0.0))
    net.update_beliefs()
    assert net.get_node_value("A") != pytest.approx(reference_loopy(net)[net.get_all_nodes()[0]], abs=1e-4)
    for bad in (pyquarn.LBPParams(max_iterations=0), pyquarn.LBPParams(tolerance=-1.0),
                pyquarn.LBPParams(damping=1.0), pyquarn.LBPParams(damping=float("nan"))):
        with quarn_error(-4, contains="Invalid loopy propagation parameters"):
            net.set_lbp_params(bad)
        assert net.get_lbp_params() == pyquarn.LBPParams(1, 0.0, 0.0)
