"""DataFrames in and out of DataSet, the EM helper, and pyquarn.distributed
on a real two-process Dask cluster on loopback."""
import math
import os
import pickle
import signal
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import pyquarn
from pyquarn.learning import DataSet, DataMatch, EM
from conftest import quarn_error, shared_xvek
from test_dynamic import _hmm, _randomize

pd = pytest.importorskip("pandas")
dd = pytest.importorskip("dask.dataframe")
distributed = pytest.importorskip("dask.distributed")
from pyquarn import distributed as qd  # noqa: E402
from pyquarn._frames import sample_frame  # noqa: E402

ASIA = shared_xvek("asia")


def load(path=ASIA):
    net = pyquarn.Network()
    net.read_file(path)
    return net


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                                       dashboard_address=None, silence_logs=50)
    c = distributed.Client(cluster, timeout=30)
    yield c
    c.close(timeout=30)
    cluster.close(timeout=30)


@pytest.fixture(scope="module")
def data():
    """2,000 records of asia, a fifth of the cells missing."""
    return sample_frame(load(), 2000, 0.2, seed=7)


def tables(net):
    return {n: net.get_node_definition(n) for n in net.get_all_node_ids()}


def em_reference(frame, fixed=(), **settings):
    net = load()
    ds = DataSet.from_pandas(frame)
    em = EM()
    for name, value in settings.items():
        getattr(em, "set_" + name)(value)
    em.learn(ds, net, [DataMatch(net.get_node(c), 0, i) for i, c in enumerate(ds.get_variable_ids())], list(fixed))
    return net, em.get_last_score()


def test_frames_convert_both_ways():
    df = pd.DataFrame({
        "cat": pd.Categorical(["b", None, "a"], categories=["b", "a"]),
        "text": ["yes", None, "no"],
        "int": pd.array([3, None, -1], dtype="Int64"),
        "float": [0.5, float("nan"), 2.0],
        "flag": [True, False, True],
    })
    ds = DataSet.from_pandas(df)
    assert [ds.is_discrete(i) for i in range(5)] == [True, True, True, False, True]
    assert ds.get_state_names("cat") == ["b", "a"] and ds.get_state_names("text") == ["no", "yes"]
    assert [ds.is_missing(c, 1) for c in range(4)] == [True, True, True, True]
    assert list(ds.get_column("text")) == [1, ds.get_missing_int("text"), 0]
    assert list(ds.get_column("int"))[::2] == [3, -1]
    back = ds.to_pandas()
    assert back["text"].astype(object).where(back["text"].notna(), None).tolist() == ["yes", None, "no"]
    assert list(back["cat"].cat.categories) == ["b", "a"] and list(back["cat"].astype(object))[::2] == ["b", "a"]
    assert back["int"].isna().tolist() == [False, True, False] and back["int"][2] == -1
    assert np.isnan(back["float"][1]) and back["float"][2] == 2.0
    arr = DataSet(np.array([[1.5, 2.0], [np.nan, 3.0]]), ["x", "y"])
    assert not arr.is_discrete(0) and arr.is_missing("x", 1) and arr.get_float("y", 1) == 3.0
    with quarn_error(-51, contains="unsupported type"):
        DataSet.from_pandas(pd.DataFrame({"t": pd.to_datetime(["2020-01-01"])}))
    with quarn_error(-2):
        DataSet(np.zeros((2, 2)), ["x"])


def test_helper_steps_equal_one_em_run(data):
    # One partition: the same records, grouped and summed as EM does them.
    net = load()
    learnt = qd.fit_em(net, dd.from_pandas(data, npartitions=1), eq_sample_size=2)
    reference, score = em_reference(data, eq_sample_size=2)
    assert tables(net) == tables(reference) and learnt == score
    # Several partitions: the same sums in another order.
    split = load()
    assert qd.fit_em(split, dd.from_pandas(data, npartitions=5), eq_sample_size=2) == pytest.approx(score, 1e-12)
    for node, table in tables(split).items():
        assert table == pytest.approx(tables(reference)[node], abs=1e-10)
    # Statistics add up, and the helper travels by pickle unchanged.
    helper = load().distributed_helper_em()
    whole = helper.e_step(data)
    parts = helper.combine(helper.e_step(data[:700]), pickle.loads(pickle.dumps(helper)).e_step(data[700:]))
    assert parts["records"] == 2000 and parts["log_likelihood"] == pytest.approx(whole["log_likelihood"], 1e-12)
    for a, b in zip(parts["counts"], whole["counts"]):
        np.testing.assert_allclose(a, b, rtol=1e-12)
    assert sum(c.sum() for c in whole["counts"]) == pytest.approx(2000 * len(helper.get_learnt_nodes()))
    # Threads count side by side without the GIL, each in its own lane.
    halves = [data[:700], data[700:]] * 3
    with ThreadPoolExecutor(3) as pool:
        together = list(pool.map(helper.e_step, halves))
    for a, b in zip(together, map(helper.e_step, halves)):
        assert a["log_likelihood"] == b["log_likelihood"]
        assert all(np.array_equal(x, y) for x, y in zip(a["counts"], b["counts"]))


