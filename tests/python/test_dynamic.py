"""Dynamic networks: temporal arcs and definitions, evidence per slice,
belief updating over time and unrolling."""
import math

import numpy as np
import pytest

import pyquarn
from pyquarn import NodeTemporalType as TT
from pyquarn import NodeType
from conftest import OCCURED
from describe_util import assert_refused


def _cpt_node(net, name, states, ttype=TT.PLATE):
    h = net.add_node(NodeType.CPT, name)
    for _ in range(states - 2):
        net.add_outcome(h, "s%d" % net.get_outcome_count(h))
    net.set_node_temporal_type(h, ttype)
    return h


def _random_table(rng, rows, states):
    t = rng.random((rows, states)) + 0.05
    # Few digits, so that files hold the tables exactly.
    t = np.round(t / t.sum(axis=1, keepdims=True), 8)
    t[:, -1] = np.round(1.0 - t[:, :-1].sum(axis=1), 8)
    return t.ravel().tolist()


def _randomize(net, rng):
    """Random tables for every definition of every node, temporal ones included."""
    for h in net.get_all_nodes():
        n = net.get_outcome_count(h)
        net.set_node_definition(h, _random_table(rng, len(net.get_node_definition(h)) // n, n))
        for k in net.get_temporal_orders(h):
            net.set_node_temporal_definition(h, k, _random_table(rng, len(net.get_node_temporal_definition(h, k)) // n, n))


def _hmm(slices, hidden=3, seen=2):
    net = pyquarn.Network()
    net.set_slice_count(slices)
    h = _cpt_node(net, "H", hidden)
    o = _cpt_node(net, "O", seen)
    net.add_arc(h, o)
    net.add_temporal_arc(h, h, 1)
    return net, h, o


def _rich(slices, seed):
    """Anchor and contemporal parents, temporal arcs of orders 1 to 3 and a
    terminal child, with random tables and evidence."""
    rng = np.random.default_rng(seed)
    net = pyquarn.Network()
    net.set_slice_count(slices)
    a = _cpt_node(net, "A", 2, TT.ANCHOR)
    c = _cpt_node(net, "C", 3, TT.CONTEMPORAL)
    x = _cpt_node(net, "X", 3)
    y = _cpt_node(net, "Y", 2)
    z = _cpt_node(net, "Z", 2)
    t = _cpt_node(net, "T", 2, TT.TERMINAL)
    net.add_arc(a, x)
    net.add_arc(c, x)
    net.add_arc(x, y)
    net.add_arc(y, t)
    net.add_arc(z, t)
    net.add_temporal_arc(x, x, 1)
    net.add_temporal_arc(y, x, 3)
    net.add_temporal_arc(y, y, 2)
    net.add_temporal_arc(x, z, 1)
    net.add_temporal_arc(z, z, 1)
    _randomize(net, rng)
    for s in range(slices):
        if rng.random() < 0.4:
            net.set_temporal_evidence(y, s, int(rng.integers(2)))
        if rng.random() < 0.2:
            net.set_temporal_virtual_evidence(z, s, rng.random(2).tolist())
    net.set_evidence(t, 1)
    return net


@pytest.mark.parametrize("slices", [1, 5])
def test_unrolled_network_has_the_temporal_structure_and_beliefs(slices):
    net = _rich(slices, slices)
    net.update_beliefs()
    res = net.unroll()
    flat, m = res.network, res.mapping
    flat.update_beliefs()
    assert sorted(m) == sorted((n, s) for n in "XYZ" for s in range(slices))
    for (node, s), uid in m.items():
        n = net.get_outcome_count(node)
        assert np.allclose(net.get_node_value(node)[s * n:(s + 1) * n], flat.get_node_value(uid), atol=1e-9)
        if node == "Y":
            assert flat.is_evidence(uid) == net.is_temporal_evidence("Y", s)
    for node in ["A", "C", "T"]:
        assert np.allclose(net.get_node_value(node), flat.get_node_value(node), atol=1e-9)
    assert flat.get_parent_ids("T") == [m[("Y", slices - 1)], m[("Z", slices - 1)]]
    assert [(p.parent_id, p.order) for p in net.get_unrolled_parents("X", 0)] == [("A", 0), ("C", 0)]
    if slices == 5:
        assert m[("X", 0)] == "X_0" and m[("Z", 4)] == "Z_4"
        # X in slice 4 uses its order-3 table: C, then X of slice 3, then Y of slice 1.
        assert flat.get_parent_ids(m[("X", 4)]) == ["C", m[("X", 3)], m[("Y", 1)]]
        assert flat.get_node_definition(m[("X", 4)]) == pytest.approx(net.get_node_temporal_definition("X", 3))
        # In slice 2 the order-3 parent does not exist yet: the order-1 table.
        assert flat.get_parent_ids(m[("X", 2)]) == ["C", m[("X", 1)]]
        assert flat.get_node_definition(m[("X", 2)]) == pytest.approx(net.get_node_temporal_definition("X", 1))
        assert [(p.parent_id, p.order) for p in net.get_unrolled_parents("X")] == [("C", 0), ("X", 1), ("Y", 3)]


def test_temporal_tables_follow_graph_changes():
    net, h, o = _hmm(3)
    net.add_temporal_arc(o, h, 1)
    table = _random_table(np.random.default_rng(5), 6, 3)  # rows: H(t-1) x O(t-1)
    net.set_node_temporal_definition(h, 1, table)
    net.set_node_temporal_definition(o, 0, [0.5, 0.5] * 3)
    g = _cpt_node(net, "G", 2)
    net.add_arc(g, h)
    # The new static parent comes first and the table repeats for each of its outcomes.
    assert net.get_node_temporal_definition(h, 1) == pytest.approx(table * 2)
    net.add_outcome(o, "extra")
    rows = np.array(net.get_node_temporal_definition(h, 1)).reshape(2, 3, 3, 3)
    assert rows[:, :, :2] == pytest.approx(np.array(table).reshape(1, 3, 2, 3).repeat(2, axis=0))
    assert rows[:, :, 2] == pytest.approx(np.full((2, 3, 3), 1 / 3))
    net.delete_node(g)
    net.delete_outcome(o, 2)
    assert net.get_node_temporal_definition(h, 1) == pytest.approx(table)
    net.delete_temporal_arc(h, h, 1)
    assert [(p.parent_id, p.order) for p in net.get_temporal_parents(h, 1)] == [("O", 1)]
    assert net.get_node_temporal_definition(h, 1) == pytest.approx(np.array(table).reshape(3, 2, 3)[0].ravel())
    net.delete_node(o)
    assert net.get_temporal_orders(h) == [] and net.get_max_temporal_order() == 0


def test_copies_keep_the_temporal_model():
    net = _rich(4, 11)
    net.set_temporal_plate_position(10, 20, 300, 200)
    net.set_temporal_plate_widths(40, 50)
    import copy
    from describe_util import describe
    assert describe(copy.deepcopy(net)) == describe(net)
    assert net.get_temporal_plate_position() == [10, 20, 300, 200]
    assert [(c.parent_id, c.order) for c in net.get_temporal_children("Y")] == [("X", 3), ("Y", 2)]
    assert net.get_max_temporal_order() == 3 and net.get_max_node_temporal_order("Z") == 1


def test_reading_values_needs_an_update():
    net, h, _ = _hmm(4)
    net.update_beliefs()
    net.set_temporal_evidence(h, 2, 1)
    with pytest.raises(pyquarn.QUARNException):
        net.get_node_value(h)
    net.update_beliefs()
    assert net.get_node_value(h)[6:9] == [0.0, 1.0, 0.0]
    assert net.get_temporal_evidence_id("H", 2) == "State1"
    net.clear_temporal_evidence(h, 2)
    assert not net.has_temporal_evidence(h)


def test_bad_input_is_refused_and_changes_nothing():
    net, h, o = _hmm(3)
    c = _cpt_node(net, "C", 2, TT.CONTEMPORAL)
    refused = [
        (-2, net.add_temporal_arc, (h, o, 0), None), (-2, net.add_temporal_arc, (h, o, -1), None),
        (-51, net.add_temporal_arc, (h, c, 1), None), (-2, net.add_temporal_arc, (h, h, 1), None),
        (-4, net.set_temporal_evidence, (h, -1, 0), OCCURED + "Slice cannot be negative"),
        (-2, net.set_temporal_evidence, (h, 3, 0),
         OCCURED + "Slice index must be less than slice count, which is set to 3"),
        (-2, net.get_temporal_evidence, ("H", 1), None), (-51, net.set_temporal_evidence, (c, 0, 0), None),
        (-2, net.set_temporal_virtual_evidence, (h, 0, [0.5, 0.5]), None),
        (-2, net.set_node_temporal_definition, (h, 1, [0.5] * 4), None),
        (-2, net.set_node_temporal_definition, (h, 2, [0.5] * 18), None), (-2, net.set_slice_count, (0,), None),
        (-51, net.set_node_temporal_type, (o, TT.CONTEMPORAL), None),
        (-2, net.delete_temporal_arc, (o, h, 1), None), (1, net.set_temporal_plate_position, ([1, 2, 3],), None),
    ]
    for code, call, args, text in refused:
        assert_refused(net, code, call, *args, text=text)
    assert "Network.SetNodeTemporalType" in assert_refused(net, -51, net.set_node_temporal_type, o, TT.CONTEMPORAL)


_PLATE_DOC = ('<?xml version="1.0"?><quarn version="1.0" id="n"><nodes>'
              '<cpt id="X" dynamic="plate"><state id="a"/><state id="b"/><probabilities>0.5 0.5</probabilities></cpt>'
              '<cpt id="C"><state id="a"/><state id="b"/><probabilities>0.5 0.5</probabilities></cpt>'
              '</nodes><dynamic numslices="3">%s</dynamic></quarn>')


@pytest.mark.parametrize("body, message", [
    ('<cpt id="C" order="1"><parents>X</parents><probabilities>1 0 0 1</probabilities></cpt>',
     "Node is not part of temporal plate: 'C'"),
    ('<cpt id="X" order="1"><probabilities>1 0 0 1</probabilities></cpt>', "No temporal parents specified: 'X'"),
    ('<cpt id="X" order="0"><parents>X</parents></cpt>', "Temporal defintion not found: 'X'"),
    ('<noisymax id="X" order="1"/>', "Invalid temporal defintion type: 'X'"),
    ('<demorgan id="X" order="1"/>', "Invalid temporal defintion type: 'X'"),
    ('<cpt id="X" order="1"><parents>X X</parents></cpt>', "AddTemporalArc failed: 'X'"),
])
def test_faulty_dynamic_sections_are_refused(net, body, message):
    with pytest.raises(pyquarn.QUARNException) as info:
        net.read_string(_PLATE_DOC % body)
    assert message in str(info.value)
    assert net.get_node_count() == 0
    net.read_string(_PLATE_DOC % '<cpt id="X" order="1"><parents>X</parents><probabilities>1 0 0 1</probabilities></cpt>')
    assert net.get_node_temporal_definition("X", 1) == [1, 0, 0, 1]


def test_cases_store_and_apply_evidence_per_slice():
    net, h, o = _hmm(4)
    net.set_temporal_evidence(o, 1, 1)
    net.set_temporal_virtual_evidence(h, 3, [0.25, 0.5, 1.0])
    net.add_case("c")
    net.save_network_to_case("c")
    stored = [(e.slice, e.outcome, list(e.virtual_evidence)) for e in net.get_case_temporal_evidence("c", o)]
    assert stored == [(1, 1, [])]
    net.clear_all_evidence()
    assert not net.has_temporal_evidence(o) and not net.has_temporal_evidence(h)
    net.apply_case_to_network("c")
    assert net.get_temporal_evidence(o, 1) == 1
    assert net.get_temporal_virtual_evidence(h, 3) == [0.25, 0.5, 1.0]


def test_random_walk_with_temporal_equations_against_gaussian_smoothing(net, tmp_path):
    """x_t = x_{t-1} + N(0, 0.5), read through y_t = x_t + N(0, 0.7) at some
    slices: sampled per-slice means and deviations against the smoother's
    closed form (Gaussian conditioning of the unrolled chain)."""
    from conftest import quarn_error
    from test_equations import gaussian_posterior, linear_gaussian
    slices, n = 6, 200000
    net.set_slice_count(slices)
    for node_id, text in (("x", "x = Normal(0, 1)"), ("y", "y = x + Normal(0, 0.7)")):
        net.add_node(NodeType.EQUATION, node_id)
        net.set_node_temporal_type(node_id, TT.PLATE)
        net.set_node_equation(node_id, text)
    net.add_temporal_arc("x", "x", 1)
    with quarn_error(-2, contains="'y[-1]'"):
        net.set_node_temporal_equations("x", ["x = y[-1]"])
    with quarn_error(-2, contains="one per temporal order"):
        net.set_node_temporal_equations("x", [])
    net.set_node_temporal_equations("x", ["x - x[-1] = Normal(0, 0.5)"])
    net.set_node_temporal_equations("x", ["x = x[-1] + Normal(0, 0.5)"])
    assert net.get_node_temporal_equations("x") == ["x = x[-1] + Normal(0, 0.5)"]
    evidence = {1: 0.8, 3: 1.5, 4: 1.1}
    for t, v in evidence.items():
        net.set_temporal_cont_evidence("y", t, v)
    net.set_temporal_cont_evidence("y", 5, 9.0)
    net.clear_temporal_evidence("y", 5)
    assert [net.is_temporal_cont_evidence("y", t) for t in range(slices)] == [t in evidence for t in range(slices)]
    assert net.get_temporal_cont_evidence("y", 3) == 1.5
    net.set_sample_count(n)
    net.set_rand_seed(7)
    net.update_beliefs()
    # Variable 2t is x_t, 2t + 1 is y_t.
    coefs = [({2 * (i // 2 - 1): 1} if i > 1 else {}) if i % 2 == 0 else {i - 1: 1} for i in range(2 * slices)]
    noise = [1 if i == 0 else 0.5 if i % 2 == 0 else 0.7 for i in range(2 * slices)]
    mean, cov = linear_gaussian(coefs, noise, [0] * (2 * slices))
    observed = [2 * t + 1 for t in evidence]
    means, sds = net.get_node_temporal_mean("x"), net.get_node_temporal_std_dev("x")
    assert net.get_node_slice_sample_counts("x") == [n] * slices and len(net.get_node_value("x")) == n * slices
    for t in range(slices):
        m, var = gaussian_posterior(mean, cov, observed, list(evidence.values()), 2 * t)
        assert abs(means[t] - m) < 3 * math.sqrt(var / 20000)
        assert abs(sds[t] ** 2 - var) < 3 * var * math.sqrt(2 / 20000)
    assert net.get_node_temporal_mean("y")[3] == 1.5 and net.get_node_temporal_std_dev("y")[3] == 0
    for name in ("n.xvek", "n.vek"):
        net.write_file(str(tmp_path / name))
        copy = pyquarn.Network()
        copy.read_file(str(tmp_path / name))
        assert copy.get_node_temporal_equations("x") == ["x = x[-1] + Normal(0, 0.5)"]


def test_temporal_noisy_max_expands_to_noisy_or(tmp_path):
    """U -> X in the plate, X -> X of order 1, X noisy-MAX: the tables of the
    unrolled copies and the beliefs over time against noisy-OR in closed form."""
    net = pyquarn.Network()
    net.set_slice_count(4)
    u = _cpt_node(net, "U", 2)
    x = net.add_node(NodeType.NOISY_MAX, "X")
    net.set_node_temporal_type(x, TT.PLATE)
    net.add_arc(u, x)
    net.add_temporal_arc(x, x, 1)
    pu0, leak0, pu, px, leak = 0.875, 0.0625, 0.75, 0.625, 0.125  # exact in files
    net.set_node_definition(u, [0.3, 0.7])
    net.set_node_definition(x, [pu0, 1 - pu0, 0, 1, leak0, 1 - leak0])
    net.set_node_temporal_definition(x, 1, [pu, 1 - pu, 0, 1, px, 1 - px, 0, 1, leak, 1 - leak])
    refused = [
        (net.get_noisy_temporal_parent_strengths, (x, 2)),
        (net.set_noisy_temporal_parent_strengths, (x, 2, [[0, 1]])),
        (net.set_noisy_temporal_parent_strengths, (x, 1, [[0, 1], [1, 0]])),
        (net.set_noisy_temporal_parent_strengths, (x, 1, [[0, 0]])),
        (net.set_noisy_temporal_parent_strengths, (u, 1, [[0, 1]])),
        (net.set_node_temporal_definition, (x, 1, [0.5] * 8)),
        (net.set_node_temporal_definition, (x, 1, [0.5, 0.6] + [0, 1] * 4)),
    ]
    for call, args in refused:
        assert_refused(net, -2, call, *args)

    def on(state, active, p):
        return (1 - p) if state == active else 1.0

    for strengths in ([[0, 1]], [[1, 0]]):
        net.set_noisy_temporal_parent_strengths(x, 1, strengths)
        active = strengths[0][0]
        present = {(s_u, s_x): 1 - (1 - leak) * on(s_u, 0, pu) * on(s_x, active, px)
                   for s_u in range(2) for s_x in range(2)}
        flat = net.unroll()
        for t in (1, 3):
            copy = flat.mapping[("X", t)]
            assert flat.network.get_parent_ids(copy) == ["U_%d" % t, "X_%d" % (t - 1)]
            want = [v for key in sorted(present) for v in (present[key], 1 - present[key])]
            assert flat.network.get_node_definition(copy) == pytest.approx(want, abs=1e-12)
        net.update_beliefs()
        belief = net.get_node_value(x)
        p_x = 0.3 * (1 - (1 - leak0) * (1 - pu0)) + 0.7 * leak0
        for t in range(4):
            assert belief[2 * t] == pytest.approx(p_x, abs=1e-12)
            p_x = sum((0.3, 0.7)[s_u] * (p_x, 1 - p_x)[s_x] * present[s_u, s_x]
                      for s_u in range(2) for s_x in range(2))
        from describe_util import describe
        copy = pyquarn.Network()
        copy.read_string(net.write_string())
        assert describe(copy)["temporal"] == describe(net)["temporal"]
        # The text format keeps the weights, and refuses reordered strengths.
        if active == 0:
            net.write_file(str(tmp_path / "n.vek"))
            copy.read_file(str(tmp_path / "n.vek"))
            assert describe(copy)["temporal"] == describe(net)["temporal"]
        else:
            assert_refused(net, -51, net.write_file, str(tmp_path / "n.vek"))


def test_demorgan_orders_take_weights_and_prior():
    """E -> D in the plate, D -> D of order 1, both DeMorgan: order 1 is the
    weights of E and D one slice back, then the prior."""
    net = pyquarn.Network()
    net.set_slice_count(3)
    e, d = net.add_node(NodeType.DEMORGAN, "E"), net.add_node(NodeType.DEMORGAN, "D")
    for h in (e, d):
        net.set_node_temporal_type(h, TT.PLATE)
    net.add_arc(e, d)
    net.set_de_morgan_parent_weight(d, 0, 0.5)
    net.add_temporal_arc(d, d, 1)
    assert net.get_node_temporal_definition(d, 1) == [0.5, 0, 0.5]
    for bad in ([0.5, 0.25], [0.5, 1.5, 0.25], [0.5, 0.25, -0.125], [0.5, math.nan, 0.25]):
        assert_refused(net, -2, net.set_node_temporal_definition, d, 1, bad)
    # Unrolled they are tables, which EM must not learn as such.
    from pyquarn.learning import DataSet, EM
    from pyquarn._frames import sample_frame
    ds = DataSet.from_pandas(sample_frame(net.unroll().network, 10, 0.0, seed=1))
    assert_refused(net, -51, EM().learn, ds, net, ds.match_network(net))


def test_em_reads_sequences_from_slice_columns(tmp_path):
    """Columns H_t and O_t match the plate nodes by slice; EM needs auto
    slices to learn from them and keeps the network's slice count."""
    from pyquarn.learning import DataSet, EM
    rng = np.random.default_rng(7)
    slices = 4
    header = ["H_%d" % t for t in range(slices)] + ["O_%d" % t for t in range(slices)]
    rows = ["".join(",%s" % (rng.choice(["0", "1", "*"])) for _ in header)[1:] for _ in range(200)]
    path = tmp_path / "hmm.csv"
    path.write_text(",".join(header) + "\n" + "\n".join(rows) + "\n")
    data = DataSet()
    data.read_file(str(path))
    net, h, o = _hmm(1, hidden=2, seen=2)
    matching = data.match_network(net)
    assert sorted((m.node, m.slice) for m in matching) == sorted((n, t) for n in (h, o) for t in range(slices))
    em = EM()
    assert_refused(net, -2, em.learn, data, net, matching)
    em.set_auto_slices(True)
    em.learn(data, net, matching)
    assert net.get_node_temporal_definition(h, 1) != [0.5] * 4 and net.get_slice_count() == 1
