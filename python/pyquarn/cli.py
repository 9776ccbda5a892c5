"""The pyquarn command line: information about a network file, posteriors
and the most probable explanation under evidence, and conversion between
file formats. Every failure is one line on stderr and exit code 2."""
import argparse
import heapq
import json
import math
import os
import sys

import pyquarn

EXIT_ERROR = 2

_TYPE_NAMES = {int(v): k.lower() for k, v in pyquarn.NodeType.__members__.items()}
_NOT_CHANCE = (pyquarn.NodeType.DECISION, pyquarn.NodeType.UTILITY, pyquarn.NodeType.MAU)


class CliError(Exception):
    """A refusal to report in one line."""


class _Parser(argparse.ArgumentParser):
    def error(self, message):
        raise CliError(message)


def _load(path, fmt=0):
    if not os.path.isfile(path):
        raise CliError("cannot read '%s': no such file" % path)
    net = pyquarn.Network()
    net.read_file(path, fmt)
    return net


def _node(net, node_id):
    try:
        net.get_node(node_id)
    except pyquarn.QUARNException:
        raise CliError("unknown node '%s'" % node_id) from None
    return node_id


def _outcome(net, node_id, text):
    outcomes = net.get_outcome_ids(node_id)
    if text in outcomes:
        return text
    if text.isdigit() and int(text) < len(outcomes):
        return outcomes[int(text)]
    raise CliError("node '%s' has no outcome '%s' (outcomes: %s)" % (node_id, text, ", ".join(outcomes)))


def _set_evidence(net, items, evidence_file):
    """Sets node=outcome items (and an evidence file); returns {node: outcome}."""
    chosen = {}
    for item in items or []:
        node_id, sep, outcome = item.partition("=")
        if not sep or not node_id or not outcome:
            raise CliError("evidence '%s' is not of the form node=outcome" % item)
        node_id = _node(net, node_id.strip())
        outcome = _outcome(net, node_id, outcome.strip())
        if chosen.get(node_id, outcome) != outcome:
            raise CliError("conflicting evidence for node '%s': '%s' and '%s'" % (node_id, chosen[node_id], outcome))
        chosen[node_id] = outcome
    if evidence_file:
        if not os.path.isfile(evidence_file):
            raise CliError("cannot read '%s': no such file" % evidence_file)
        net.read_uai_evidence(evidence_file)
        for node_id in net.get_all_node_ids():
            if net.is_real_evidence(node_id):
                outcome = net.get_evidence_id(node_id)
                if chosen.get(node_id, outcome) != outcome:
                    raise CliError("conflicting evidence for node '%s': '%s' and '%s'"
                                   % (node_id, chosen[node_id], outcome))
                chosen[node_id] = outcome
    for node_id, outcome in chosen.items():
        net.set_evidence(node_id, outcome)
    return chosen


def _algorithm(name):
    members = {k.lower(): v for k, v in pyquarn.BayesianAlgorithmType.__members__.items()}
    try:
        return members[name.lower()]
    except KeyError:
        raise CliError("unknown algorithm '%s' (one of: %s)" % (name, ", ".join(members))) from None


def _states(net, h):
    """The node's outcome count; 0 for nodes without outcomes (utilities)."""
    if net.get_node_type(h) in (pyquarn.NodeType.UTILITY, pyquarn.NodeType.MAU):
        return 0
    try:
        return net.get_outcome_count(h)
    except pyquarn.QUARNException:
        return 0


