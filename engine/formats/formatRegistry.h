// The table of file formats: number, extensions and the factory of each
// format's speaker. A format whose factory is null is known (its extension
// selects it) but not available in this build.
#pragma once

class VEK_network;
class VEK_fileFormat;
class VEK_logger;

using VEK_speakerFactory = VEK_fileFormat* (*)(VEK_network& net);

struct VEK_formatInfo {
    int number;
    const char* name;             // for messages ("Hugin")
    const char* extensions[3];    // lower case, without the dot; null-terminated
    VEK_speakerFactory create;    // null: not available
};

// The entry of a format number (1..9; 9 is reached by extension only), or null.
const VEK_formatInfo* VEK_findFormat(int number);
// The format chosen by the extension of path (after the last dot, case
// ignored), tested in the fixed order xvek/qvek, erg, dne, dsc, vek, net,
// dxp, bif, uai; null when there is none or it is unknown.
const VEK_formatInfo* VEK_findFormatByExtension(const char* path);
// The speaker for path and format over net, as VEK_network::CreateFileFormat
// describes; failures are logged to log. Exhausted memory throws
// std::bad_alloc.
VEK_fileFormat* VEK_createFileFormat(VEK_network& net, const char* path, int& format, VEK_logger& log);

// Speaker factories; each is defined beside its speaker.
VEK_fileFormat* VEK_createErgoSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createNeticaSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createMicrosoftSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createVekSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createHuginSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createXmlbifSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createKiSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createXvekSpeaker(VEK_network& net);
VEK_fileFormat* VEK_createUaiSpeaker(VEK_network& net);
