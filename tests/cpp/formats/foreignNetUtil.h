// Shared code of the Ergo, Netica, Microsoft and KI tests: random networks of
// the kinds a format can hold, a comparison by ids, and files in a
// temporary directory.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "formats/fileFormat.h"
#include "inference/randGen.h"
#include "network/discDef.h"
#include "network/network.h"
#include "network/truthTable.h"

#include <unistd.h>

namespace foreign {

inline std::string SharedDir() {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return env && *env ? env : QUARN_SHARED_DIR;
}

// The whole content of a file.
inline std::string FileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// A file in the temporary directory, removed with the object.
class TempFile {
public:
    explicit TempFile(const std::string& extension) {
        static int counter = 0;
        path_ = (std::filesystem::temp_directory_path() /
                 ("quarn_foreign_" + std::to_string(::getpid()) + "_" + std::to_string(++counter) + extension))
                    .string();
        std::filesystem::remove(path_);
    }
    ~TempFile() {
        std::error_code ec;
        std::filesystem::remove(path_, ec);
    }
    const char* c_str() const { return path_.c_str(); }
    const std::string& path() const { return path_; }
    bool Exists() const { return std::filesystem::exists(path_); }
    void Write(const std::string& text) const {
        std::ofstream f(path_, std::ios::binary);
        f << text;
    }
    std::string Read() const { return FileText(path_); }

private:
    std::string path_;
};

// A node's table, parents' ids, outcome ids and discrete definition, by id.
inline std::vector<double> Table(const VEK_network& net, const char* id) {
    const int h = net.FindNode(id);
    EXPECT_GE(h, 0) << id;
    if (h < 0) return {};
    return net.GetDef(h)->GetMatrix()->GetItems().ToVector();
}

inline std::vector<std::string> Parents(const VEK_network& net, const char* id) {
    std::vector<std::string> out;
    const int h = net.FindNode(id);
    if (h < 0) return out;
    for (int p : net.GetNode(h)->Parents()) out.push_back(net.GetNodeId(p));
    return out;
}

inline std::vector<std::string> States(const VEK_network& net, const char* id) {
    const int h = net.FindNode(id);
    if (h < 0) return {};
    return net.GetDef(h)->GetOutcomeIds()->ToVector();
}

inline const VEK_discDef* Disc(const VEK_network& net, const char* id) {
    return static_cast<const VEK_discDef*>(net.GetDef(net.FindNode(id)));
}

// The last message of a logger ("" when none).
inline std::string LastMessage(const VEK_network& net) {
    int n = net.Logger().GetErrorCount();
    return n > 0 ? std::string(net.Logger().GetErrorMessage(n - 1)) : std::string();
}

// How a format keeps names and labels.
enum class Names {
    Ids,         // only ids survive
    Repairable,  // a name survives when repairing it gives the id (no spaces)
    Spaced,      // as Repairable, and spaces may stand in the name
    Free         // any text survives
};

struct GenOptions {
    int nodes = 8;
    int maxParents = 3;
    int maxStates = 4;
    bool decisions = false;
    bool utilities = false;
    bool truthTables = false;
    Names names = Names::Ids;
    Names labels = Names::Ids;
    bool positions = false;
    bool comments = false;
    bool properties = false;
    bool levels = false;   // point values and intervals
    bool utf8Ids = false;  // ids with bytes >= 128
};

class Generator {
public:
    explicit Generator(unsigned seed) : rng_(seed), gen_(seed + 1) {}

