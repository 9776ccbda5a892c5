// Network methods: how nodes are drawn (position, colours, border, bar chart)
// and the noisy-decomposition settings.
#include <string>
#include <vector>

#include "bindPosition.h"
#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

VEK_screenInfo& Screen(VEK_network* net, int handle) { return GetNode(Deref(net), handle).Info().screen; }

VEK_barChart& BarChart(VEK_network* net, int handle) { return GetNode(Deref(net), handle).Info().barChart; }

void WrpSetNodePosition(VEK_network* net, int handle, int x, int y, int width, int height) {
    VEK_screenInfo& screen = Screen(net, handle);
    screen.position = BindPosition::CheckedRectangle(x, y, width, height, "Network.SetNodePosition");
}

void WrpSetNodePositionFromList(VEK_network* net, int handle, const std::vector<int>& rect) {
    VEK_screenInfo& screen = Screen(net, handle);
    screen.position = BindPosition::CheckedRectangle(
        rect, "pyquarn.Network.set_node_position(int, list) - rect array has invalid size",
        "Network.SetNodePosition");
}

std::vector<int> WrpGetNodePosition(VEK_network* net, int handle) { return GetPosition(Screen(net, handle)); }

// Colours are the engine's 0x00RRGGBB words, passed through unchanged.
void WrpSetNodeBgColor(VEK_network* net, int handle, unsigned color) { Screen(net, handle).color = color; }
unsigned WrpGetNodeBgColor(VEK_network* net, int handle) { return Screen(net, handle).color; }
void WrpSetNodeTextColor(VEK_network* net, int handle, unsigned color) { Screen(net, handle).fontColor = color; }
unsigned WrpGetNodeTextColor(VEK_network* net, int handle) { return Screen(net, handle).fontColor; }
void WrpSetNodeBorderColor(VEK_network* net, int handle, unsigned color) { Screen(net, handle).borderColor = color; }
unsigned WrpGetNodeBorderColor(VEK_network* net, int handle) { return Screen(net, handle).borderColor; }

void WrpSetNodeBorderWidth(VEK_network* net, int handle, int width) { Screen(net, handle).borderThickness = width; }
int WrpGetNodeBorderWidth(VEK_network* net, int handle) { return Screen(net, handle).borderThickness; }

bool WrpIsNoisyDecompEnabled(VEK_network* net) { return Deref(net).IsNoisyDecompEnabled(); }
void WrpEnableNoisyDecomp(VEK_network* net, bool on) { Deref(net).EnableNoisyDecomp(on); }
int WrpGetNoisyDecompLimit(VEK_network* net) { return Deref(net).GetNoisyDecompLimit(); }
void WrpSetNoisyDecompLimit(VEK_network* net, int limit) {
    ValidateObject(net);
    if (limit < 0) {
        ThrowQuarnException(VEK_OUT_OF_RANGE, "Network.SetNoisyDecompLimit", "The limit cannot be negative");
    }
    net->SetNoisyDecompLimit(limit);
}

bool WrpIsNodeChartEnabled(VEK_network* net, int handle) { return BarChart(net, handle).active; }
void WrpSetNodeChartEnabled(VEK_network* net, int handle, bool on) { BarChart(net, handle).active = on; }

std::vector<int> WrpGetNodeChartSize(VEK_network* net, int handle) {
    const VEK_barChart& chart = BarChart(net, handle);
    return {chart.width, chart.height};
}

void WrpSetNodeChartSize(VEK_network* net, int handle, int width, int height) {
    VEK_barChart& chart = BarChart(net, handle);
    if (width < 0 || height < 0) {
        ThrowQuarnException(VEK_OUT_OF_RANGE, "Network.SetNodeChartSize", "Chart width and height cannot be negative");
    }
    chart.width = width;
    chart.height = height;
}

}  // namespace
}  // namespace Wrp

void BindPresentation(PyNetworkClass& cls) {
    using namespace Wrp;
    using BindUtil::DefNode;

    const char* posDoc = "Sets position of a node";
    DefNode(cls, "set_node_position", &WrpSetNodePosition, posDoc, py::arg("x"), py::arg("y"), py::arg("width"),
            py::arg("height"));
    DefNode(cls, "set_node_position", &WrpSetNodePositionFromList, posDoc, py::arg("position"));
    DefNode(cls, "get_node_position", &WrpGetNodePosition, "Returns position of node");

    DefNode(cls, "set_node_bg_color", &WrpSetNodeBgColor, "Sets node background color", py::arg("color"));
    DefNode(cls, "get_node_bg_color", &WrpGetNodeBgColor, "Returns background color of a node");
    DefNode(cls, "set_node_text_color", &WrpSetNodeTextColor, "Sets node text color", py::arg("color"));
    DefNode(cls, "get_node_text_color", &WrpGetNodeTextColor, "Returns node text color");
    DefNode(cls, "set_node_border_color", &WrpSetNodeBorderColor, "Sets node border color", py::arg("color"));
    DefNode(cls, "get_node_border_color", &WrpGetNodeBorderColor, "Returns border color of a node");
    DefNode(cls, "set_node_border_width", &WrpSetNodeBorderWidth, "Sets node border width", py::arg("width"));
    DefNode(cls, "get_node_border_width", &WrpGetNodeBorderWidth, "Returns node border width");

    cls.def("is_noisy_decomposition_enabled", [](PyNetwork& self) { return WrpIsNoisyDecompEnabled(&self); },
            "Returns true if noisy decomposition is enabled");
    cls.def(
        "set_noisy_decomposition_enabled", [](PyNetwork& self, bool on) { WrpEnableNoisyDecomp(&self, on); },
        py::arg("enabled").noconvert(), "Enables noisy decomposition");
    cls.def("get_noisy_decomposition_limit", [](PyNetwork& self) { return WrpGetNoisyDecompLimit(&self); },
            "Returns limit on noisy decomposition");
    cls.def(
        "set_noisy_decomposition_limit", [](PyNetwork& self, int limit) { WrpSetNoisyDecompLimit(&self, limit); },
        py::arg("limit"), "Sets limit on noisy decomposition");

    DefNode(cls, "is_node_chart_enabled", &WrpIsNodeChartEnabled, "Returns true if node chart is enabled");
    DefNode(cls, "set_node_chart_enabled", &WrpSetNodeChartEnabled, "Enables or disables node chart",
            py::arg("enabled").noconvert());
    DefNode(cls, "get_node_chart_size", &WrpGetNodeChartSize, "Returns node chart size");
    DefNode(cls, "set_node_chart_size", &WrpSetNodeChartSize, "Sets node chart size", py::arg("width"),
            py::arg("height"));
}
