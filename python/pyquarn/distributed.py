"""Learning and inference over data split into partitions, run by Dask.

EM, parameter fitting and structure scores are sums of per-record
statistics: each partition's share is computed where the partition lives
(a worker of a ``dask.distributed`` cluster, or Dask's local scheduler when
no client is given), the shares are added by a tree reduction in a fixed
order, and the maximization runs here. The engine does the counting through
``Network.distributed_helper_em``; Dask does the scheduling, the data
movement and the resubmission of tasks lost with a worker.

Columns are matched to nodes by id unless a matching is given: a dict
{column: node id} or a list of DataMatch (column index, node handle). In a
dynamic network, plate node id in slice t is named id + "_" + t (a DataMatch
names the slice).
"""

import contextlib
import copy
import math
import re
import uuid

import numpy as np

from pyquarn import QUARNException

_SPLIT_EVERY = 8


from pyquarn._frames import quarn_error as _fail


def _matched(net, ddf, matching, function):
    """The frame's matched columns, renamed to their nodes' ids."""
    columns = list(ddf.columns)
    if matching is None:
        pairs = {c: c for c in columns}
    elif isinstance(matching, dict):
        pairs = dict(matching)
    else:
        pairs = {}
        for m in matching:
            if not 0 <= m.column < len(columns):
                raise _fail(function, "Invalid data column in the matching: %d" % m.column)
            node = net.get_node_id(m.node)
            pairs[columns[m.column]] = "%s_%d" % (node, m.slice) if m.slice else node
    if not pairs:
        raise _fail(function, "No column is matched to a node", -3)
    ids = set(net.get_all_node_ids())
    for column, node in pairs.items():
        if column not in columns:
            raise _fail(function, "The data has no column '%s'" % column)
        if node not in ids and not _plate_slice(net, node, ids):
            raise _fail(function, "Column '%s' matches no node of the network" % column)
    frame = ddf[list(pairs)]
    return frame.rename(columns={c: n for c, n in pairs.items() if c != n})


def _plate_slice(net, name, ids):
    """Whether name is a plate node's id + "_" + slice."""
    from pyquarn import NodeTemporalType
    node, _, slice_ = name.rpartition("_")
    return (node in ids and slice_.isdigit() and len(slice_) <= 8
            and net.get_node_temporal_type(node) == NodeTemporalType.PLATE)


def _compute(obj, client):
    import dask
    try:
        if client is None:
            return dask.compute(obj)[0]
        return client.gather(client.compute(obj))
    except QUARNException as e:
        # Raised in another process: the code on the class is that
        # process's; take it from the text again.
        found = re.match(r"QUARN Error (-?\d+)", str(e))
        QUARNException.error_code = int(found.group(1)) if found else -1
        raise
    except Exception as e:
        if type(e).__name__ != "KilledWorker":
            raise
        raise _fail("distributed", "A task failed on every worker that ran it: %s" % e, -1) from e


@contextlib.contextmanager
def _connected(client, timeout):
    """A client given as a scheduler address is connected here and closed
    after the call."""
    if not isinstance(client, str):
        yield client
        return
    from dask.distributed import Client
    try:
        c = Client(client, timeout=timeout)
    except (OSError, TimeoutError) as e:
        raise _fail("distributed", "Can't reach the Dask scheduler at %s: %s" % (client, e)) from None
    try:
        yield c
    finally:
        c.close()


def _persist(parts, client):
    """Keeps the partitions in worker memory, placed round-robin so that
    every worker holds an equal share of the E-step's work (a worker that
    dies hands its share to the others)."""
    import dask
    if client is None:
        return list(dask.persist(*parts))
    workers = sorted(client.scheduler_info().get("workers", ()))
    if not workers:
        return client.persist(parts)
    return [client.persist(p, workers=[workers[i % len(workers)]], allow_other_workers=True)
            for i, p in enumerate(parts)]


def _records(frame):
    """A partition as the engine's DataSet, converted once where it lives
    rather than on every E-step."""
    from pyquarn._frames import from_pandas
    return from_pandas(frame) if len(frame) else None


def _e_step(helper, part):
    return helper.e_step(part) if part is not None else None


def _converted(frame):
    from dask import delayed
    return [delayed(_records)(p) for p in frame.to_delayed()]


def _add(helper, *items):
    """Adds left to right, so that the sum never depends on scheduling."""
    total = None
    for item in items:
        if item is not None:
            total = item if total is None else helper.combine(total, item)
    return total


def _reduce(add, leaves, first):
    """Tree reduction of delayed leaves; add(first, *group) joins a group."""
    from dask import delayed
    level = list(leaves)
    while len(level) > 1:
        level = [delayed(add, pure=False)(first, *level[i:i + _SPLIT_EVERY])
                 for i in range(0, len(level), _SPLIT_EVERY)]
    return delayed(add, pure=False)(first, *level) if level else None