def hmm(slices=4):
    net, _, _ = _hmm(slices, hidden=2, seen=3)
    _randomize(net, np.random.default_rng(3))
    return net


def all_tables(net):
    return {(n, k): net.get_node_temporal_definition(n, k) if k else net.get_node_definition(n)
            for n in net.get_all_node_ids() for k in [0] + net.get_temporal_orders(n)}


def test_dynamic_networks_learn_their_tied_tables_as_em_does(client):
    data = sample_frame(hmm().unroll().network, 600, 0.3, seed=5)  # columns H_0, O_0, ..., O_3
    ds, start = DataSet.from_pandas(data), all_tables(hmm())
    # One partition: EM's very sums; two on the cluster: the same in another order.
    for slices, auto, parts, tolerance in ((4, False, 1, 0), (1, True, 2, 1e-12)):
        net, reference, em = hmm(slices), hmm(slices), EM()
        em.set_auto_slices(auto)
        em.set_randomize_parameters(auto)
        em.set_seed(5)
        em.learn(ds, reference, ds.match_network(reference))
        ll = qd.fit_em(net, dd.from_pandas(data, npartitions=parts), client=client if auto else None,
                       auto_slices=auto, randomize=auto, seed=5)
        assert ll == pytest.approx(em.get_last_score(), rel=tolerance, abs=0) and net.get_slice_count() == slices
        for key, table in all_tables(net).items():
            assert table != start[key] and table == pytest.approx(all_tables(reference)[key], rel=0, abs=tolerance)
    # One table per (node, order); its counts come from every slice using it.
    helper = hmm().distributed_helper_em()
    stats = helper.combine(helper.e_step(data[:250]), pickle.loads(pickle.dumps(helper)).e_step(data[250:]))
    assert helper.get_layout() == [("H", 0), ("H", 1), ("O", 0)]
    assert [c.sum() for c in stats["counts"]] == pytest.approx([600, 1800, 2400], rel=1e-12)
    # Columns beyond the slices, or of another network, and another layout's statistics are refused.
    net, asia = hmm(2), load()
    before, helper = all_tables(net), net.distributed_helper_em()
    other = sample_frame(asia, 20, 0.0, seed=1)
    with quarn_error(-2, contains="Column 'H_2' names slice 2, but the helper learns over 2 slices"):
        qd.fit_em(net, dd.from_pandas(data, npartitions=2))
    for partition, code, text in ((data, -2, "names slice 2"), (other, -3, "Column 'asia' matches no node")):
        with quarn_error(code, contains=text):
            helper.e_step(partition)
    with quarn_error(-4, contains="Statistics must be"):
        helper.m_step(asia.distributed_helper_em().e_step(other))
    # A slice count read from a column name is bounded before anything is unrolled.
    huge = DataSet.from_pandas(pd.DataFrame({"O_99999999": [net.get_outcome_ids("O")[0]]}).astype("category"))
    em = EM()
    em.set_auto_slices(True)
    for attempt in (lambda: net.distributed_helper_em(auto_slices=True, columns=["O_99999999"]),
                    lambda: em.learn(huge, net, huge.match_network(net))):
        with quarn_error(-42, contains="100000000 slices unroll to more than"):
            attempt()
    assert all_tables(net) == before and net.get_slice_count() == 2
    # A learnt node whose table cannot be restarted refuses the restart; the tables restarted before it go back.
    net = pyquarn.Network()
    net.add_node(pyquarn.NodeType.CPT, "A")
    net.set_node_definition("A", [0.3, 0.7])
    net.add_node(pyquarn.NodeType.EQUATION, "X")
    helper = net.distributed_helper_em()
    for restart in (helper.uniformize, helper.randomize):
        with quarn_error(-51, contains="start parameters of node 'X' could not be set"):
            restart()
        assert helper.get_parameters()[0] == pytest.approx([0.3, 0.7], abs=0)


def test_randomized_restarts_and_fixed_nodes_follow_em(data):
    net = load()
    qd.fit_em(net, dd.from_pandas(data, npartitions=1), randomize=True, seed=5, restarts=3, fixed_nodes=["asia"])
    reference, _ = em_reference(data, ["asia"], randomize_parameters=True, seed=5)
    assert tables(net) == tables(reference)
    assert net.get_node_definition("asia") == load().get_node_definition("asia")


