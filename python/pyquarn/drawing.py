"""Pictures of a network: SVG drawn here (no Graphviz needed) and Graphviz
text for those who have it.

Nodes stand at their stored positions; when no positions are stored (every
node at the same place) they are laid out in layers, each node one layer
below its deepest parent. When a node's beliefs are valid its box holds a bar
chart of the posterior."""
import itertools
from xml.sax.saxutils import escape, quoteattr

import pyquarn

_CHANCE = {pyquarn.NodeType.CPT, pyquarn.NodeType.TRUTH_TABLE, pyquarn.NodeType.NOISY_MAX,
           pyquarn.NodeType.DEMORGAN}
_DECISION = pyquarn.NodeType.DECISION
_UTILITY = {pyquarn.NodeType.UTILITY, pyquarn.NodeType.MAU}

_CHAR = 6.2          # average advance of an 11 px sans-serif character
_ROW = 14            # height of one chart row
_BAR = 60            # width of a full bar
_LABEL_CHARS = 14    # outcome labels are cut to this length
_BAR_COLOR = "#3a6ea5"
_GAP_X, _GAP_Y, _MARGIN = 24, 48, 12

_drawings = itertools.count(1)


def _color(value, default):
    """The stored colour (red in the lowest byte) as #rrggbb."""
    if value is None or value < 0:
        return default
    return "#%02x%02x%02x" % (value & 255, (value >> 8) & 255, (value >> 16) & 255)


def _cut(text, n):
    return text if len(text) <= n else text[:n - 1] + "\u2026"


class _Node:
    __slots__ = ("handle", "id", "name", "kind", "outcomes", "beliefs", "parents", "w", "h", "x", "y",
                 "stored", "fill", "stroke", "text", "border")


def _collect(net):
    nodes = []
    for h in net.get_all_nodes():
        n = _Node()
        n.handle = h
        n.id = net.get_node_id(h)
        n.name = net.get_node_name(n.id) or n.id
        t = net.get_node_type(h)
        n.kind = ("chance" if t in _CHANCE else "decision" if t == _DECISION
                  else "utility" if t in _UTILITY else "other")
        n.outcomes = net.get_outcome_ids(n.id) if n.kind in ("chance", "decision") else []
        n.beliefs = None
        if n.kind == "chance" and net.is_value_valid(h):
            value = net.get_node_value(h)
            if len(value) == len(n.outcomes):
                n.beliefs = value
        n.parents = net.get_parents(h)
        x, y, w, hh = net.get_node_position(h)
        n.stored = (x + w / 2.0, y + hh / 2.0, max(w, 1), max(hh, 1))
        n.fill = _color(net.get_node_bg_color(h), "#e5f6ff")
        n.stroke = _color(net.get_node_border_color(h), "#000080")
        n.text = _color(net.get_node_text_color(h), "#000000")
        n.border = max(1, net.get_node_border_width(h))
        title_w = len(n.name) * _CHAR + 16
        if n.beliefs is not None:
            label_w = max(len(_cut(o, _LABEL_CHARS)) for o in n.outcomes) * _CHAR * 1.2
            n.w = max(title_w, label_w + _BAR + 60)
            n.h = 22 + _ROW * len(n.outcomes) + 4
        else:
            n.w = max(title_w, n.stored[2])
            n.h = max(30, n.stored[3])
        nodes.append(n)
    return nodes


def _place_stored(nodes):
    xs = {n.stored[0] for n in nodes}
    ys = {n.stored[1] for n in nodes}
    if len(nodes) > 1 and len(xs) == 1 and len(ys) == 1:
        return False
    # Boxes grown by charts push the stored places apart in proportion.
    scale = max([1.0] + [max(n.w / n.stored[2], n.h / n.stored[3]) for n in nodes if n.beliefs is not None])
    for n in nodes:
        n.x, n.y = n.stored[0] * scale, n.stored[1] * scale
    return True


