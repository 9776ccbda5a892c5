"""pyquarn.learning.DataSet: reading, writing and editing datasets, and the
way bad arguments are refused without changing the dataset."""
import copy
import math
import os

import pytest

from pyquarn.learning import DataSet
from conftest import OCCURED, quarn_error


def snapshot(ds):
    """Everything observable about a dataset, as plain data."""
    cols = []
    for v in range(ds.get_number_of_variables()):
        if ds.is_discrete(v):
            cells = ds.get_int_data(v)
        else:
            cells = ["missing" if ds.is_missing(v, r) else ds.get_float(v, r)
                     for r in range(ds.get_number_of_records())]
        cols.append((ds.get_variable_id(v), ds.is_discrete(v), ds.get_state_names(v), cells))
    return ds.get_number_of_records(), cols


@pytest.fixture
def sample(tmp_path):
    path = tmp_path / "sample.csv"
    path.write_text("id,colour,weight\n1,red,0.5\n2,*,1.25\n3,blue,*\n4,red,2\n")
    ds = DataSet()
    ds.read_file(str(path))
    return ds


def test_class_and_docstrings():
    assert "Reads dataset from file" in DataSet.read_file.__doc__
    assert "Writes dataset to file" in DataSet.write_file.__doc__
    assert DataSet().get_number_of_variables() == 0
    assert DataSet().get_number_of_records() == 0


def test_read_infers_kinds_states_and_missing(sample):
    assert sample.get_variable_ids() == ["id", "colour", "weight"]
    assert sample.get_number_of_records() == 4
    assert sample.is_discrete("id") and sample.get_int_data("id") == [1, 2, 3, 4]
    assert sample.get_state_names("id") == []
    assert sample.get_state_names(1) == ["blue", "red"]
    assert sample.get_int_data("colour") == [1, -1, 0, 1]
    assert sample.is_missing("colour", 1) and sample.has_missing_data("colour")
    assert not sample.is_discrete("weight")
    assert sample.get_float("weight", 1) == 1.25
    assert sample.is_missing("weight", 2) and math.isnan(sample.get_float("weight", 2))
    assert math.isnan(sample.get_missing_float("weight"))
    assert sample.get_missing_int("colour") == -1
    assert sample.find_variable("weight") == 2 and sample.find_variable("nope") == -1


def test_read_parameters(tmp_path):
    path = tmp_path / "d.txt"
    path.write_text("1;N/A;x\n2;3.5;n/a\n")
    ds = DataSet()
    ds.read_file(str(path), missing_value_token="n/a", missing_int=-7, missing_float=-1.0,
                 column_ids_present=False)
    assert ds.get_variable_ids() == ["Column1", "Column2", "Column3"]
    assert ds.get_int_data(0) == [1, 2]
    assert ds.get_missing_float(1) == -1.0 and ds.is_missing(1, 0) and ds.get_float(1, 0) == -1.0
    assert ds.get_state_names(2) == ["x"] and ds.is_missing(2, 1)


def test_write_and_read_back(sample, tmp_path):
    out = tmp_path / "out.txt"
    sample.write_file(str(out), separator=";", missing_value_token="?")
    assert out.read_text() == "id;colour;weight\n1;red;0.5\n2;?;1.25\n3;blue;?\n4;red;2\n"
    back = DataSet()
    back.read_file(str(out), missing_value_token="?")
    # The weight column of whole-number-free values stays continuous; 2 was
    # written as a whole number but the column already holds fractions.
    assert snapshot(back) == snapshot(sample)
    sample.write_file(str(out), column_ids_present=False, float_format="%.2f")
    assert out.read_text().splitlines()[0] == "1\tred\t0.50"


def test_failed_read_leaves_dataset_unchanged(sample, tmp_path):
    before = snapshot(sample)
    bad = tmp_path / "bad.csv"
    bad.write_text("a,b\n1,2\n3\n")
    with quarn_error(-103, "QUARN Error -103 in function DataSet.ReadFile. "
                           "Line 3: expected 2 columns of data but found 1"):
        sample.read_file(str(bad))
    assert snapshot(sample) == before
    missing = str(tmp_path / "none.csv")
    with quarn_error(-103, "QUARN Error -103 in function DataSet.ReadFile. Can't open data file: " + missing):
        sample.read_file(missing)
    with quarn_error(-4, contains="NUL"):
        sample.read_file(str(bad) + "\0x")
    with pytest.raises(TypeError):
        sample.read_file(str(bad), missing_int="x")
    assert snapshot(sample) == before


