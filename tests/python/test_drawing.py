"""Pictures: the SVG is parsed back (nodes, arcs, layers, bars against the
reference posteriors), one picture is rendered by a real SVG renderer, and the
Graphviz text names the same arcs."""
import json
import os
import re
import shutil
import subprocess
import xml.etree.ElementTree as ET

import pytest

import pyquarn
from pyquarn import NodeType
from test_foreign_files import NETWORKS

SVG = "{http://www.w3.org/2000/svg}"


def load(name):
    net = pyquarn.Network()
    net.read_file(os.path.join(NETWORKS, "xvek", name + ".xvek"))
    return net


def parse(net):
    """Boxes by node id as (x, y, width, height), arcs as (parent, child), and
    the root element."""
    root = ET.fromstring(net._repr_svg_())
    boxes = {}
    for g in root.iter(SVG + "g"):
        if g.get("class") == "node":
            shape = g.find(SVG + "rect")
            if shape is None:  # a utility node's polygon
                pts = [tuple(map(float, p.split(","))) for p in g.find(SVG + "polygon").get("points").split()]
                xs, ys = [p[0] for p in pts], [p[1] for p in pts]
                box = (min(xs), min(ys), max(xs) - min(xs), max(ys) - min(ys))
            else:
                box = tuple(float(shape.get(k)) for k in ("x", "y", "width", "height"))
            boxes[g.find(SVG + "title").text] = box
    arcs = {(line.get("data-from"), line.get("data-to")) for line in root.iter(SVG + "line")}
    return boxes, arcs, root


def all_arcs(net):
    return {(p, c) for c in net.get_all_node_ids() for p in net.get_parent_ids(c)}


def test_layered_layout_puts_parents_above_children_without_overlap():
    net = load("alarm")
    boxes, arcs, root = parse(net)
    assert set(boxes) == set(net.get_all_node_ids())
    assert arcs == all_arcs(net)
    for parent, child in arcs:
        assert boxes[parent][1] + boxes[parent][3] < boxes[child][1], (parent, child)
    items = list(boxes.values())
    for i, (x, y, w, h) in enumerate(items):
        assert 0 <= x and x + w <= float(root.get("width")) and 0 <= y and y + h <= float(root.get("height"))
        for (x2, y2, w2, h2) in items[i + 1:]:
            assert x + w <= x2 or x2 + w2 <= x or y + h <= y2 or y2 + h2 <= y
    assert not any(g.get("class") == "belief" for g in root.iter(SVG + "g"))


def test_bars_show_the_posteriors_once_beliefs_are_valid():
    net = load("asia")
    with open(os.path.join(NETWORKS, "reference", "asia.json")) as f:
        sc = json.load(f)["scenarios"][1]
    for node, outcome in sc["evidence"].items():
        net.set_evidence(node, outcome)
    net.update_beliefs()
    _, _, root = parse(net)
    full = None
    for g in root.iter(SVG + "g"):
        if g.get("class") == "node":
            node = g.find(SVG + "title").text
            bars = [float(r.get("width")) for r in g.iter(SVG + "rect") if r.get("class") == "bar"]
            full = full or max(bars) / max(sc["marginals"][node])
            assert [b / full for b in bars] == pytest.approx(sc["marginals"][node], abs=1e-3), node


def test_stored_positions_are_kept_and_names_are_escaped():
    net = pyquarn.Network()
    for node, (x, y) in {"a": (0, 0), "b": (300, 0), "c": (150, 200)}.items():
        net.add_node(NodeType.CPT, node)
        net.set_node_position(node, x, y, 80, 40)
    net.add_node(NodeType.DECISION, "d")
    net.add_node(NodeType.UTILITY, "u")
    net.add_arc("a", "c")
    net.add_arc("d", "u")
    net.set_node_name("a", 'x < y & "z"')
    boxes, arcs, root = parse(net)
    centre = {k: (x + w / 2, y + h / 2) for k, (x, y, w, h) in boxes.items()}
    assert centre["b"][0] - centre["a"][0] == pytest.approx(2 * (centre["c"][0] - centre["a"][0]))
    assert centre["c"][1] - centre["a"][1] == pytest.approx(200)
    assert 'x < y & "z"' in "".join(root.itertext())
    assert arcs == {("a", "c"), ("d", "u")}


@pytest.mark.skipif(shutil.which("rsvg-convert") is None, reason="needs rsvg-convert (librsvg2-bin)")
def test_a_real_renderer_draws_the_picture(tmp_path):
    net = load("asia")
    net.update_beliefs()
    svg = tmp_path / "asia.svg"
    svg.write_text(net._repr_svg_())
    png = tmp_path / "asia.png"
    r = subprocess.run(["rsvg-convert", "-o", str(png), str(svg)], capture_output=True, text=True)
    assert r.returncode == 0 and r.stderr == "", r.stderr
    data = png.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    root = ET.fromstring(svg.read_text())
    assert (int.from_bytes(data[16:20], "big"), int.from_bytes(data[20:24], "big")) == \
        (int(root.get("width")), int(root.get("height")))


def test_dot_names_every_node_and_arc():
    net = load("child")
    dot = net.to_dot()
    assert dot.startswith('digraph "') and dot.rstrip().endswith("}")
    assert set(re.findall(r'^  "([^"]+)" -> "([^"]+)";$', dot, re.M)) == all_arcs(net)
    assert set(re.findall(r'^  "([^"]+)" \[label=', dot, re.M)) == set(net.get_all_node_ids())
