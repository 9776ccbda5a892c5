// pyquarn.learning.DataSet: reading, writing and editing datasets.
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <variant>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "fileName.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

// A column named by index or by identifier.
using VarRef = std::variant<int, std::string>;

constexpr const char* kOccuredText = "QUARN Error Occured. ";

int ValidateVariable(const VEK_dataset& data, const VarRef& ref) {
    if (const int* index = std::get_if<int>(&ref)) {
        if (!data.IsValidVariable(*index)) {
            throw quarn_exception(VEK_OUT_OF_RANGE, std::string(kOccuredText) + "Invalid dataset variable index: " +
                                                        std::to_string(*index) + ", the dataset has " +
                                                        std::to_string(data.GetNumberOfVariables()) + " variables");
        }
        return *index;
    }
    const std::string& id = std::get<std::string>(ref);
    int index = id.find('\0') == std::string::npos ? data.FindVariable(id.c_str()) : VEK_NO_ITEM;
    if (index < 0) {
        throw quarn_exception(VEK_NO_ITEM, std::string(kOccuredText) + "Invalid dataset variable id: '" + id + "'");
    }
    return index;
}

void ValidateRecord(const VEK_dataset& data, int record) {
    if (!data.IsValidRecord(record)) {
        throw quarn_exception(VEK_OUT_OF_RANGE, std::string(kOccuredText) + "Invalid dataset record index: " +
                                                    std::to_string(record) + ", the dataset has " +
                                                    std::to_string(data.GetNumberOfRecords()) + " records");
    }
}

void RequireKind(const VEK_dataset& data, int var, bool discrete, const char* function) {
    if (data.IsDiscrete(var) != discrete) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       "Variable '" + std::string(data.GetId(var)) + "' is " +
                                           (discrete ? "continuous" : "discrete") + ", use " +
                                           (discrete ? "the float accessors" : "the int accessors"));
    }
}

void WrpReadFile(VEK_dataset* data, const std::string& path, const std::string& token, int missingInt,
                 double missingFloat, bool columnIdsPresent) {
    Deref(data);
    ValidateText(path, "DataSet.ReadFile", "File name");
    VEK_datasetParseParams params;
    params.missingValueToken = token;
    params.missingInt = missingInt;
    params.missingFloat = static_cast<float>(missingFloat);
    params.columnIdsPresent = columnIdsPresent;
    // Read into a fresh dataset so that a failed read leaves this one as it was.
    VEK_dataset fresh;
    std::string message;
    int res = fresh.ReadFile(path.c_str(), &params, &message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "DataSet.ReadFile", message);
    data->Swap(fresh);
}

void WrpWriteFile(const VEK_dataset* data, const std::string& path, const std::string& separator,
                  const std::string& token, bool columnIdsPresent, const std::string& floatFormat) {
    ValidateObject(data);
    ValidateText(path, "DataSet.WriteFile", "File name");
    if (separator.size() != 1) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "DataSet.WriteFile",
                                       "The separator must be a single character");
    }
    VEK_datasetWriteParams params;
    params.separator = separator[0];
    params.missingValueToken = token;
    params.columnIdsPresent = columnIdsPresent;
    params.floatFormat = floatFormat;
    std::string message;
    int res = data->WriteFile(path.c_str(), &params, &message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "DataSet.WriteFile", message);
}

int WrpAddVariable(VEK_dataset* data, const std::string& id, bool discrete, int missingInt, double missingFloat) {
    const char* function = discrete ? "DataSet.AddIntVariable" : "DataSet.AddFloatVariable";
    Deref(data);
    ValidateText(id, function, "Variable id");
    int res = discrete ? data->AddIntVariable(id.c_str(), missingInt)
                       : data->AddFloatVariable(id.c_str(), static_cast<float>(missingFloat));
    if (res == VEK_DUPLICATED_IDENTIFIER) {
        ThrowQuarnExceptionWithMessage(res, function, "Duplicated variable id: '" + id + "'");
    }
    if (res == VEK_OUT_OF_RANGE) ThrowQuarnExceptionWithMessage(res, function, "The variable id is empty");
    if (res < 0) ValidateResult(res, function);
    return res;
}

void WrpSetVariableId(VEK_dataset* data, const VarRef& ref, const std::string& id) {
    int var = ValidateVariable(Deref(data), ref);
    ValidateText(id, "DataSet.SetVariableId", "Variable id");
    int res = data->SetId(var, id.c_str());
    if (res == VEK_DUPLICATED_IDENTIFIER) {
        ThrowQuarnExceptionWithMessage(res, "DataSet.SetVariableId", "Duplicated variable id: '" + id + "'");
    }
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "DataSet.SetVariableId", "The variable id is empty");
}

