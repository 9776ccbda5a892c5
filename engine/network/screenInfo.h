// Presentation data of nodes, submodels and text boxes. Positions are
// stored by centre; the Python layer converts from top-left corners.
#pragma once

#include <string>

struct VEK_rectangle {
    int centerX = 0;
    int centerY = 0;
    int width = 0;
    int height = 0;
    bool operator==(const VEK_rectangle&) const = default;
};

struct VEK_font {
    std::string name = "Arial";
    int size = 8;
    bool bold = false;
    bool italic = false;
    bool operator==(const VEK_font&) const = default;
};

struct VEK_screenInfo {
    VEK_rectangle position{0, 0, 72, 48};
    unsigned color = 0xffffe5u;        // background, 0x00RRGGBB
    unsigned selColor = 0x0000ffu;
    unsigned fontColor = 0x000000u;
    unsigned borderColor = 0x000080u;
    int borderThickness = 1;
    VEK_font font;
    bool operator==(const VEK_screenInfo&) const = default;
};

// Bar chart shown inside a node.
struct VEK_barChart {
    bool active = false;
    int width = 128;
    int height = 64;
    bool operator==(const VEK_barChart&) const = default;
};