def _statistics(helper, parts, client, function):
    from dask import delayed
    # A fresh key per pass: the helper's tables change between passes.
    h = delayed(helper, name="em-helper-" + uuid.uuid4().hex, traverse=False)
    total = _compute(_reduce(_add, [delayed(_e_step, pure=False)(h, p) for p in parts], h), client)
    if total is None:
        raise _fail(function, "The data holds no records", -3)
    return total


def fit_em(net, ddf, matching=None, client=None, *, fixed_nodes=(), eq_sample_size=0, uniformize=False,
           randomize=False, seed=0, restarts=1, relevance=True, progress=None, timeout=30, auto_slices=False):
    """Learns the tables of net by EM over the partitions of a Dask DataFrame.

    Each E-step runs on the partitions where they live; the M-step and the
    stopping rule (as the EM class's: log-likelihood ratio below 1.0001 or no
    improvement) run here. With randomize, restarts runs from random tables
    are made and the best kept. progress(iteration, log_likelihood) is told
    of every iteration. The tables are written into net only when every run
    has succeeded. Returns the log-likelihood of the data. client: a
    dask.distributed Client, a scheduler address, or None for Dask's local
    scheduler. A dynamic network is learnt on its own slice count or, with
    auto_slices, on as many slices as the columns name, as EM does.
    """
    with _connected(client, timeout) as client:
        return _fit_em(net, ddf, matching, client, fixed_nodes, eq_sample_size, uniformize, randomize, seed,
                       restarts, relevance, progress, auto_slices)


def _fit_em(net, ddf, matching, client, fixed_nodes, eq_sample_size, uniformize, randomize, seed, restarts,
            relevance, progress, auto_slices):
    frame = _matched(net, ddf, matching, "fit_em")
    helper = net.distributed_helper_em(list(fixed_nodes), eq_sample_size, relevance, auto_slices, list(frame.columns))
    helper.set_seed(seed)
    parts = _persist(_converted(frame), client)
    best, best_ll = None, -math.inf
    for _ in range(max(restarts, 0) if randomize else 1):
        if randomize:
            helper.randomize()
        elif uniformize:
            helper.uniformize()
        previous, iteration = 0.0, 0
        while True:
            ll = helper.m_step(_statistics(helper, parts, client, "fit_em"))
            if progress is not None:
                progress(iteration, ll)
            if ll == 0.0 or (previous != 0.0 and (previous / ll < 1.0001 or previous >= ll)):
                break
            previous, iteration = ll, iteration + 1
        if best is None or ll > best_ll:
            best, best_ll = copy.copy(helper), ll
    if best is not None:
        best.apply(net)
    return best_ll


def fit_counts(net, ddf, matching=None, client=None, *, fixed_nodes=(), eq_sample_size=0, timeout=30,
               auto_slices=False):
    """Fits the tables of net to complete data in one pass: counts, then
    normalised columns (with eq_sample_size times the current tables added).
    Returns the log-likelihood of the data under the fitted tables."""
    frame = _matched(net, ddf, matching, "fit_counts")
    helper = net.distributed_helper_em(list(fixed_nodes), eq_sample_size, True, auto_slices, list(frame.columns))
    parts = _converted(frame)
    with _connected(client, timeout) as client:
        total = _statistics(helper, parts, client, "fit_counts")
    counts = [c.copy() for c in total["counts"]]
    helper.m_step(total)
    ll = 0.0
    for c, table in zip(counts, helper.get_parameters()):
        seen = c > 0
        ll += float(np.sum(c[seen] * np.log(table[seen])))
    helper.apply(net)
    return ll


# ---- structure scores --------------------------------------------------------

def _codes(frame, states):
    """Column codes under the global state lists, -1 for missing."""
    import pandas as pd
    out = {}
    for column, names in states.items():
        s = frame[column]
        if isinstance(s.dtype, pd.CategoricalDtype):
            s = s.astype(object)
        out[column] = pd.Categorical(s, categories=names).codes.astype(np.int64)
    return out


def _family_counts(frame, families, states):
    codes = _codes(frame, states)
    result = []
    for child, parents in families:
        index = np.zeros(len(frame), dtype=np.int64)
        present = np.ones(len(frame), dtype=bool)
        size = 1
        for column in list(parents) + [child]:
            c = codes[column]
            present &= c >= 0
            index = index * len(states[column]) + c
            size *= len(states[column])
        result.append(np.bincount(index[present], minlength=size).astype(np.float64))
    return result


def _add_counts(_, *items):
    total = None
    for item in items:
        total = list(item) if total is None else [a + b for a, b in zip(total, item)]
    return total


def _lgamma(x):
    return np.vectorize(math.lgamma, otypes=[np.float64])(x)