void WrpSetInt(VEK_dataset* data, const VarRef& ref, int record, int value) {
    int var = ValidateVariable(Deref(data), ref);
    ValidateRecord(*data, record);
    RequireKind(*data, var, true, "DataSet.SetInt");
    int res = data->SetInt(var, record, value);
    if (res != VEK_OKAY) {
        ThrowQuarnExceptionWithMessage(res, "DataSet.SetInt",
                                       "Value " + std::to_string(value) + " is not a state index of variable '" +
                                           data->GetId(var) + "', which has " +
                                           std::to_string(data->GetStateNames(var).size()) + " states");
    }
}

void WrpSetFloat(VEK_dataset* data, const VarRef& ref, int record, double value) {
    int var = ValidateVariable(Deref(data), ref);
    ValidateRecord(*data, record);
    RequireKind(*data, var, false, "DataSet.SetFloat");
    if (std::isfinite(value) && !std::isfinite(static_cast<float>(value))) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "DataSet.SetFloat",
                                       "Value is outside the range of single-precision floats");
    }
    ValidateResult(data->SetFloat(var, record, static_cast<float>(value)), "DataSet.SetFloat");
}

void WrpSetStateNames(VEK_dataset* data, const VarRef& ref, const std::vector<std::string>& names) {
    int var = ValidateVariable(Deref(data), ref);
    int res = data->SetStateNames(var, names);
    if (res == VEK_WRONG_NODE_TYPE) {
        ThrowQuarnExceptionWithMessage(res, "DataSet.SetStateNames",
                                       "Variable '" + std::string(data->GetId(var)) +
                                           "' is continuous and can't have state names");
    }
    if (res != VEK_OKAY) {
        ThrowQuarnExceptionWithMessage(res, "DataSet.SetStateNames",
                                       "State names must be non-empty and distinct, and cover every value "
                                       "stored in the variable");
    }
}

py::list WrpMatchNetwork(const VEK_dataset& data, const PyNetwork& net) {
    std::vector<VEK_datasetMatch> matching;
    std::string message;
    const int res = data.MatchNetwork(net, matching, &message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "DataSet.MatchNetwork", message);
    py::object dataMatch = py::module_::import("pyquarn").attr("learning").attr("DataMatch");
    py::list out;
    for (const VEK_datasetMatch& m : matching) out.append(dataMatch(m.node, m.slice, m.column));
    return out;
}

std::vector<double> WrpDiscretize(VEK_dataset& data, const VarRef& ref, DiscretizationAlgorithmType::Value algorithm,
                                  int intervalCount, const std::string& prefix) {
    const int var = ValidateVariable(data, ref);
    ValidateText(prefix, "DataSet.Discretize", "Prefix");
    std::vector<double> edges;
    std::string message;
    const int res = data.Discretize(var, static_cast<int>(algorithm), intervalCount, prefix, edges, &message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "DataSet.Discretize", message);
    return edges;
}

