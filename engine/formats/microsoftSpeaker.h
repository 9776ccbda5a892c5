// Microsoft .dsc files ("belief network" text, see beliefNetText.h): nodes
// with their names, states and positions, user properties declared in the
// properties block, and probability tables.
#pragma once

#include "formats/beliefNetText.h"

class VEK_microsoftSpeaker : public VEK_beliefNetSpeaker {
public:
    explicit VEK_microsoftSpeaker(VEK_network& net);
};