def _place_layers(nodes):
    by_handle = {n.handle: n for n in nodes}
    depth = {}
    for n in nodes:  # iterative longest path from the roots
        stack = [n]
        while stack:
            v = stack[-1]
            if v.handle in depth:
                stack.pop()
                continue
            missing = [by_handle[p] for p in v.parents if p not in depth]
            if missing:
                stack.extend(missing)
            else:
                depth[v.handle] = 1 + max((depth[p] for p in v.parents), default=-1)
                stack.pop()
    children = {n.handle: [] for n in nodes}
    for n in nodes:
        for p in n.parents:
            children[p].append(n.handle)
    # Each node moves down to just above its nearest child, so that arcs
    # from roots stay short.
    for n in sorted(nodes, key=lambda v: -depth[v.handle]):
        if children[n.handle]:
            depth[n.handle] = min(depth[c] for c in children[n.handle]) - 1
    layers = [[] for _ in range(1 + max(depth.values(), default=0))]
    for n in nodes:
        layers[depth[n.handle]].append(n)
    order = {}

    def arrange(layer):
        x = 0.0
        for n in layer:
            order[n.handle] = x + n.w / 2
            x += n.w + _GAP_X

    for layer in layers:
        arrange(layer)
    # Barycentre sweeps, down then up, to untangle arcs.
    for sweep in range(4):
        seq = layers[1:] if sweep % 2 == 0 else reversed(layers[:-1])
        for layer in seq:
            def key(n):
                near = n.parents if sweep % 2 == 0 else children[n.handle]
                return sum(order[p] for p in near) / len(near) if near else order[n.handle]
            layer.sort(key=key)
            arrange(layer)
    widest = max(sum(n.w for n in layer) + _GAP_X * (len(layer) - 1) for layer in layers)
    y = 0.0
    for layer in layers:
        width = sum(n.w for n in layer) + _GAP_X * (len(layer) - 1)
        x = (widest - width) / 2
        tall = max(n.h for n in layer)
        for n in layer:
            n.x, n.y = x + n.w / 2, y + tall / 2
            x += n.w + _GAP_X
        y += tall + _GAP_Y


def _border_point(n, tx, ty):
    """Where the segment from n's centre towards (tx, ty) leaves n's box."""
    dx, dy = tx - n.x, ty - n.y
    if dx == 0 and dy == 0:
        return n.x, n.y
    t = min(n.w / 2 / abs(dx) if dx else float("inf"), n.h / 2 / abs(dy) if dy else float("inf"))
    return n.x + dx * t, n.y + dy * t


def _shape(n):
    x0, y0 = n.x - n.w / 2, n.y - n.h / 2
    style = 'fill="%s" stroke="%s" stroke-width="%d"' % (n.fill, n.stroke, n.border)
    if n.kind == "utility":
        c = min(n.h / 2, 12)
        pts = [(x0 + c, y0), (x0 + n.w - c, y0), (x0 + n.w, n.y), (x0 + n.w - c, y0 + n.h), (x0 + c, y0 + n.h),
               (x0, n.y)]
        return '<polygon points="%s" %s/>' % (" ".join("%.1f,%.1f" % p for p in pts), style)
    rx = 0 if n.kind == "decision" else 8
    return '<rect x="%.1f" y="%.1f" width="%.1f" height="%.1f" rx="%d" %s/>' % (x0, y0, n.w, n.h, rx, style)


