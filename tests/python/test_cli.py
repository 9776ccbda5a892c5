"""The command line run as users run it (python3 -m pyquarn in a subprocess),
checked against the shared reference posteriors and brute force."""
import itertools
import json
import os
import subprocess
import sys

import pytest

from conftest import SHARED, reference_scenarios, shared_network
from describe_util import assert_refused

XVEK = os.path.join(SHARED, "networks", "xvek")


def cli(*args):
    r = subprocess.run([sys.executable, "-m", "pyquarn", *args], capture_output=True, text=True)
    return r.returncode, r.stdout, r.stderr


def test_query_gives_the_reference_posteriors_in_json_and_as_a_table():
    sc = reference_scenarios("alarm")[2]
    args = [os.path.join(XVEK, "alarm.xvek"), "-e"] + ["%s=%s" % kv for kv in sc["evidence"].items()]
    code, out, err = cli("query", *args, "--json")
    assert (code, err) == (0, "")
    got = json.loads(out)
    assert got["evidence"] == sc["evidence"]
    for node, want in sc["marginals"].items():
        assert list(got["posteriors"][node].values()) == pytest.approx(want, abs=1e-6), node
    rows = [line.split() for line in cli("query", *args, "-t", "HR", "--target", "BP")[1].splitlines()[1:]]
    assert [r[0] for r in rows if len(r) == 3] == ["HR", "BP"]
    assert [float(r[-1]) for r in rows] == pytest.approx(sc["marginals"]["HR"] + sc["marginals"]["BP"], abs=1e-6)


def test_a_network_converted_to_uai_answers_with_an_evidence_file(tmp_path):
    sc = reference_scenarios("child")[1]
    uai = str(tmp_path / "child.uai")
    assert cli("convert", os.path.join(XVEK, "child.xvek"), uai) == (0, "", "")
    original = shared_network("child")
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
    net = shared_network("asia")
    ids = net.get_all_node_ids()
    best = max((dict(zip(ids, states)) for states in itertools.product(range(2), repeat=len(ids))
                if states[ids.index("xray")] == 0), key=lambda a: joint(net, a))
    code, out, _ = cli("mpe", os.path.join(XVEK, "asia.xvek"), "-e", "xray=yes", "--json")
    got = json.loads(out)
    assert code == 0
    assert got["explanation"] == {n: net.get_outcome_ids(n)[k] for n, k in best.items()}
    assert got["probability"] == pytest.approx(joint(net, best), rel=1e-9)


def test_info_counts_and_the_largest_clique():
    code, out, _ = cli("info", os.path.join(XVEK, "asia.xvek"), "--json")
    info = json.loads(out)
    # asia's moral graph has tree width 2: its largest cliques are three binary nodes.
    assert code == 0 and (info["nodes"], info["arcs"], info["states"]) == (8, 8, 16)
    assert info["largest_clique"] == {"nodes": 3, "entries": 8}


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


def test_bad_uai_evidence_files_change_nothing(small, tmp_path):
    net, _ = small
    evid = tmp_path / "small.uai.evid"
    evid.write_text("2 1 2 4 0")  # U has no states
    assert_refused(net, -100, net.read_uai_evidence, str(evid))
    assert_refused(net, -103, net.read_uai_evidence, str(tmp_path / "missing.uai.evid"))
    with pytest.raises(TypeError):
        net.read_uai_evidence(3)