    // A random network; node handles are not in topological order, parents
    // are added in random order.
    void Build(VEK_network& net, const GenOptions& o) {
        std::set<std::string> used;
        std::vector<int> handles;
        std::vector<int> kinds;  // 0 chance, 1 truth table, 2 decision, 3 utility
        for (int i = 0; i < o.nodes; ++i) {
            int kind = 0;
            int r = Int(10);
            if (o.truthTables && r == 0) kind = 1;
            if (o.decisions && r == 1) kind = 2;
            if (o.utilities && (r == 2 || r == 3)) kind = 3;
            const int type = kind == 1 ? VEK_TRUTHTABLE : kind == 2 ? VEK_LIST : kind == 3 ? VEK_TABLE : VEK_CPT;
            std::string name;
            std::string id = MakeId(used, o.names, o.utf8Ids, name);
            int h = net.AddNode(type, id.c_str());
            EXPECT_GE(h, 0) << id;
            if (!name.empty()) net.GetNode(h)->Header().SetName(name.c_str());
            if (kind != 3) {
                int n = 2 + Int(o.maxStates - 1);
                VEK_idArray ids;
                std::set<std::string> stateUsed;
                std::vector<std::string> labels;
                for (int k = 0; k < n; ++k) {
                    std::string label;
                    ids.Add(MakeId(stateUsed, o.labels, o.utf8Ids, label).c_str());
                    labels.push_back(label);
                }
                auto* def = static_cast<VEK_discDef*>(net.GetDef(h));
                EXPECT_EQ(def->SetNumberOfOutcomes(ids), 0);
                for (int k = 0; k < n; ++k) {
                    if (!labels[k].empty()) def->SetOutcomeLabel(k, labels[k].c_str());
                }
                if (o.levels && kind != 2 && Int(4) == 0) {
                    std::vector<double> edges{Real(-10, 0)};
                    for (int k = 0; k < n; ++k) edges.push_back(edges.back() + Real(0.5, 3));
                    EXPECT_EQ(def->SetIntervals(edges, false), 0);
                } else if (o.levels && Int(4) == 0) {
                    std::vector<double> points;
                    for (int k = 0; k < n; ++k) points.push_back(k * 1.5 + Real(0, 1));
                    EXPECT_EQ(def->SetPointValues(points), 0);
                }
                if (o.comments && Int(2) == 0) def->SetOutcomeComment(Int(n), "state note");
            }
            VEK_node* node = net.GetNode(h);
            if (o.positions) {
                node->Info().screen.position.centerX = Int(1000) - 100;
                node->Info().screen.position.centerY = Int(800);
            }
            if (o.comments && Int(2) == 0) node->Header().SetComment(Int(2) ? "A comment with \"quotes\"\nand a line" : "plain");
            if (o.properties && Int(2) == 0) {
                node->Info().userProperties.AddProperty("owner", "dept \"x\" \\ y");
                node->Info().userProperties.AddProperty("weight", "12.5");
            }
            handles.push_back(h);
            kinds.push_back(kind);
        }
        // Arcs follow a random rank, not the handles.
        std::vector<int> rank(handles.size());
        for (size_t i = 0; i < rank.size(); ++i) rank[i] = static_cast<int>(i);
        std::shuffle(rank.begin(), rank.end(), rng_);
        for (size_t c = 0; c < handles.size(); ++c) {
            std::vector<size_t> candidates;
            for (size_t p = 0; p < handles.size(); ++p) {
                if (rank[p] < rank[c] && kinds[p] != 3) candidates.push_back(p);
            }
            std::shuffle(candidates.begin(), candidates.end(), rng_);
            int want = Int(o.maxParents + 1);
            for (int k = 0; k < want && k < static_cast<int>(candidates.size()); ++k) {
                EXPECT_EQ(net.AddArc(handles[candidates[k]], handles[c]), 0);
            }
        }
        for (size_t i = 0; i < handles.size(); ++i) {
            VEK_nodeDef* def = net.GetDef(handles[i]);
            if (kinds[i] == 3) {
                VEK_Dmatrix& m = def->GetWriteableParameters();
                for (int k = 0; k < m.GetSize(); ++k) m[k] = Real(-50, 50);
            } else if (kinds[i] != 2) {
                EXPECT_EQ(def->MakeRandom(gen_), 0);
            }
        }
        net.Header().SetId("RandomNet");
    }

    int Int(int n) { return n <= 0 ? 0 : std::uniform_int_distribution<int>(0, n - 1)(rng_); }
    double Real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng_); }

private:
    std::string Word(int maxLength) {
        static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
        static const char tail[] = "abcdefghijklmnopqrstuvwxyz0123456789";
        std::string w(1, letters[Int(52)]);
        int n = Int(maxLength);
        for (int i = 0; i < n; ++i) w += tail[Int(36)];
        return w;
    }

    // A fresh id, and in name the text the format keeps for it ("" for none).
    std::string MakeId(std::set<std::string>& used, Names style, bool utf8, std::string& name) {
        for (;;) {
            name.clear();
            std::string id = Word(8);
            if (utf8 && Int(4) == 0) id += "\xC3\xA9t\xC3\xA9";  // "été"
            int r = Int(3);
            if (style != Names::Ids && r == 0) {
                // Separators that the id repair turns into underscores.
                static const char* spaced[] = {" ", "-", "/", ".", "+", " - "};
                static const char* tight[] = {"-", "/", ".", "+", "%", "&&"};
                std::string sep = style == Names::Repairable ? tight[Int(6)] : spaced[Int(6)];
                std::string second = Word(5);
                name = id + sep + second;
                id = id + std::string(sep.size(), '_') + second;
            } else if (style == Names::Free && r == 1) {
                static const char* texts[] = {"Visit to \"Asia\"?", "back\\slash", "\xC3\x9Cnicode name", "with\ttab",
                                              "a;b{c}(d)", "1st choice"};
                name = std::string(texts[Int(6)]) + " " + Word(3);
            }
            if (used.insert(id).second) return id;
        }
    }

    std::mt19937 rng_;
    VEK_randGen gen_;
};

