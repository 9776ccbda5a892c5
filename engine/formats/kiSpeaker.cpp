#include "formats/kiSpeaker.h"

#include "formats/formatRegistry.h"

VEK_fileFormat* VEK_createKiSpeaker(VEK_network& net) { return new VEK_kiSpeaker(net); }

namespace {
const VEK_beliefNetDialect kKi = {"KI", true, false, false};
}

VEK_kiSpeaker::VEK_kiSpeaker(VEK_network& net) : VEK_beliefNetSpeaker(net, kKi) {}
