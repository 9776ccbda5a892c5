// Registration helpers for Network methods that name a node by handle or by
// identifier, and an outcome by index or by identifier. Each helper takes a
// Wrp function whose arguments after the network are the node handle (and
// the outcome index), and registers one overload per argument form.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "wrpCore.h"

namespace BindUtil {

// How a node or an outcome is named in one overload.
enum class By { Handle, Id };

struct Form {
    By node;
    By outcome;
};

// fn(net, handle, args...) as (int node_handle, args...) and (str node_id, args...).
template <class R, class... Args, class... Extra>
void DefNode(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, Args...), const char* doc,
             const Extra&... extra) {
    cls.def(
        name, [fn](PyNetwork& self, int h, Args... a) -> R { return fn(&self, h, std::forward<Args>(a)...); },
        py::arg("node_handle"), extra..., doc);
    cls.def(
        name,
        [fn](PyNetwork& self, const std::string& id, Args... a) -> R {
            return fn(&self, Wrp::ValidateNodeId(self, id), std::forward<Args>(a)...);
        },
        py::arg("node_id"), extra..., doc);
}

// Only the (int node_handle, args...) form.
template <class R, class... Args, class... Extra>
void DefNodeByHandle(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, Args...), const char* doc,
                     const Extra&... extra) {
    cls.def(
        name, [fn](PyNetwork& self, int h, Args... a) -> R { return fn(&self, h, std::forward<Args>(a)...); },
        py::arg("node_handle"), extra..., doc);
}

// Only the (str node_id, args...) form.
template <class R, class... Args, class... Extra>
void DefNodeById(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, Args...), const char* doc,
                 const Extra&... extra) {
    cls.def(
        name,
        [fn](PyNetwork& self, const std::string& id, Args... a) -> R {
            return fn(&self, Wrp::ValidateNodeId(self, id), std::forward<Args>(a)...);
        },
        py::arg("node_id"), extra..., doc);
}

// fn(net, first, second, args...) for methods on two nodes: (int, int) with
// <first>_handle and <second>_handle, or (str, str) with <first>_id and <second>_id.
template <class R, class... Args, class... Extra>
void DefNodePair(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, int, Args...), const char* doc,
                 const std::string& first, const std::string& second, const Extra&... extra) {
    cls.def(
        name,
        [fn](PyNetwork& self, int a, int b, Args... rest) -> R {
            return fn(&self, a, b, std::forward<Args>(rest)...);
        },
        py::arg((first + "_handle").c_str()), py::arg((second + "_handle").c_str()), extra..., doc);
    cls.def(
        name,
        [fn](PyNetwork& self, const std::string& a, const std::string& b, Args... rest) -> R {
            int ha = Wrp::ValidateNodeId(self, a);
            int hb = Wrp::ValidateNodeId(self, b);
            return fn(&self, ha, hb, std::forward<Args>(rest)...);
        },
        py::arg((first + "_id").c_str()), py::arg((second + "_id").c_str()), extra..., doc);
}

// fn(net, handle, outcome, args...) registered in the given forms, in order.
// The node is resolved before the outcome, so a bad node is reported first.
template <class R, class... Args, class... Extra>
void DefNodeOutcome(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, int, Args...),
                    const char* doc, std::initializer_list<Form> forms, const Extra&... extra) {
    for (Form f : forms) {
        if (f.node == By::Handle && f.outcome == By::Handle) {
            cls.def(
                name,
                [fn](PyNetwork& self, int h, int o, Args... a) -> R {
                    return fn(&self, h, o, std::forward<Args>(a)...);
                },
                py::arg("node_handle"), py::arg("outcome_index"), extra..., doc);
        } else if (f.node == By::Handle) {
            cls.def(
                name,
                [fn](PyNetwork& self, int h, const std::string& o, Args... a) -> R {
                    Wrp::ValidateNodeHandle(self, h);
                    return fn(&self, h, Wrp::ValidateOutcomeId(self, h, o), std::forward<Args>(a)...);
                },
                py::arg("node_handle"), py::arg("outcome_id"), extra..., doc);
        } else if (f.outcome == By::Handle) {
            cls.def(
                name,
                [fn](PyNetwork& self, const std::string& id, int o, Args... a) -> R {
                    return fn(&self, Wrp::ValidateNodeId(self, id), o, std::forward<Args>(a)...);
                },
                py::arg("node_id"), py::arg("outcome_index"), extra..., doc);
        } else {
            cls.def(
                name,
                [fn](PyNetwork& self, const std::string& id, const std::string& o, Args... a) -> R {
                    int h = Wrp::ValidateNodeId(self, id);
                    return fn(&self, h, Wrp::ValidateOutcomeId(self, h, o), std::forward<Args>(a)...);
                },
                py::arg("node_id"), py::arg("outcome_id"), extra..., doc);
        }
    }
}

constexpr Form kHH{By::Handle, By::Handle};
constexpr Form kHI{By::Handle, By::Id};
constexpr Form kIH{By::Id, By::Handle};
constexpr Form kII{By::Id, By::Id};

}  // namespace BindUtil
