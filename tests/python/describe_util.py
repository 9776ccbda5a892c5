"""A plain-data picture of a network, for checking that a refused call
changed nothing: compare describe(net) before and after. It adds submodels,
presentation, properties, diagnostic attributes, costs and cases to the
picture of nodes, outcomes, definitions and evidence drawn by conftest."""

import pyquarn
from conftest import describe as describe_core


def _get(call, *args):
    try:
        return call(*args)
    except pyquarn.QUARNException as e:
        return ("raises", e.error_code)


def props(items):
    return [(p.name, p.value) for p in items]


def docs(items):
    return [(d.title, d.path) for d in items]


def evidence_tuple(info):
    if isinstance(info, tuple):
        return info
    return (int(info.type), info.outcome, info.value, list(info.virtual_evidence), info.slice)


def _outcomes(net, node_id):
    ids = _get(net.get_outcome_ids, node_id)
    if isinstance(ids, tuple) or not ids:
        return ids
    per_outcome = []
    for i in range(len(ids)):
        per_outcome.append((
            ids[i],
            _get(net.get_outcome_label, node_id, i),
            _get(net.get_outcome_description, node_id, i),
            _get(net.get_outcome_fix, node_id, i),
            _get(net.is_fault_outcome, node_id, i),
            docs(_get(net.get_outcome_documentation, node_id, i)),
        ))
    return per_outcome, _get(net.get_default_outcome, node_id)


def _node(net, h):
    node_id = net.get_node_id(h)
    return {
        "outcomes": _outcomes(net, node_id),
        "position": net.get_node_position(h),
        "colors": (net.get_node_bg_color(h), net.get_node_text_color(h), net.get_node_border_color(h)),
        "border": net.get_node_border_width(h),
        "chart": (net.is_node_chart_enabled(h), net.get_node_chart_size(h)),
        "properties": props(net.get_node_user_properties(h)),
        "documentation": docs(net.get_node_documentation(h)),
        "diag": (int(net.get_node_diag_type(h)), net.get_node_question(node_id), net.is_ranked(h),
                 net.is_mandatory(h)),
        "cost": (net.get_cost_parents(h), net.get_cost_children(h), net.get_node_cost(h)),
        "submodel": net.get_submodel_of_node(h),
    }


def _submodels(net):
    out = []
    h = net.get_first_submodel()
    while h >= 0:
        sub_id = net.get_submodel_id(h)
        out.append((h, sub_id, net.get_submodel_name(sub_id), net.get_submodel_description(sub_id),
                    net.get_submodel_of_submodel(h), net.get_submodel_position(h)))
        h = net.get_next_submodel(h)
    return out


def _cases(net):
    out = []
    for i, name in enumerate(net.get_all_case_names()):
        items = []
        for h in net.get_case_evidence_nodes(i):
            items.append((h, evidence_tuple(_get(net.get_case_evidence, i, h)),
                          [evidence_tuple(e) for e in net.get_case_temporal_evidence(i, h)]))
        out.append((name, net.get_case_description(name), net.get_case_category(name),
                    net.get_case_created(i), net.get_case_last_modified(i), net.get_case_evidence_count(i),
                    items, net.get_case_targets(i)))
    return out


def _temporal(net):
    slices = range(net.get_slice_count())
    out = [net.get_slice_count(), net.get_temporal_plate_position(), net.get_temporal_plate_widths()]
    for h in net.get_all_nodes():
        orders = net.get_temporal_orders(h)
        out.append((int(net.get_node_temporal_type(h)), orders,
                    [([(p.parent_handle, p.order) for p in net.get_temporal_parents(h, k)],
                      net.get_node_temporal_definition(h, k),
                      _get(net.get_noisy_temporal_parent_strengths, h, k)) for k in orders],
                    [(_get(net.get_temporal_evidence, h, s), _get(net.get_temporal_virtual_evidence, h, s))
                     for s in slices]))
    return out


def describe(net):
    return {
        "temporal": _temporal(net),
        "core": describe_core(net),
        "nodes": {h: _node(net, h) for h in net.get_all_nodes()},
        "submodels": _submodels(net),
        "properties": props(net.get_user_properties()),
        "settings": (int(net.get_influence_diagram_algorithm()), net.is_noisy_decomposition_enabled(),
                     net.get_noisy_decomposition_limit()),
        "cases": (_cases(net), net.is_case_sync_enabled()),
    }


def assert_refused(net, code, call, *args, text=None):
    """call(*args) raises QUARNException with the code (and the exact text
    when given) and leaves the network as it was."""
    import pytest

    before = describe(net)
    with pytest.raises(pyquarn.QUARNException) as info:
        call(*args)
    assert info.value.error_code == code, str(info.value)
    if text is not None:
        assert str(info.value) == text
    assert describe(net) == before
    return str(info.value)