def _node_svg(n):
    out = ['<g class="node" id=%s>' % quoteattr("node-" + n.id), "<title>%s</title>" % escape(n.id), _shape(n)]
    x0, y0 = n.x - n.w / 2, n.y - n.h / 2
    if n.beliefs is None:
        out.append('<text x="%.1f" y="%.1f" text-anchor="middle" dominant-baseline="central" fill="%s">%s</text>'
                   % (n.x, n.y, n.text, escape(n.name)))
    else:
        out.append('<text x="%.1f" y="%.1f" text-anchor="middle" font-weight="bold" fill="%s">%s</text>'
                   % (n.x, y0 + 15, n.text, escape(n.name)))
        bar_x = x0 + n.w - _BAR - 44
        for k, (outcome, p) in enumerate(zip(n.outcomes, n.beliefs)):
            row = y0 + 22 + k * _ROW
            out.append('<g class="belief"><title>%s %.6g</title>' % (escape(outcome), p))
            out.append('<text x="%.1f" y="%.1f" fill="%s">%s</text>'
                       % (x0 + 6, row + 10, n.text, escape(_cut(outcome, _LABEL_CHARS))))
            out.append('<rect class="bar" x="%.1f" y="%.1f" width="%.2f" height="%d" fill="%s"/>'
                       % (bar_x, row + 2, max(0.0, min(1.0, p)) * _BAR, _ROW - 4, _BAR_COLOR))
            out.append('<text x="%.1f" y="%.1f" text-anchor="end" fill="%s">%.1f%%</text></g>'
                       % (x0 + n.w - 4, row + 10, n.text, 100 * p))
    out.append("</g>")
    return "\n".join(out)


def to_svg(net):
    """The network as an SVG document."""
    nodes = _collect(net)
    if nodes and not _place_stored(nodes):
        _place_layers(nodes)
    left = min((n.x - n.w / 2 for n in nodes), default=0)
    top = min((n.y - n.h / 2 for n in nodes), default=0)
    for n in nodes:
        n.x += _MARGIN - left
        n.y += _MARGIN - top
    width = max((n.x + n.w / 2 for n in nodes), default=0) + _MARGIN
    height = max((n.y + n.h / 2 for n in nodes), default=0) + _MARGIN
    marker = "pyquarn-arrow-%d" % next(_drawings)
    out = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" viewBox="0 0 %d %d" '
           'font-family="sans-serif" font-size="11">' % (width, height, width, height),
           "<title>%s</title>" % escape(net.get_name() or net.get_id()),
           '<defs><marker id="%s" viewBox="0 0 10 10" refX="10" refY="5" markerWidth="7" markerHeight="7" '
           'orient="auto"><path d="M0,0 L10,5 L0,10 z" fill="#404040"/></marker></defs>' % marker]
    by_handle = {n.handle: n for n in nodes}
    for child in nodes:
        for h in child.parents:
            parent = by_handle[h]
            x1, y1 = _border_point(parent, child.x, child.y)
            x2, y2 = _border_point(child, parent.x, parent.y)
            out.append('<line class="arc" data-from=%s data-to=%s x1="%.1f" y1="%.1f" x2="%.1f" y2="%.1f" '
                       'stroke="#404040" marker-end="url(#%s)"/>'
                       % (quoteattr(parent.id), quoteattr(child.id), x1, y1, x2, y2, marker))
    out.extend(_node_svg(n) for n in nodes)
    out.append("</svg>")
    return "\n".join(out)


def _dot_quote(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n") + '"'


def to_dot(net):
    """The network as Graphviz text (stored positions become pinned places)."""
    nodes = _collect(net)
    stored = _place_stored(nodes) if nodes else False
    shapes = {"chance": "ellipse", "decision": "box", "utility": "hexagon", "other": "ellipse"}
    out = ["digraph %s {" % _dot_quote(net.get_id()), "  node [fontname=\"sans-serif\" style=filled];"]
    for n in nodes:
        label = n.name
        if n.beliefs is not None:
            label += "".join("\n%s %.4f" % (o, p) for o, p in zip(n.outcomes, n.beliefs))
        attrs = ["label=%s" % _dot_quote(label), "shape=%s" % shapes[n.kind], "fillcolor=%s" % _dot_quote(n.fill)]
        if stored:
            # Graphviz places in points, y upwards.
            attrs.append('pos="%g,%g!"' % (n.stored[0], -n.stored[1]))
        out.append("  %s [%s];" % (_dot_quote(n.id), " ".join(attrs)))
    by_handle = {n.handle: n for n in nodes}
    for n in nodes:
        for p in n.parents:
            out.append("  %s -> %s;" % (_dot_quote(by_handle[p].id), _dot_quote(n.id)))
    out.append("}")
    return "\n".join(out) + "\n"
