// Network methods drawn in Python (pyquarn/drawing.py): the module is
// imported when a picture is asked for, never while pyquarn initialises.
#include "bindings.h"

namespace {

py::object Drawing(const char* function, py::object net) {
    return py::module_::import("pyquarn.drawing").attr(function)(net);
}

}  // namespace

void BindDrawing(PyNetworkClass& cls) {
    cls.def(
        "to_dot", [](py::object self) { return Drawing("to_dot", self); },
        "Returns the network as Graphviz text");
    cls.def(
        "_repr_svg_", [](py::object self) { return Drawing("to_svg", self); },
        "Draws the network as SVG, with bar charts of the beliefs when they are valid");
}