// A dataset from whole columns: integer arrays make discrete columns (the
// cells equal to their marker missing), float arrays continuous ones (NaN
// missing). All or nothing: a refused column leaves no dataset behind.
PyDataset FromColumns(const std::vector<std::string>& ids, const py::list& columns,
                      const std::vector<std::vector<std::string>>& stateNames, const std::vector<int>& missingInts) {
    const char* function = "DataSet.FromColumns";
    if (columns.size() != ids.size() || stateNames.size() != ids.size() || missingInts.size() != ids.size()) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "One column id is needed for every column");
    }
    PyDataset out;
    VEK_dataset& data = out.data;
    py::ssize_t records = -1;
    for (size_t i = 0; i < ids.size(); ++i) {
        ValidateText(ids[i], function, "Column id");
        py::array a = py::array::ensure(columns[i]);
        if (!a || a.ndim() != 1) {
            ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                           "Column '" + ids[i] + "' must be a one-dimensional array");
        }
        if (records >= 0 && a.size() != records) {
            ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "Columns must have the same length");
        }
        records = a.size();
        const char kind = a.dtype().kind();
        const bool discrete = kind == 'i' || kind == 'u' || kind == 'b';
        if (!discrete && kind != 'f') {
            ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                           "Column '" + ids[i] + "' must hold integers or floats");
        }
        int var = discrete ? data.AddIntVariable(ids[i].c_str(), missingInts[i]) : data.AddFloatVariable(ids[i].c_str());
        if (var == VEK_DUPLICATED_IDENTIFIER) {
            ThrowQuarnExceptionWithMessage(var, function, "Duplicated column id: '" + ids[i] + "'");
        }
        if (var < 0) ThrowQuarnExceptionWithMessage(var, function, "Invalid column id: '" + ids[i] + "'");
        VEK_dataset::Variable& v = data.Variables()[static_cast<size_t>(var)];
        if (discrete) {
            auto cells = py::array_t<long long, py::array::forcecast>::ensure(a);
            v.intData.resize(static_cast<size_t>(records));
            for (py::ssize_t r = 0; r < records; ++r) {
                const long long c = cells.at(r);
                if (c < INT32_MIN || c > INT32_MAX) {
                    ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                                   "Column '" + ids[i] + "' holds a value beyond 32 bits");
                }
                v.intData[static_cast<size_t>(r)] = static_cast<int>(c);
            }
        } else {
            auto cells = py::array_t<float, py::array::forcecast>::ensure(a);
            v.floatData.assign(cells.data(), cells.data() + records);
        }
    }
    data.SetRecordCount(records < 0 ? 0 : static_cast<int>(records));
    for (size_t i = 0; i < ids.size(); ++i) {
        if (stateNames[i].empty()) continue;
        if (!data.IsDiscrete(static_cast<int>(i))) {
            ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                           "Column '" + ids[i] + "' is continuous and can't have state names");
        }
        if (data.SetStateNames(static_cast<int>(i), stateNames[i]) != VEK_OKAY) {
            ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                           "State names of column '" + ids[i] +
                                               "' must be non-empty and distinct, and cover every value");
        }
    }
    return out;
}

PyDataset FromArray(const py::array& array, const std::vector<std::string>& ids) {
    if (array.ndim() != 2 || static_cast<size_t>(array.shape(1)) != ids.size()) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "DataSet.FromColumns",
                                       "A two-dimensional array with one column id per column is needed");
    }
    py::list columns;
    py::object a = py::reinterpret_borrow<py::object>(array);
    for (size_t j = 0; j < ids.size(); ++j) {
        columns.append(a[py::make_tuple(py::slice(py::none(), py::none(), py::none()), py::int_(j))]);
    }
    return FromColumns(ids, columns, std::vector<std::vector<std::string>>(ids.size()),
                       std::vector<int>(ids.size(), -1));
}

}  // namespace
}  // namespace Wrp

