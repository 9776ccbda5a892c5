// A file name argument: a str, or any path-like object (pathlib.Path and
// the like), turned into the engine's narrow string. A bytes name is taken
// as it is, like the str form.
#pragma once

#include <string>

#include <pybind11/pybind11.h>

struct FileName {
    std::string path;
};

namespace pybind11 {
namespace detail {

template <>
struct type_caster<FileName> {
    PYBIND11_TYPE_CASTER(FileName, const_name("str | os.PathLike"));

    bool load(handle src, bool convert) {
        if (!src) return false;
        object name = reinterpret_borrow<object>(src);
        if (!PyUnicode_Check(src.ptr()) && !PyBytes_Check(src.ptr())) {
            if (!PyObject_HasAttrString(src.ptr(), "__fspath__")) return false;
            PyObject* fs = PyOS_FSPath(src.ptr());
            if (fs == nullptr) {
                PyErr_Clear();
                return false;
            }
            name = reinterpret_steal<object>(fs);
        }
        make_caster<std::string> text;
        if (!text.load(name, convert)) return false;
        value.path = cast_op<std::string&&>(std::move(text));
        return true;
    }
};

}  // namespace detail
}  // namespace pybind11