def test_cluster_results_equal_local_ones(client, data):
    frame = dd.from_pandas(data, npartitions=4)
    local, remote = load(), load()
    assert qd.fit_em(remote, frame, client=client) == qd.fit_em(local, frame)
    assert tables(remote) == tables(local)
    complete = sample_frame(load(), 3000, 0.0, seed=3)
    counted = load()
    qd.fit_counts(counted, dd.from_pandas(complete, npartitions=3), client=client)
    reference, _ = em_reference(complete)
    for node, table in tables(counted).items():
        assert table == pytest.approx(tables(reference)[node], abs=1e-15)
    # Posteriors against the joint distribution summed out by brute force.
    evidence = data[["smoke", "xray"]].iloc[:40].dropna()
    out = qd.predict(load(), dd.from_pandas(evidence, npartitions=2), ["lung"]).compute(scheduler=client.get)
    joint = joint_table(load())
    for (smoke, xray), row in zip(evidence.itertuples(index=False), out.itertuples(index=False)):
        sel = joint[(joint.smoke == smoke) & (joint.xray == xray)].groupby("lung", observed=True)["p"].sum()
        assert list(row) == pytest.approx([sel[o] / sel.sum() for o in load().get_outcome_ids("lung")], abs=1e-12)


def joint_table(net):
    ids = net.get_all_node_ids()
    grids = np.meshgrid(*[np.arange(len(net.get_outcome_ids(n))) for n in ids], indexing="ij")
    states = {n: g.ravel() for n, g in zip(ids, grids)}
    p = np.ones(grids[0].size)
    for n in ids:
        index = np.zeros_like(p, dtype=np.int64)
        for q in net.get_parent_ids(n) + [n]:
            index = index * len(net.get_outcome_ids(q)) + states[q]
        p *= np.asarray(net.get_node_definition(n))[index]
    frame = pd.DataFrame({n: np.asarray(net.get_outcome_ids(n))[states[n]] for n in ids})
    frame["p"] = p
    return frame


def test_em_survives_a_killed_worker(client, data):
    frame = dd.from_pandas(data, npartitions=6)
    expected = load()
    qd.fit_em(expected, frame)
    pids = list(client.run(os.getpid).values())

    def kill(iteration, _):
        if iteration == 1:
            os.kill(pids[0], signal.SIGKILL)

    net = load()
    qd.fit_em(net, frame, client=client, progress=kill)
    assert tables(net) == tables(expected)


def test_failures_reach_the_caller_and_leave_the_network(client, data):
    net = load()
    before = tables(net)
    wrong = data.copy()
    wrong["smoke"] = wrong["smoke"].cat.rename_categories(["often", "never"])
    with quarn_error(-2, contains="is not an outcome of node 'smoke'"):
        qd.fit_em(net, dd.from_pandas(wrong, npartitions=2), client=client)
    with quarn_error(-2, contains="Column 'extra' matches no node"):
        qd.fit_em(net, dd.from_pandas(data.assign(extra=1), npartitions=2), client=client)
    with quarn_error(-3, contains="no records"):
        qd.fit_counts(net, dd.from_pandas(data[:0], npartitions=1))
    with quarn_error(-3, contains="holds no records"):
        net.distributed_helper_em().e_step(data[:0])
    with quarn_error(-4, contains="Statistics must be"):
        net.distributed_helper_em().m_step({"counts": [], "log_likelihood": 0.0, "records": 0})
    with quarn_error(-2, contains="Can't reach the Dask scheduler"):
        qd.fit_em(net, dd.from_pandas(data, npartitions=2), client="tcp://127.0.0.1:9", timeout=2)
    assert tables(net) == before


def test_family_scores_against_direct_sums(client):
    rng = np.random.default_rng(1)
    frame = pd.DataFrame({"a": rng.integers(0, 2, 300), "b": rng.integers(0, 3, 300)})
    frame["c"] = (frame.a + frame.b + rng.integers(0, 2, 300)) % 2
    ddf = dd.from_pandas(frame, npartitions=3)
    families = [("c", ["a", "b"]), ("a", []), ("b", ["a"]), ("a", ["b"]), ("b", [])]
    bdeu = qd.score_structures(ddf, families, client=client, ess=4.0)
    bic = qd.score_structures(ddf, families, client=client, score="bic")

    def direct(child, parents, score):
        total = 0.0
        r = frame[child].nunique()
        configs = frame.groupby(parents if len(parents) > 1 else parents[0]) if parents else [((), frame)]
        q = np.prod([frame[p].nunique() for p in parents]) if parents else 1
        for _, rows in configs:
            counts = rows[child].value_counts().reindex(range(r), fill_value=0).to_numpy()
            if score == "bdeu":
                total += math.lgamma(4 / q) - math.lgamma(4 / q + counts.sum())
                total += sum(math.lgamma(4 / q / r + n) - math.lgamma(4 / q / r) for n in counts)
            else:
                total += sum(n * math.log(n / counts.sum()) for n in counts if n)
        return total if score == "bdeu" else total - 0.5 * math.log(len(frame)) * q * (r - 1)

    assert bdeu == pytest.approx([direct(c, p, "bdeu") for c, p in families], rel=1e-12)
    assert bic == pytest.approx([direct(c, p, "bic") for c, p in families], rel=1e-12)
    # Markov-equivalent a->b and b->a score alike under BDeu.
    assert bdeu[1] + bdeu[2] == pytest.approx(bdeu[3] + bdeu[4], rel=1e-12)
