"""The command line run as users run it (python3 -m pyquarn in a subprocess),
checked against the shared reference posteriors and brute force, and UAI
evidence files set from Python."""
import itertools
import json
import os
import subprocess
import sys

import pytest

import pyquarn
from pyquarn import NodeType
from pyquarn.cli import largest_clique
from conftest import build_small
from describe_util import assert_refused, describe
from test_foreign_files import NETWORKS

XVEK = os.path.join(NETWORKS, "xvek")


def cli(*args):
    r = subprocess.run([sys.executable, "-m", "pyquarn", *args], capture_output=True, text=True)
    return r.returncode, r.stdout, r.stderr


def scenario(name, index):
    with open(os.path.join(NETWORKS, "reference", name + ".json")) as f:
        return json.load(f)["scenarios"][index]


def test_query_gives_the_reference_posteriors_in_json_and_as_a_table():
    sc = scenario("alarm", 2)
    args = [os.path.join(XVEK, "alarm.xvek"), "-e"] + ["%s=%s" % kv for kv in sc["evidence"].items()]
    code, out, err = cli("query", *args, "--json")
    assert (code, err) == (0, "")
    got = json.loads(out)
    assert got["evidence"] == sc["evidence"]
    for node, want in sc["marginals"].items():
        assert list(got["posteriors"][node].values()) == pytest.approx(want, abs=1e-6), node
    code, out, _ = cli("query", *args, "-t", "HR", "--target", "BP")
    rows = [line.split() for line in out.splitlines()[1:]]
    assert code == 0 and [r[0] for r in rows if len(r) == 3] == ["HR", "BP"]
    values = [float(r[-1]) for r in rows]
    assert values == pytest.approx(sc["marginals"]["HR"] + sc["marginals"]["BP"], abs=1e-6)


def test_a_network_converted_to_uai_answers_with_an_evidence_file(tmp_path):
    sc = scenario("child", 1)
    uai = str(tmp_path / "child.uai")
    assert cli("convert", os.path.join(XVEK, "child.xvek"), uai) == (0, "", "")
    original = pyquarn.Network()
    original.read_file(os.path.join(XVEK, "child.xvek"))
    ids = original.get_all_node_ids()
    pairs = [(ids.index(n), original.get_outcome_ids(n).index(o)) for n, o in sc["evidence"].items()]
    evid = tmp_path / "child.uai.evid"
    evid.write_text("%d %s\n" % (len(pairs), " ".join("%d %d" % p for p in pairs)))
    code, out, err = cli("query", uai, "--evidence-file", str(evid), "--json")
    assert (code, err) == (0, "")
    got = json.loads(out)["posteriors"]
    for i, node in enumerate(ids):
        assert list(got["v%d" % i].values()) == pytest.approx(sc["marginals"][node], abs=1e-6), node


def joint(net, assignment):
    p = 1.0
    for node in net.get_all_node_ids():
        index = 0
        for member in net.get_parent_ids(node) + [node]:
            index = index * net.get_outcome_count(member) + assignment[member]
        p *= net.get_node_definition(node)[index]
    return p


def test_mpe_is_the_most_probable_completion_found_by_enumeration():
    net = pyquarn.Network()
    net.read_file(os.path.join(XVEK, "asia.xvek"))
    ids = net.get_all_node_ids()
    best = max((dict(zip(ids, states)) for states in itertools.product(range(2), repeat=len(ids))
                if states[ids.index("xray")] == 0), key=lambda a: joint(net, a))
    code, out, _ = cli("mpe", os.path.join(XVEK, "asia.xvek"), "-e", "xray=yes", "--json")
    got = json.loads(out)
    assert code == 0
    assert got["explanation"] == {n: net.get_outcome_ids(n)[k] for n, k in best.items()}
    assert got["probability"] == pytest.approx(joint(net, best), rel=1e-9)


def test_info_counts_and_the_largest_clique():
    code, out, _ = cli("info", os.path.join(XVEK, "alarm.xvek"), "--json")
    info = json.loads(out)
    # The published size of the alarm network.
    assert code == 0 and (info["nodes"], info["arcs"], info["states"]) == (37, 46, 105)
    net = pyquarn.Network()
    cards = {"a": 2, "b": 3, "c": 2, "d": 4, "e": 2}
    for node, n in cards.items():
        net.add_node(NodeType.CPT, node)
        for k in range(2, n):
            net.add_outcome(node, "s%d" % k)
    for parent, child in [("a", "d"), ("b", "d"), ("c", "d"), ("d", "e")]:
        net.add_arc(parent, child)
    # Moralising joins a, b and c: the family of d is the largest clique.
    assert largest_clique(net) == (4, 2 * 3 * 2 * 4)


@pytest.mark.parametrize("args,fragment", [
    (["query", "missing.xvek"], "no such file"),
    (["query", "ASIA", "-e", "nobody=yes"], "unknown node 'nobody'"),
    (["query", "ASIA", "-e", "asia=maybe"], "no outcome 'maybe'"),
    (["mpe", "ASIA", "-e", "asia=yes", "asia=no"], "conflicting evidence"),
    (["query", "ASIA", "-e", "either=no", "lung=yes"], "QUARN Error"),
    (["query", "ASIA", "--algorithm", "guessing"], "unknown algorithm"),
    (["query", "ASIA", "-e", "asia"], "node=outcome"),
    (["query", "ASIA", "--evidence-file", "BROKEN"], "QUARN Error"),
    (["convert", "BROKEN", "out.xvek"], "QUARN Error"),
    (["convert", "ASIA", "out.unknown"], "Unknown File Format"),
    (["frobnicate"], "invalid choice"),
])
def test_failures_are_one_line_on_stderr_with_exit_code_two(args, fragment, tmp_path):
    broken = tmp_path / "broken.xvek"
    broken.write_text("<not a network")
    subst = {"ASIA": os.path.join(XVEK, "asia.xvek"), "BROKEN": str(broken), "out.xvek": str(tmp_path / "out.xvek"),
             "out.unknown": str(tmp_path / "out.unknown")}
    code, out, err = cli(*[subst.get(a, a) for a in args])
    assert code == 2 and out == ""
    assert err.count("\n") == 1 and err.startswith("pyquarn: error: ") and fragment in err, err


def test_uai_evidence_sets_what_the_api_sets_and_bad_files_change_nothing(tmp_path):
    by_file, by_api = pyquarn.Network(), pyquarn.Network()
    build_small(by_file)
    build_small(by_api)
    evid = tmp_path / "small.uai.evid"
    evid.write_text("2 1 2 2 0\n")  # B = b2, C = c0 (A keeps its evidence)
    by_file.read_uai_evidence(str(evid))
    by_api.set_evidence("B", "b2")
    by_api.set_evidence("C", "c0")
    assert describe(by_file) == describe(by_api)
    for text in ["1 9 0", "1 1 3", "2 1 0 1 1", "1 4 0", "x"]:
        evid.write_text(text)
        assert_refused(by_file, -100, by_file.read_uai_evidence, str(evid))
    assert_refused(by_file, -103, by_file.read_uai_evidence, str(tmp_path / "missing.uai.evid"))
    with pytest.raises(TypeError):
        by_file.read_uai_evidence(3)
