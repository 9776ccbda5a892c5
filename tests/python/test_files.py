"""Reading and writing networks: read_file, read_string, write_file and
write_string over the XML network format."""
import pyquarn
from pyquarn import NodeType
from conftest import quarn_error, shared_xvek
from describe_util import describe


def build_rich(net):
    """Texts that need escaping and the kinds of data the file keeps (the
    engine's tests write every kind of node), nodes created parents first so
    that handles survive the round trip."""
    net.set_id("rich")
    net.set_name("A rich <network> & more")
    net.set_description("line one\nline two\twith a tab \\ and a backslash")
    a = net.add_node(NodeType.CPT, "A")
    net.add_outcome(a, "max")
    net.set_node_definition(a, [0.2, 0.3, 0.5])
    b = net.add_node(NodeType.TRUTH_TABLE, "B")
    net.add_arc(a, b)
    d = net.add_node(NodeType.DECISION, "D")
    u = net.add_node(NodeType.UTILITY, "U")
    net.add_arc(d, u)
    net.set_node_definition(u, [1.5, -2])
    net.set_point_values(a, [1.0, 2.5, 4.0])
    net.set_node_name(a, "Node A")
    net.set_node_description(b, "deterministic\nchild")
    net.set_outcome_label(a, 0, "Low")
    net.set_outcome_fix(b, 0, "repair it")
    net.set_target(b, True)
    net.set_node_position(a, 10, 20, 81, 31)
    net.set_node_bg_color(a, 0x123456)
    net.set_user_properties([pyquarn.UserProperty("owner", "me & you")])
    net.set_node_user_properties(a, [pyquarn.UserProperty("unit", "kg\nper m")])
    net.set_submodel_of_node(d, net.add_submodel(net.get_main_submodel(), "Part"))
    net.set_sample_count(5000)
    net.set_case_targets(net.add_case("first"), ["B"])
    return net


def test_docstrings():
    assert pyquarn.Network.read_file.__doc__.strip().endswith("Reads network from a file")
    assert pyquarn.Network.read_string.__doc__.strip().endswith("Reads network from a string")
    assert pyquarn.Network.write_file.__doc__.strip().endswith("Writes network to a file")
    assert pyquarn.Network.write_string.__doc__.strip().endswith("Serializes network to a string")


def test_rich_network_round_trips_through_files_and_strings(net, tmp_path):
    build_rich(net)
    path = str(tmp_path / "rich.xvek")
    net.write_file(path)
    back = pyquarn.Network()
    back.read_file(path)
    assert describe(back) == describe(net)
    text = net.write_string()
    with open(path, encoding="utf-8") as f:
        assert f.read() == text
    other = pyquarn.Network()
    other.read_string(text)
    assert describe(other) == describe(net)
    assert other.write_string() == text
    assert "<position>10 20 91 51</position>" in text
    assert 'color="563412"' in text  # red and blue swapped


def test_failed_reads_raise_with_the_log_and_change_nothing(small, tmp_path):
    net, _ = small
    before = describe(net)
    missing = str(tmp_path / "missing.xvek")
    with quarn_error(-100) as info:
        net.read_file(missing)
    assert str(info.value) == ("QUARN Error -100 in function Network.ReadFile. \n"
                               "Error at 0, 0 while loading %s: Can't open file %s" % (missing, missing))
    assert describe(net) == before

    with quarn_error(-103, contains="Invalid version number '2.0', expected 1.0") as info:
        net.read_string('<quarn version="2.0" id="x"/>')
    assert "Network.ReadString" in str(info.value)
    assert "Can't open file" not in str(info.value)  # the logger was cleared first
    assert describe(net) == before

    bad = str(tmp_path / "bad.xvek")
    with open(bad, "w") as f:
        f.write('<quarn version="1.0" id="x">\n<nodes>\n<cpt id="A"><state id="a"/><state id="a"/>')
    with quarn_error(-103) as info:
        net.read_file(bad)
    assert str(info.value).endswith("Error at 3, 27 while loading %s: Duplicate state identifier: 'a'" % bad)
    assert describe(net) == before


def test_write_file_reports_unwritable_paths(net):
    net.add_node(NodeType.CPT, "A")
    with quarn_error(-101, contains="Can't open file for writing"):
        net.write_file("/no/such/dir/net.xvek")


def test_reading_replaces_the_network(small):
    net, _ = small
    net.read_file(shared_xvek("cancer"))
    assert net.get_all_node_ids() == ["Pollution", "Smoker", "Cancer", "Xray", "Dyspnoea"]
    assert net.get_case_count() == 0
    assert net.get_user_properties() == []
