// Load times of the shared networks in every format that holds them: text
// BIF and XMLBIF (format 6), Hugin .net (format 5), UAI (by its extension, written
// from the XML file into the temporary directory first) and, as the
// yardstick, the XML network format. One benchmark per network and format,
// named Load/<format>/<network>.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "formats/fileFormat.h"
#include "network/network.h"

namespace {

std::string NetworksDir() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks";
}

void Load(benchmark::State& state, std::string path, int format) {
    for (auto _ : state) {
        VEK_network net;
        int res = net.ReadFile(path.c_str(), format);
        if (res != 0) {
            state.SkipWithError("read failed");
            break;
        }
        benchmark::DoNotOptimize(net.GetNumberOfNodes());
    }
}

struct Registrar {
    std::vector<std::string> written;  // the UAI files, removed at exit
    ~Registrar() {
        std::error_code ec;
        for (const std::string& path : written) std::filesystem::remove(path, ec);
    }
    Registrar() {
        struct Kind {
            const char* label;
            const char* folder;
            const char* extension;
            int format;
        };
        const Kind kinds[] = {
            {"xvek", "xvek", ".xvek", VEK_FORMAT_XVEK},
            {"bif", "bif", ".bif", VEK_FORMAT_XMLBIF},
            {"xmlbif", "xmlbif", ".xml", VEK_FORMAT_XMLBIF},
            {"net", "net", ".net", VEK_FORMAT_HUGIN},
        };
        std::vector<std::string> names;
        std::error_code ec;
        for (const auto& e : std::filesystem::directory_iterator(NetworksDir() + "/bif", ec)) {
            if (e.path().extension() == ".bif") names.push_back(e.path().stem().string());
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            VEK_network net;
            const std::string uai = (std::filesystem::temp_directory_path() / ("quarn_bench_" + name + ".uai")).string();
            if (net.ReadFile((NetworksDir() + "/xvek/" + name + ".xvek").c_str()) == 0 &&
                net.WriteFile(uai.c_str()) == 0) {
                written.push_back(uai);
                benchmark::RegisterBenchmark(("Load/uai/" + name).c_str(), Load, uai, VEK_FORMAT_AUTO)
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(0.2);
            }
            for (const Kind& k : kinds) {
                std::string path = NetworksDir() + "/" + k.folder + "/" + name + k.extension;
                if (!std::filesystem::exists(path)) continue;
                benchmark::RegisterBenchmark(("Load/" + std::string(k.label) + "/" + name).c_str(), Load, path,
                                             k.format)
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(0.2);
            }
        }
    }
} registrar;

}  // namespace
