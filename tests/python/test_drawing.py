"""Pictures: the SVG is parsed back (nodes, arcs, layers, bars against the
reference posteriors) and rendered once by a real SVG renderer; the Graphviz
text names the same arcs."""
import re
import shutil
import subprocess
import xml.etree.ElementTree as ET

import pytest

import pyquarn
from pyquarn import NodeType
from conftest import reference_scenarios, shared_network

SVG = "{http://www.w3.org/2000/svg}"


def parse(net):
    """Boxes by node id as (x, y, width, height), arcs as (parent, child), and
    the root element."""
    root = ET.fromstring(net._repr_svg_())
    boxes = {}
    for g in root.iter(SVG + "g"):
        if g.get("class") == "node":
            shape = g.find(SVG + "rect")
            boxes[g.find(SVG + "title").text] = tuple(float(shape.get(k)) for k in ("x", "y", "width", "height"))
    arcs = {(line.get("data-from"), line.get("data-to")) for line in root.iter(SVG + "line")}
    return boxes, arcs, root


def test_layered_layout_puts_parents_above_children_without_overlap():
    net = shared_network("alarm")
    boxes, arcs, root = parse(net)
    assert set(boxes) == set(net.get_all_node_ids())
    assert arcs == {(p, c) for c in boxes for p in net.get_parent_ids(c)}
    for parent, child in arcs:
        assert boxes[parent][1] + boxes[parent][3] < boxes[child][1], (parent, child)
    items = list(boxes.values())
    for i, (x, y, w, h) in enumerate(items):
        assert 0 <= x and x + w <= float(root.get("width")) and 0 <= y and y + h <= float(root.get("height"))
        for (x2, y2, w2, h2) in items[i + 1:]:
            assert x + w <= x2 or x2 + w2 <= x or y + h <= y2 or y2 + h2 <= y
    assert not any(g.get("class") == "belief" for g in root.iter(SVG + "g"))
    dot = net.to_dot()
    assert set(re.findall(r'^  "([^"]+)" -> "([^"]+)";$', dot, re.M)) == arcs
    assert set(re.findall(r'^  "([^"]+)" \[label=', dot, re.M)) == set(boxes)


def test_bars_show_the_posteriors_and_a_real_renderer_draws_them(tmp_path):
    net = shared_network("asia")
    sc = reference_scenarios("asia")[1]
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
    if shutil.which("rsvg-convert") is None:
        pytest.skip("needs rsvg-convert (librsvg2-bin)")
    svg, png = tmp_path / "asia.svg", tmp_path / "asia.png"
    svg.write_text(net._repr_svg_())
    r = subprocess.run(["rsvg-convert", "-o", str(png), str(svg)], capture_output=True, text=True)
    data = png.read_bytes()
    assert r.returncode == 0 and r.stderr == "" and data[:8] == b"\x89PNG\r\n\x1a\n", r.stderr
    size = (int.from_bytes(data[16:20], "big"), int.from_bytes(data[20:24], "big"))
    assert size == (int(root.get("width")), int(root.get("height")))


def test_stored_positions_are_kept_and_names_are_escaped():
    net = pyquarn.Network()
    for node, (x, y) in {"a": (0, 0), "b": (300, 0), "c": (150, 200)}.items():
        net.add_node(NodeType.CPT, node)
        net.set_node_position(node, x, y, 80, 40)
    net.add_node(NodeType.DECISION, "d")
    net.add_arc("a", "c")
    net.add_arc("d", "c")
    net.set_node_name("a", 'x < y & "z"')
    boxes, arcs, root = parse(net)
    centre = {k: (x + w / 2, y + h / 2) for k, (x, y, w, h) in boxes.items()}
    assert centre["b"][0] - centre["a"][0] == pytest.approx(2 * (centre["c"][0] - centre["a"][0]))
    assert centre["c"][1] - centre["a"][1] == pytest.approx(200)
    assert 'x < y & "z"' in "".join(root.itertext())
    assert arcs == {("a", "c"), ("d", "c")}