void RegisterDataSet(py::module_& learning) {
    using namespace Wrp;
    py::class_<PyDataset> cls(learning, "DataSet", "Tabular dataset for training and testing");
    cls.def(py::init<>(), "Creates an empty dataset");
    cls.def("__copy__", [](const PyDataset& self) { return PyDataset(self); });
    cls.def("__deepcopy__", [](const PyDataset& self, py::dict) { return PyDataset(self); }, py::arg("memo"));

    cls.def(
        "read_file",
        [](PyDataset& self, const FileName& filename, const std::string& missing_value_token, int missing_int,
           double missing_float, bool column_ids_present) {
            WrpReadFile(&self.data, filename.path, missing_value_token, missing_int, missing_float, column_ids_present);
        },
        py::arg("filename"), py::arg("missing_value_token") = "*", py::arg("missing_int") = -1,
        py::arg("missing_float") = std::numeric_limits<double>::quiet_NaN(), py::arg("column_ids_present") = true,
        "Reads dataset from file");
    cls.def(
        "write_file",
        [](const PyDataset& self, const FileName& filename, const std::string& separator,
           const std::string& missing_value_token, bool column_ids_present, const std::string& float_format) {
            WrpWriteFile(&self.data, filename.path, separator, missing_value_token, column_ids_present, float_format);
        },
        py::arg("filename"), py::arg("separator") = "\t", py::arg("missing_value_token") = "*",
        py::arg("column_ids_present") = true, py::arg("float_format") = "", "Writes dataset to file");

    cls.def(
        "get_number_of_variables", [](const PyDataset& self) { return self.data.GetNumberOfVariables(); },
        "Gets the number of variables (columns)");
    cls.def(
        "get_number_of_records", [](const PyDataset& self) { return self.data.GetNumberOfRecords(); },
        "Gets the number of records (rows)");
    cls.def(
        "get_variable_id",
        [](const PyDataset& self, int var) { return std::string(self.data.GetId(ValidateVariable(self.data, var))); },
        py::arg("variable"), "Gets the identifier of a variable");
    cls.def(
        "get_variable_ids",
        [](const PyDataset& self) {
            std::vector<std::string> ids;
            for (int i = 0; i < self.data.GetNumberOfVariables(); ++i) ids.emplace_back(self.data.GetId(i));
            return ids;
        },
        "Gets the identifiers of all variables");
    cls.def(
        "set_variable_id",
        [](PyDataset& self, const VarRef& var, const std::string& id) { WrpSetVariableId(&self.data, var, id); },
        py::arg("variable"), py::arg("id"), "Sets the identifier of a variable");
    cls.def(
        "find_variable",
        [](const PyDataset& self, const std::string& id) {
            int index = id.find('\0') == std::string::npos ? self.data.FindVariable(id.c_str()) : -1;
            return index < 0 ? -1 : index;
        },
        py::arg("id"), "Gets the index of the variable with the identifier, -1 when there is none");
    cls.def(
        "add_int_variable",
        [](PyDataset& self, const std::string& id, int missing_int) {
            return WrpAddVariable(&self.data, id, true, missing_int, 0.0);
        },
        py::arg("id"), py::arg("missing_int") = -1,
        "Adds a discrete variable whose cells are all missing; returns its index");
    cls.def(
        "add_float_variable",
        [](PyDataset& self, const std::string& id, double missing_float) {
            return WrpAddVariable(&self.data, id, false, -1, missing_float);
        },
        py::arg("id"), py::arg("missing_float") = std::numeric_limits<double>::quiet_NaN(),
        "Adds a continuous variable whose cells are all missing; returns its index");
    cls.def(
        "remove_variable",
        [](PyDataset& self, const VarRef& var) {
            ValidateResult(self.data.RemoveVariable(ValidateVariable(self.data, var)), "DataSet.RemoveVariable");
        },
        py::arg("variable"), "Removes a variable");
    cls.def(
        "add_empty_record",
        [](PyDataset& self) {
            int res = self.data.AddEmptyRecord();
            if (res < 0) ValidateResult(res, "DataSet.AddEmptyRecord");
            return res;
        },
        "Adds a record whose cells are all missing; returns its index");
    cls.def(
        "remove_record",
        [](PyDataset& self, int record) {
            ValidateRecord(self.data, record);
            ValidateResult(self.data.RemoveRecord(record), "DataSet.RemoveRecord");
        },
        py::arg("record"), "Removes a record");

    cls.def(
        "is_discrete", [](const PyDataset& self, const VarRef& var) {
            return self.data.IsDiscrete(ValidateVariable(self.data, var));
        },
        py::arg("variable"), "Tells whether a variable is discrete (int cells) rather than continuous");
    cls.def(
        "get_int",
        [](const PyDataset& self, const VarRef& ref, int record) {
            int var = ValidateVariable(self.data, ref);
            ValidateRecord(self.data, record);
            RequireKind(self.data, var, true, "DataSet.GetInt");
            return self.data.GetInt(var, record);
        },
        py::arg("variable"), py::arg("record"), "Gets a discrete cell: a state index, or the missing marker");
    cls.def(
        "set_int",
        [](PyDataset& self, const VarRef& var, int record, int value) { WrpSetInt(&self.data, var, record, value); },
        py::arg("variable"), py::arg("record"), py::arg("value"), "Sets a discrete cell");
    cls.def(
        "get_float",
        [](const PyDataset& self, const VarRef& ref, int record) {
            int var = ValidateVariable(self.data, ref);
            ValidateRecord(self.data, record);
            RequireKind(self.data, var, false, "DataSet.GetFloat");
            return static_cast<double>(self.data.GetFloat(var, record));
        },
        py::arg("variable"), py::arg("record"), "Gets a continuous cell");
    cls.def(
        "set_float",
        [](PyDataset& self, const VarRef& var, int record, double value) {
            WrpSetFloat(&self.data, var, record, value);
        },
        py::arg("variable"), py::arg("record"), py::arg("value"), "Sets a continuous cell");
    cls.def(
        "is_missing",
        [](const PyDataset& self, const VarRef& ref, int record) {
            int var = ValidateVariable(self.data, ref);
            ValidateRecord(self.data, record);
            return self.data.IsMissing(var, record);
        },
        py::arg("variable"), py::arg("record"), "Tells whether a cell is missing");
    cls.def(
        "set_missing",
        [](PyDataset& self, const VarRef& ref, int record) {
            int var = ValidateVariable(self.data, ref);
            ValidateRecord(self.data, record);
            ValidateResult(self.data.SetMissing(var, record), "DataSet.SetMissing");
        },
        py::arg("variable"), py::arg("record"), "Makes a cell missing");
    cls.def(
        "has_missing_data",
        [](const PyDataset& self, const VarRef& var) {
            return self.data.HasMissingData(ValidateVariable(self.data, var));
        },
        py::arg("variable"), "Tells whether any cell of a variable is missing");
    cls.def(
        "get_missing_int",
        [](const PyDataset& self, const VarRef& var) {
            return self.data.GetMissingInt(ValidateVariable(self.data, var));
        },
        py::arg("variable"), "Gets the marker of missing cells of a discrete variable");
    cls.def(
        "get_missing_float",
        [](const PyDataset& self, const VarRef& var) {
            return static_cast<double>(self.data.GetMissingFloat(ValidateVariable(self.data, var)));
        },
        py::arg("variable"), "Gets the marker of missing cells of a continuous variable");
    cls.def(
        "get_state_names",
        [](const PyDataset& self, const VarRef& var) {
            return self.data.GetStateNames(ValidateVariable(self.data, var));
        },
        py::arg("variable"), "Gets the state names of a discrete variable (empty when its values are numbers)");
    cls.def(
        "set_state_names",
        [](PyDataset& self, const VarRef& var, const std::vector<std::string>& names) {
            WrpSetStateNames(&self.data, var, names);
        },
        py::arg("variable"), py::arg("names"), "Sets the state names of a discrete variable");
    cls.def(
        "get_int_data",
        [](const PyDataset& self, const VarRef& ref) {
            int var = ValidateVariable(self.data, ref);
            RequireKind(self.data, var, true, "DataSet.GetIntData");
            return self.data.GetVariable(var).intData;
        },
        py::arg("variable"), "Gets all cells of a discrete variable");
    cls.def(
        "get_float_data",
        [](const PyDataset& self, const VarRef& ref) {
            int var = ValidateVariable(self.data, ref);
            RequireKind(self.data, var, false, "DataSet.GetFloatData");
            const std::vector<float>& cells = self.data.GetVariable(var).floatData;
            return std::vector<double>(cells.begin(), cells.end());
        },
        py::arg("variable"), "Gets all cells of a continuous variable");

    cls.def(
        "match_network", [](const PyDataset& self, const PyNetwork& net) { return WrpMatchNetwork(self.data, net); },
        py::arg("net"),
        "Pairs each column with the node of the same id (states with outcomes by id or label); returns a list "
        "of DataMatch");
    cls.def(
        "discretize",
        [](PyDataset& self, const VarRef& column, DiscretizationAlgorithmType::Value algorithm, int interval_count,
           const std::string& prefix) { return WrpDiscretize(self.data, column, algorithm, interval_count, prefix); },
        py::arg("column"), py::arg("algorithm"), py::arg("interval_count"), py::arg("prefix") = "",
        "Turns a numeric column into a discrete one of intervals (states prefix + index, bare indices for an "
        "empty prefix); returns the interior edges");
    cls.def(py::init(&FromArray), py::arg("data"), py::arg("columns"),
            "Creates a dataset from a two-dimensional numpy array: integer columns discrete, float columns "
            "continuous (NaN missing)");
    cls.def_static("_from_columns", &FromColumns, py::arg("ids"), py::arg("columns"), py::arg("state_names"),
                   py::arg("missing_ints"));
    cls.def_static(
        "from_pandas",
        [](const py::object& df) { return py::module_::import("pyquarn._frames").attr("from_pandas")(df); },
        py::arg("df"),
        "Creates a dataset from a pandas DataFrame: categorical and text columns get named states, integer "
        "columns are discrete, float columns continuous, NaN and None missing");
    cls.def(
        "to_pandas", [](const py::object& self) { return py::module_::import("pyquarn._frames").attr("to_pandas")(self); },
        "Returns the dataset as a pandas DataFrame");
    cls.def(
        "get_column",
        [](const PyDataset& self, const VarRef& ref) -> py::array {
            const VEK_dataset::Variable& v = self.data.GetVariable(ValidateVariable(self.data, ref));
            if (v.discrete) return py::array_t<int>(static_cast<py::ssize_t>(v.intData.size()), v.intData.data());
            return py::array_t<float>(static_cast<py::ssize_t>(v.floatData.size()), v.floatData.data());
        },
        py::arg("variable"), "Gets all cells of a variable as a numpy array (int32 or float32)");
}
