#include "formats/microsoftSpeaker.h"

#include "formats/formatRegistry.h"

VEK_fileFormat* VEK_createMicrosoftSpeaker(VEK_network& net) { return new VEK_microsoftSpeaker(net); }

namespace {
const VEK_beliefNetDialect kMicrosoft = {"Microsoft", false, true, true};
}

VEK_microsoftSpeaker::VEK_microsoftSpeaker(VEK_network& net) : VEK_beliefNetSpeaker(net, kMicrosoft) {}