def largest_clique(net):
    """Nodes and table entries of the largest clique that greedy elimination
    (smallest clique table first) makes of the moral graph."""
    cards = {h: max(1, _states(net, h)) for h in net.get_all_nodes()}
    adj = {h: set() for h in cards}
    for h in cards:
        family = [h] + net.get_parents(h)
        for a in family:
            adj[a].update(f for f in family if f != a)
    logs = {h: math.log(c) for h, c in cards.items()}

    def weight(v):
        return logs[v] + sum(logs[u] for u in adj[v])

    heap = [(weight(v), v) for v in adj]
    heapq.heapify(heap)
    best_nodes, best_log = 0, -1.0
    done = set()
    while heap:
        w, v = heapq.heappop(heap)
        if v in done or abs(w - weight(v)) > 1e-9:
            continue
        done.add(v)
        clique = adj[v] | {v}
        if w > best_log + 1e-12 or (abs(w - best_log) <= 1e-12 and len(clique) > best_nodes):
            best_nodes, best_log = len(clique), w
        neighbours = adj.pop(v)
        for u in neighbours:
            adj[u].discard(v)
            adj[u].update(x for x in neighbours if x != u)
        for u in neighbours:
            heapq.heappush(heap, (weight(u), u))
    return best_nodes, int(round(math.exp(best_log))) if best_nodes else 0


def _info(args):
    net = _load(args.file, args.format)
    handles = net.get_all_nodes()
    types, states, tables = {}, [], 0
    for h in handles:
        name = _TYPE_NAMES.get(int(net.get_node_type(h)), "other")
        types[name] = types.get(name, 0) + 1
        if _states(net, h):
            states.append(_states(net, h))
        try:
            tables += len(net.get_node_definition(h))
        except pyquarn.QUARNException:
            pass
    clique_nodes, clique_entries = largest_clique(net)
    info = {
        "file": args.file,
        "id": net.get_id(),
        "name": net.get_name(),
        "nodes": len(handles),
        "node_types": types,
        "arcs": sum(len(net.get_parents(h)) for h in handles),
        "states": sum(states),
        "states_per_node": [min(states), max(states)] if states else [0, 0],
        "table_entries": tables,
        "largest_clique": {"nodes": clique_nodes, "entries": clique_entries},
    }
    if args.json:
        return json.dumps(info, indent=2)
    rows = [
        ("network", (info["id"] or "(no id)") + (" (%s)" % info["name"] if info["name"] and info["name"] != info["id"] else "")),
        ("nodes", "%d (%s)" % (info["nodes"], ", ".join("%d %s" % (n, t) for t, n in sorted(types.items())))),
        ("arcs", str(info["arcs"])),
        ("states", "%d (%d to %d per node)" % (info["states"], *info["states_per_node"])),
        ("table entries", str(tables)),
        ("largest clique", "%d nodes, %d entries" % (clique_nodes, clique_entries)),
    ]
    return "\n".join("%-15s %s" % row for row in rows)


def _query(args):
    net = _load(args.file, args.format)
    if args.algorithm:
        net.set_bayesian_algorithm(_algorithm(args.algorithm))
    evidence = _set_evidence(net, args.evidence, args.evidence_file)
    targets = [_node(net, t) for t in args.target] if args.target else net.get_all_node_ids()
    if args.target:
        for t in targets:
            net.set_target(t, True)
    net.update_beliefs()
    posteriors = {}
    for node_id in targets:
        # Decision and utility nodes hold expected utilities, not posteriors.
        if net.get_node_type(node_id) in _NOT_CHANCE or not net.is_value_valid(node_id):
            continue
        outcomes = net.get_outcome_ids(node_id)
        value = net.get_node_value(node_id)
        if len(value) == len(outcomes):
            posteriors[node_id] = dict(zip(outcomes, value))
    if args.json:
        return json.dumps({"evidence": evidence, "posteriors": posteriors}, indent=2)
    width = max([4] + [len(n) for n in posteriors])
    owidth = max([7] + [len(o) for p in posteriors.values() for o in p])
    lines = ["%-*s  %-*s  %s" % (width, "node", owidth, "outcome", "probability")]
    for node_id, dist in posteriors.items():
        for k, (outcome, p) in enumerate(dist.items()):
            lines.append("%-*s  %-*s  %.6f" % (width, node_id if k == 0 else "", owidth, outcome, p))
    return "\n".join(lines)


