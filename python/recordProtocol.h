// The protocol shared by the value record classes.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

namespace py = pybind11;

// __repr__ as Name(field=repr, ...), __eq__, __copy__ and __deepcopy__.
template <class T>
void AddRecordProtocol(py::class_<T>& cls, const std::vector<std::string>& fields) {
    std::string name = py::str(cls.attr("__name__"));
    cls.def("__repr__", [name, fields](const py::object& self) {
        std::string text = name + "(";
        for (size_t i = 0; i < fields.size(); ++i) {
            if (i > 0) text += ", ";
            text += fields[i] + "=" + std::string(py::repr(self.attr(fields[i].c_str())));
        }
        return text + ")";
    });
    cls.def(
        "__eq__", [](const T& a, const T& b) { return a == b; }, py::is_operator());
    cls.def(
        "__eq__", [](const T&, const py::object&) { return py::reinterpret_borrow<py::object>(Py_NotImplemented); },
        py::is_operator());
    cls.def("__copy__", [](const T& self) { return T(self); });
    cls.def(
        "__deepcopy__", [](const T& self, py::dict) { return T(self); }, py::arg("memo"));
}