def family_score(counts, states, score="bdeu", ess=1.0):
    """Score of one family from its counts, laid out parents first (the
    first parent slowest) and the child last with `states` outcomes.

    bdeu: sum over parent configurations j of lgamma(a/q) - lgamma(a/q + N_j)
    plus sum over (j, k) of lgamma(a/(q r) + N_jk) - lgamma(a/(q r)), with
    a = ess, q parent configurations and r = states.
    bic: sum of N_jk log(N_jk / N_j) minus log(N) q (r - 1) / 2.
    """
    n = np.asarray(counts, dtype=np.float64).reshape(-1, states)
    q = n.shape[0]
    nj = n.sum(axis=1)
    if score == "bdeu":
        aj, ajk = ess / q, ess / (q * states)
        return float(np.sum(_lgamma(aj) - _lgamma(aj + nj)) + np.sum(_lgamma(ajk + n) - _lgamma(ajk)))
    if score == "bic":
        seen = n > 0
        ll = float(np.sum(n[seen] * np.log((n / np.where(nj > 0, nj, 1)[:, None])[seen])))
        total = float(nj.sum())
        return ll - 0.5 * math.log(total) * q * (states - 1) if total > 0 else 0.0
    raise _fail("score_structures", "Unknown score '%s'; use 'bdeu' or 'bic'" % score)


def score_structures(ddf, candidate_families, client=None, *, score="bdeu", ess=1.0, timeout=30):
    """Scores families (child, [parents]) of the frame's columns: counts per
    partition on the cluster, added, then the BDeu or BIC score of each
    family (see family_score). A column's states are the values seen in the
    data; a record missing a value of a family's column is left out of that
    family. Returns one float per family, in order."""
    from dask import delayed
    families = [(child, list(parents)) for child, parents in candidate_families]
    if score not in ("bdeu", "bic"):
        raise _fail("score_structures", "Unknown score '%s'; use 'bdeu' or 'bic'" % score)
    used = sorted({c for child, parents in families for c in [child] + parents}, key=list(ddf.columns).index)
    for child, parents in families:
        for column in [child] + parents:
            if column not in ddf.columns:
                raise _fail("score_structures", "The data has no column '%s'" % column)
        if child in parents:
            raise _fail("score_structures", "Column '%s' can't be its own parent" % child)
    with _connected(client, timeout) as client:
        uniques = _compute([ddf[c].dropna().unique() for c in used], client)
        states = {}
        for column, values in zip(used, uniques):
            values = list(values)
            states[column] = sorted(values, key=lambda v: (str(type(v)), v)) if values else [0]
        parts = [delayed(_family_counts, pure=False)(p, families, states) for p in ddf[used].to_delayed()]
        totals = _compute(_reduce(_add_counts, parts, None), client)
    return [family_score(t, len(states[child]), score, ess) for t, (child, _) in zip(totals, families)]


# ---- batch inference ---------------------------------------------------------

def _portable(net):
    """The network as text plus its exact tables (the text rounds them)."""
    ids = net.get_all_node_ids()
    return net.write_string(), {i: list(net.get_node_definition(i)) for i in ids}


def _rebuild(portable):
    from pyquarn import Network
    text, tables = portable
    net = Network()
    net.read_string(text)
    for node, table in tables.items():
        net.set_node_definition(node, table)
    return net


def _columns(net, targets):
    return ["%s=%s" % (t, o) for t in targets for o in net.get_outcome_ids(t)]


def _predict_partition(frame, portable, targets, columns):
    import pandas as pd
    net = _rebuild(portable)
    if hasattr(net, "query_batch"):
        out = pd.DataFrame(net.query_batch(frame, targets))
        if list(out.columns) == columns:
            out.index = frame.index
            return out
    rows = np.empty((len(frame), len(columns)))
    for r, record in enumerate(frame.itertuples(index=False)):
        net.clear_all_evidence()
        for node, value in zip(frame.columns, record):
            if not pd.isna(value):
                net.set_evidence(node, value if isinstance(value, str) else int(value))
        net.update_beliefs()
        rows[r] = np.concatenate([net.get_node_value(t) for t in targets])
    return pd.DataFrame(rows, index=frame.index, columns=columns)


def predict(net, ddf, targets, matching=None):
    """Posteriors of the target nodes for every record, the record's values
    being the evidence: a lazy Dask DataFrame with one column
    'target=outcome' per target outcome, partitioned as the input."""
    targets = [t if isinstance(t, str) else net.get_node_id(t) for t in targets]
    ids = set(net.get_all_node_ids())
    for t in targets:
        if t not in ids:
            raise _fail("predict", "Invalid target node: '%s'" % t)
    frame = _matched(net, ddf, matching, "predict")
    columns = _columns(net, targets)
    meta = {c: np.float64 for c in columns}
    return frame.map_partitions(_predict_partition, _portable(net), targets, columns, meta=meta)