def _mpe(args):
    net = _load(args.file, args.format)
    evidence = _set_evidence(net, args.evidence, args.evidence_file)
    r = net.most_probable_explanation()
    assignment = dict(zip(r.node_ids, r.outcome_ids))
    if args.json:
        return json.dumps({"evidence": evidence, "explanation": assignment, "probability": r.probability,
                           "log_probability": r.log_probability}, indent=2)
    width = max([4] + [len(n) for n in assignment])
    lines = ["%-*s  %s" % (width, "node", "outcome")]
    lines += ["%-*s  %s" % (width, n, o) for n, o in assignment.items()]
    lines.append("probability %.6g (log %.6f)" % (r.probability, r.log_probability))
    return "\n".join(lines)


def _convert(args):
    net = _load(args.input, args.from_format)
    net.write_file(args.output, args.to_format)
    return None


def _parser():
    p = _Parser(prog="python3 -m pyquarn", description="Bayesian network files from the command line.")
    p.add_argument("--version", action="version", version="pyquarn " + pyquarn.__version__)
    sub = p.add_subparsers(dest="command", metavar="{info,query,convert,mpe}", parser_class=_Parser)
    sub.required = True

    def network_file(cmd):
        cmd.add_argument("file", help="network file (format chosen by the extension)")
        cmd.add_argument("--format", type=int, default=0, help="file format number (0: by extension)")

    def evidence(cmd):
        cmd.add_argument("-e", "--evidence", nargs="+", action="extend", metavar="NODE=OUTCOME",
                         help="observed outcome (an id or an index)")
        cmd.add_argument("--evidence-file", metavar="FILE", help="UAI evidence file (.uai.evid)")
        cmd.add_argument("--json", action="store_true", help="print JSON")

    cmd = sub.add_parser("info", help="nodes, arcs, states, table sizes and the largest clique")
    network_file(cmd)
    cmd.add_argument("--json", action="store_true", help="print JSON")
    cmd.set_defaults(run=_info)

    cmd = sub.add_parser("query", help="posterior probabilities under evidence")
    network_file(cmd)
    evidence(cmd)
    cmd.add_argument("-t", "--target", nargs="+", action="extend", metavar="NODE",
                     help="nodes to report (default: all)")
    cmd.add_argument("--algorithm", help="belief updating algorithm, e.g. lauritzen, lbp, epis_sampling")
    cmd.set_defaults(run=_query)

    cmd = sub.add_parser("convert", help="write a network in another format")
    cmd.add_argument("input")
    cmd.add_argument("output")
    cmd.add_argument("--from", dest="from_format", type=int, default=0, help="input format number")
    cmd.add_argument("--to", dest="to_format", type=int, default=0, help="output format number")
    cmd.set_defaults(run=_convert)

    cmd = sub.add_parser("mpe", help="most probable explanation of the evidence")
    network_file(cmd)
    evidence(cmd)
    cmd.set_defaults(run=_mpe)
    return p


def main(argv=None):
    try:
        args = _parser().parse_args(argv)
        text = args.run(args)
        if text is not None:
            print(text)
        return 0
    except SystemExit as e:  # --help and --version
        return e.code if isinstance(e.code, int) else 0
    except BrokenPipeError:
        return 0
    except KeyboardInterrupt:
        print("pyquarn: interrupted", file=sys.stderr)
        return EXIT_ERROR
    except Exception as e:  # every failure is one line, never a traceback
        # An engine error carries the logged messages on lines of their own.
        lines = [" ".join(line.split()) for line in str(e).splitlines() if line.strip()] or [type(e).__name__]
        message = " ".join(lines[:1] + ["; ".join(lines[1:])]).strip()
        print("pyquarn: error: %s" % message, file=sys.stderr)
        return EXIT_ERROR
