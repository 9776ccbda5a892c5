#include "formats/formatRegistry.h"

#include <cctype>
#include <cstring>
#include <string>

#include "formats/fileFormat.h"
#include "network/logger.h"
#include "network/status.h"

namespace {

// In the order in which extensions are tested. To make a format available,
// put its factory in place of the null on its line.
const VEK_formatInfo kFormats[] = {
    {VEK_FORMAT_XVEK, "XML network", {"xvek", "qvek", nullptr}, VEK_createXvekSpeaker},
    {VEK_FORMAT_ERGO, "Ergo", {"erg", nullptr, nullptr}, VEK_createErgoSpeaker},
    {VEK_FORMAT_NETICA, "Netica", {"dne", nullptr, nullptr}, VEK_createNeticaSpeaker},
    {VEK_FORMAT_MICROSOFT, "Microsoft", {"dsc", nullptr, nullptr}, VEK_createMicrosoftSpeaker},
    {VEK_FORMAT_VEK, "text network", {"vek", nullptr, nullptr}, VEK_createVekSpeaker},
    {VEK_FORMAT_HUGIN, "Hugin", {"net", nullptr, nullptr}, VEK_createHuginSpeaker},
    {VEK_FORMAT_KI, "KI", {"dxp", nullptr, nullptr}, VEK_createKiSpeaker},
    {VEK_FORMAT_XMLBIF, "XMLBIF", {"bif", nullptr, nullptr}, VEK_createXmlbifSpeaker},
    {VEK_FORMAT_UAI, "UAI", {"uai", nullptr, nullptr}, VEK_createUaiSpeaker},
};

bool EqualsIgnoringCase(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b) {
        if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b))) {
            return false;
        }
    }
    return *a == *b;
}

}  // namespace

const VEK_formatInfo* VEK_findFormat(int number) {
    for (const VEK_formatInfo& f : kFormats) {
        if (f.number == number) return &f;
    }
    return nullptr;
}

const VEK_formatInfo* VEK_findFormatByExtension(const char* path) {
    if (!path) return nullptr;
    const char* dot = std::strrchr(path, '.');
    if (!dot) return nullptr;
    // A dot inside a directory name is no extension.
    if (std::strchr(dot, '/')) return nullptr;
    const char* ext = dot + 1;
    for (const VEK_formatInfo& f : kFormats) {
        for (const char* e : f.extensions) {
            if (e && EqualsIgnoringCase(ext, e)) return &f;
        }
    }
    return nullptr;
}

VEK_fileFormat* VEK_createFileFormat(VEK_network& net, const char* path, int& format, VEK_logger& log) {
    const VEK_formatInfo* info = nullptr;
    if (format == VEK_FORMAT_AUTO) {
        info = VEK_findFormatByExtension(path);
        if (!info) {
            format = VEK_OUT_OF_RANGE;
            log.LogError(VEK_OUT_OF_RANGE, "Unknown File Format");
            return nullptr;
        }
        format = info->number;
    } else {
        // Numbers 1..8 name formats; later formats (UAI) are chosen by their
        // extension only, so the numbers users pass keep one meaning.
        info = format <= VEK_FORMAT_XVEK ? VEK_findFormat(format) : nullptr;
        if (!info) {
            log.LogError(VEK_OUT_OF_RANGE, "Unknown File Format");
            return nullptr;
        }
    }
    if (!info->create) {
        std::string message = "Unknown File Format: the ";
        message += info->name;
        message += " format (";
        message += std::to_string(info->number);
        message += ") is not available";
        log.LogError(VEK_OUT_OF_RANGE, message.c_str());
        return nullptr;
    }
    // Running out of memory is the caller's -42, not an unknown format.
    return info->create(net);
}