struct Compare {
    bool names = false;
    bool labels = false;
    bool positions = false;
    bool comments = false;
    bool properties = false;
    bool levels = false;
    double tolerance = 0.0;  // of table entries
    // The type the read network holds for a type of the written one.
    std::function<int(int)> type = [](int t) { return t; };
};

// Chance nodes of every kind come back as probability tables.
inline int AsCpt(int type) { return type == VEK_LIST || type == VEK_TABLE ? type : VEK_CPT; }

// Checks that b holds what a holds, as far as c asks; nodes by id.
inline void ExpectSameNetwork(const VEK_network& a, const VEK_network& b, const Compare& c) {
    ASSERT_EQ(a.GetNumberOfNodes(), b.GetNumberOfNodes());
    for (int ha = a.GetFirstNode(); ha >= 0; ha = a.GetNextNode(ha)) {
        const char* id = a.GetNodeId(ha);
        SCOPED_TRACE(std::string("node ") + id);
        int hb = b.FindNode(id);
        ASSERT_GE(hb, 0);
        const VEK_node& na = *a.GetNode(ha);
        const VEK_node& nb = *b.GetNode(hb);
        const VEK_nodeDef* da = na.Definition();
        const VEK_nodeDef* db = nb.Definition();
        EXPECT_EQ(db->GetType(), c.type(da->GetType()));
        if (c.names) {
            EXPECT_STREQ(nb.Header().GetName(), na.Header().GetName());
        }
        if (c.comments) {
            EXPECT_STREQ(nb.Header().GetComment(), na.Header().GetComment());
        }
        if (c.positions) {
            EXPECT_EQ(nb.Info().screen.position.centerX, na.Info().screen.position.centerX);
            EXPECT_EQ(nb.Info().screen.position.centerY, na.Info().screen.position.centerY);
        }
        if (c.properties) {
            EXPECT_EQ(nb.Info().userProperties.Items(), na.Info().userProperties.Items());
        }
        std::vector<std::string> pa, pb;
        for (int k = 0; k < na.Parents().GetSize(); ++k) pa.push_back(a.GetNodeId(na.Parents()[k]));
        for (int k = 0; k < nb.Parents().GetSize(); ++k) pb.push_back(b.GetNodeId(nb.Parents()[k]));
        EXPECT_EQ(pb, pa);
        if (da->GetType() != VEK_TABLE) {
            const auto* xa = static_cast<const VEK_discDef*>(da);
            const auto* xb = static_cast<const VEK_discDef*>(db);
            EXPECT_EQ(xb->GetOutcomeIds()->ToVector(), xa->GetOutcomeIds()->ToVector());
            for (int k = 0; k < xa->GetNumberOfOutcomes() && k < xb->GetNumberOfOutcomes(); ++k) {
                if (c.labels) {
                    EXPECT_STREQ(xb->GetOutcomeLabel(k), xa->GetOutcomeLabel(k)) << "outcome " << k;
                }
                if (c.comments) {
                    EXPECT_STREQ(xb->GetOutcomeComment(k), xa->GetOutcomeComment(k)) << "outcome " << k;
                }
            }
            if (c.levels) {
                EXPECT_EQ(xb->GetIntervals(), xa->GetIntervals());
                EXPECT_EQ(xb->GetPointValues(), xa->GetPointValues());
            }
        }
        if (da->GetType() != VEK_LIST) {
            const VEK_Dmatrix* ma = da->GetMatrix();
            const VEK_Dmatrix* mb = db->GetMatrix();
            ASSERT_TRUE(ma && mb);
            ASSERT_EQ(mb->GetDimensions().ToVector(), ma->GetDimensions().ToVector());
            // Exact by default: every double is written so that it reads back the same.
            int mismatches = 0;
            for (int i = 0; i < ma->GetSize(); ++i) {
                if ((*mb)[i] != (*ma)[i] && !(std::fabs((*mb)[i] - (*ma)[i]) <= c.tolerance) && ++mismatches <= 5) {
                    ADD_FAILURE() << "item " << i << ": " << (*mb)[i] << " vs " << (*ma)[i];
                }
            }
        }
    }
}

// Writes net in format, reads the file back into out; both must succeed.
inline void RoundTrip(VEK_network& net, int format, const char* extension, VEK_network& out, std::string* text = nullptr) {
    TempFile file(extension);
    ASSERT_EQ(net.WriteFile(file.c_str(), format), 0) << LastMessage(net);
    if (text) *text = file.Read();
    ASSERT_EQ(out.ReadFile(file.c_str(), format), 0) << LastMessage(out) << "\n" << file.Read();
}