@pytest.mark.parametrize("kwargs, code, text", [
    ({"separator": ",,"}, -2, "single character"), ({"separator": ""}, -2, "single character"),
    ({"separator": '"'}, -2, "Invalid separator"), ({"float_format": "%s"}, -2, "Invalid float format: %s"),
    ({"path": "no/w.txt"}, -103, "QUARN Error -103 in function DataSet.WriteFile. Can't open data file: "),
])
def test_bad_write_arguments(sample, tmp_path, kwargs, code, text):
    out = str(tmp_path / kwargs.pop("path", "w.txt"))
    with quarn_error(code, contains=text):
        sample.write_file(out, **kwargs)
    assert not os.path.exists(out)


def test_building_a_dataset():
    ds = DataSet()
    assert ds.add_int_variable("a") == 0
    assert ds.add_float_variable("b", missing_float=-9.0) == 1
    assert ds.add_empty_record() == 0 and ds.add_empty_record() == 1
    assert ds.is_missing("a", 0) and ds.is_missing("b", 1)
    assert ds.get_float("b", 0) == -9.0
    ds.set_int("a", 0, 5)
    ds.set_float(1, 1, 2.5)
    assert ds.get_int(0, 0) == 5 and ds.get_float("b", 1) == 2.5
    ds.set_state_names("a", ["s0", "s1", "s2", "s3", "s4", "s5"])
    assert ds.get_state_names(0)[5] == "s5"
    ds.set_missing("a", 0)
    assert ds.is_missing("a", 0) and ds.get_int("a", 0) == -1
    ds.set_variable_id("b", "c")
    assert ds.get_variable_ids() == ["a", "c"]
    clone = copy.deepcopy(ds)
    ds.remove_record(0)
    ds.remove_variable("a")
    assert ds.get_variable_ids() == ["c"] and ds.get_number_of_records() == 1
    assert clone.get_variable_ids() == ["a", "c"] and clone.get_number_of_records() == 2
    assert copy.copy(clone).get_state_names("a") == clone.get_state_names("a")


@pytest.mark.parametrize("method, args, code, text", [
    ("get_int", (3, 0), -2, OCCURED + "Invalid dataset variable index: 3, the dataset has 3 variables"),
    ("set_int", ("nope", 0, 0), -3, OCCURED + "Invalid dataset variable id: 'nope'"),
    ("set_missing", ("id", 4), -2, OCCURED + "Invalid dataset record index: 4, the dataset has 4 records"),
    ("is_missing", (0, -1), -2, "Invalid dataset record index: -1"),
    ("set_int", ("weight", 0, 1), -51, "in function DataSet.SetInt. Variable 'weight' is continuous"),
    ("set_float", ("id", 0, 1.0), -51, "in function DataSet.SetFloat. Variable 'id' is discrete"),
    ("get_float", ("colour", 0), -51, "DataSet.GetFloat"),
    ("set_int", ("colour", 0, 2), -2, "is not a state index of variable 'colour', which has 2 states"),
    ("set_float", ("weight", 0, 1e300), -2, "single-precision"),
    ("set_state_names", ("colour", ["only"]), -2, "State names must be"),
    ("set_state_names", ("colour", ["x", "x"]), -2, "State names must be"),
    ("set_state_names", ("weight", ["x"]), -51, "DataSet.SetStateNames"),
    ("add_int_variable", ("id",), -32, "QUARN Error -32 in function DataSet.AddIntVariable. Duplicated variable id: 'id'"),
    ("add_float_variable", ("",), -2, "DataSet.AddFloatVariable. The variable id is empty"),
    ("add_int_variable", ("a\0b",), -4, "NUL"),
    ("set_variable_id", ("id", "colour"), -32, "DataSet.SetVariableId"),
    ("get_int", (1.5, 0), TypeError, None), ("set_int", ("id", 0, "three"), TypeError, None),
])
def test_bad_cell_arguments_leave_dataset_unchanged(sample, method, args, code, text):
    before = snapshot(sample)
    # Texts from the start of the message are exact, others a fragment of it.
    exact = text if text and text.startswith("QUARN") else None
    with pytest.raises(TypeError) if code is TypeError else quarn_error(code, exact, contains=text):
        getattr(sample, method)(*args)
    assert snapshot(sample) == before
