// KI .dxp files ("belief network" text, see beliefNetText.h): nodes with
// their names and states, and probability tables. Positions and properties
// in a file are read; the writer leaves them out.
#pragma once

#include "formats/beliefNetText.h"

class VEK_kiSpeaker : public VEK_beliefNetSpeaker {
public:
    explicit VEK_kiSpeaker(VEK_network& net);
};