// Reads text as a file of the format into net; the status.
inline int ReadText(VEK_network& net, const std::string& text, const char* extension) {
    TempFile file(extension);
    file.Write(text);
    return net.ReadFile(file.c_str());
}

// A network the failed reads must leave alone.
inline void MakeSentinel(VEK_network& net) {
    int a = net.AddNode(VEK_CPT, "sentinelA");
    int b = net.AddNode(VEK_CPT, "sentinelB");
    net.AddArc(a, b);
    net.Header().SetId("sentinel");
}

inline void ExpectSentinel(const VEK_network& net) {
    EXPECT_EQ(net.GetNumberOfNodes(), 2);
    EXPECT_GE(net.FindNode("sentinelA"), 0);
    EXPECT_GE(net.FindNode("sentinelB"), 0);
    EXPECT_STREQ(net.Header().GetId(), "sentinel");
}

// The line and column of "Error at L, C" in a message; false when absent.
inline bool ErrorPosition(const std::string& message, int& line, int& column) {
    return std::sscanf(message.c_str(), "Error at %d, %d", &line, &column) == 2;
}

// Reads text into net; the status.
using Reader = std::function<int(VEK_network&, const std::string&)>;

// A reader through the file dispatch, with extension and format.
inline Reader FileReader(const char* extension, int format = -1) {
    return [extension, format](VEK_network& net, const std::string& text) {
        TempFile file(extension);
        file.Write(text);
        return format < 0 ? net.ReadFile(file.c_str()) : net.ReadFile(file.c_str(), format);
    };
}

// An input that must be refused with a message "Error at line, column"
// (column 0: any) holding part.
struct Fault {
    std::string text;
    int line, column;
    const char* part;
};

// Each fault fails with the read error, logs it at its position and leaves
// the network as it was.
inline void ExpectFaults(const Reader& read, const std::vector<Fault>& faults) {
    for (const Fault& f : faults) {
        SCOPED_TRACE(f.text.substr(0, 300));
        VEK_network net;
        MakeSentinel(net);
        EXPECT_EQ(read(net, f.text), VEK_FILE_READ_ERROR);
        EXPECT_EQ(net.Logger().GetLastError(), VEK_FILE_READ_ERROR);
        const std::string message = LastMessage(net);
        int l = -1, c = -1;
        EXPECT_TRUE(ErrorPosition(message, l, c)) << message;
        EXPECT_EQ(l, f.line) << message;
        if (f.column > 0) {
            EXPECT_EQ(c, f.column) << message;
        }
        EXPECT_NE(message.find(f.part), std::string::npos) << message;
        ExpectSentinel(net);
    }
}

// An input that either reads or fails with a positioned message, leaving the
// network alone; the sanitizer build checks that nothing leaks or overflows.
inline void ExpectReadOrCleanFailure(const Reader& read, const std::string& input) {
    VEK_network net;
    MakeSentinel(net);
    if (read(net, input) == 0) return;
    int l, c;
    EXPECT_TRUE(ErrorPosition(LastMessage(net), l, c)) << LastMessage(net);
    ExpectSentinel(net);
}

// Random prefixes of text and copies with bytes overwritten at random.
inline void ExpectCutAndGarbledFailCleanly(const Reader& read, const std::string& text, unsigned seed, int cuts,
                                           int garbles) {
    ASSERT_GT(text.size(), 1000u);
    std::mt19937 rng(seed);
    for (int i = 0; i < cuts; ++i) ExpectReadOrCleanFailure(read, text.substr(0, rng() % text.size()));
    for (int i = 0; i < garbles; ++i) {
        std::string g = text;
        for (int k = 0; k < 8; ++k) g[rng() % g.size()] = static_cast<char>(rng() % 256);
        ExpectReadOrCleanFailure(read, g);
    }
}

// Replaces every "\n" by "\r\n" and puts a byte order mark in front.
inline std::string WithCrlfAndBom(const std::string& text) {
    std::string out = "\xEF\xBB\xBF";
    for (char ch : text) {
        if (ch == '\n') out += '\r';
        out += ch;
    }
    return out;
}

// text, and text with CRLF line ends and a byte order mark, read as a file
// with the extension: both read and pass check.
inline void ExpectReadsWithEitherLineEnds(const std::string& text, const char* extension,
                                          const std::function<void(const VEK_network&)>& check) {
    for (const std::string& variant : {text, WithCrlfAndBom(text)}) {
        VEK_network net;
        ASSERT_EQ(ReadText(net, variant, extension), 0) << LastMessage(net);
        check(net);
    }
}


}  // namespace foreign
