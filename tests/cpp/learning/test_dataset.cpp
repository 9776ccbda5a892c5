#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include "learning/dataset.h"
#include "network/status.h"

namespace {

namespace fs = std::filesystem;

class DatasetFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("quarn_dataset_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    std::string Write(const std::string& content, const std::string& name = "data.txt") {
        std::string path = (dir_ / name).string();
        std::ofstream out(path, std::ios::binary);
        out << content;
        return path;
    }
    // Reads content; returns the status and keeps the message.
    int Read(const std::string& content, const VEK_datasetParseParams* params = nullptr) {
        message_.clear();
        return data_.ReadFile(Write(content).c_str(), params, &message_);
    }

    fs::path dir_;
    VEK_dataset data_;
    std::string message_;
};

// Every column as long as the record count, every named cell a state index.
void ExpectConsistent(const VEK_dataset& d) {
    for (int v = 0; v < d.GetNumberOfVariables(); ++v) {
        const VEK_dataset::Variable& var = d.GetVariable(v);
        size_t cells = var.discrete ? var.intData.size() : var.floatData.size();
        ASSERT_EQ(cells, static_cast<size_t>(d.GetNumberOfRecords())) << "column " << v;
        if (var.discrete && !var.stateNames.empty()) {
            for (int r = 0; r < d.GetNumberOfRecords(); ++r) {
                if (d.IsMissing(v, r)) continue;
                ASSERT_GE(d.GetInt(v, r), 0);
                ASSERT_LT(d.GetInt(v, r), static_cast<int>(var.stateNames.size()));
            }
        }
    }
}

TEST_F(DatasetFile, ColumnKindsAreInferredFromValues) {
    ASSERT_EQ(Read("a,b\n1,2.5\n"), VEK_OKAY) << message_;
    ASSERT_EQ(data_.GetNumberOfVariables(), 2);
    ASSERT_EQ(data_.GetNumberOfRecords(), 1);
    EXPECT_STREQ(data_.GetId(0), "a");
    EXPECT_TRUE(data_.IsDiscrete(0));
    EXPECT_EQ(data_.GetInt(0, 0), 1);
    EXPECT_TRUE(data_.GetStateNames(0).empty());
    EXPECT_FALSE(data_.IsDiscrete(1));
    EXPECT_FLOAT_EQ(data_.GetFloat(1, 0), 2.5f);

    // Ints stored before the first fraction become floats, missing stays missing.
    ASSERT_EQ(Read("x\n3\n*\n0.25\n-7\n"), VEK_OKAY) << message_;
    ASSERT_FALSE(data_.IsDiscrete(0));
    EXPECT_FLOAT_EQ(data_.GetFloat(0, 0), 3.0f);
    EXPECT_TRUE(data_.IsMissing(0, 1));
    EXPECT_TRUE(std::isnan(data_.GetFloat(0, 1)));
    EXPECT_FLOAT_EQ(data_.GetFloat(0, 2), 0.25f);
    EXPECT_FLOAT_EQ(data_.GetFloat(0, 3), -7.0f);
    EXPECT_TRUE(data_.HasMissingData(0));

    // Whole numbers, signs, exponents and trailing spaces stay numbers.
    ASSERT_EQ(Read("n\n+4\n1e2\n  -3  \n"), VEK_OKAY) << message_;
    ASSERT_TRUE(data_.IsDiscrete(0));
    EXPECT_TRUE(data_.GetStateNames(0).empty());
    EXPECT_EQ(data_.GetInt(0, 0), 4);
    EXPECT_EQ(data_.GetInt(0, 1), 100);
    EXPECT_EQ(data_.GetInt(0, 2), -3);
    EXPECT_FALSE(data_.HasMissingData(0));

    // A whole number beyond int range cannot be an int cell.
    ASSERT_EQ(Read("big\n1\n3000000000\n"), VEK_OKAY) << message_;
    EXPECT_FALSE(data_.IsDiscrete(0));
    EXPECT_FLOAT_EQ(data_.GetFloat(0, 1), 3e9f);
}

TEST_F(DatasetFile, NamedStatesAreSortedByText) {
    ASSERT_EQ(Read("s\nyes\nno\nyes\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"no", "yes"}));
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{1, 0, 1}));

    // Numbers seen before the first word turn into names.
    ASSERT_EQ(Read("s\n1\n2\nx\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"1", "2", "x"}));
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{0, 1, 2}));

    ASSERT_EQ(Read("s\n10\n9\nx\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"10", "9", "x"}));
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{0, 1, 2}));

    // Missing cells before and after the switch stay missing; numbers after
    // it are names too.
    ASSERT_EQ(Read("a,b\n5,1\n*,2\nlow,3\n5,4\n7,5\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"5", "7", "low"}));
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{0, -1, 2, 0, 1}));
    EXPECT_TRUE(data_.IsMissing(0, 1));

    // A continuous column meeting a word keeps its values as names.
    ASSERT_EQ(Read("f\n0.5\n*\nhigh\n"), VEK_OKAY) << message_;
    ASSERT_TRUE(data_.IsDiscrete(0));
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"0.5", "high"}));
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{0, -1, 1}));

    // Words that strtod would take for numbers are names here.
    ASSERT_EQ(Read("w\nnan\ninf\n0x10\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"0x10", "inf", "nan"}));
    ASSERT_EQ(Read("w\n1\n+-3\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"+-3", "1"}));

    // Byte order: upper case before lower case, high bytes last.
    ASSERT_EQ(Read("w\nb\n\xc3\xa9\nB\na\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"B", "a", "b", "\xc3\xa9"}));
    ExpectConsistent(data_);
}

TEST_F(DatasetFile, MissingValuesFollowTokenAndMarkers) {
    VEK_datasetParseParams p;
    p.missingValueToken = "n/a";
    ASSERT_EQ(Read("a,b,c\nN/A,1.5,x\n2,n/A,\n,3,y\n", &p), VEK_OKAY) << message_;
    EXPECT_TRUE(data_.IsMissing(0, 0));
    EXPECT_EQ(data_.GetInt(0, 1), 2);
    EXPECT_TRUE(data_.IsMissing(0, 2));
    EXPECT_TRUE(data_.IsMissing(1, 1));
    EXPECT_TRUE(data_.IsMissing(2, 1));
    EXPECT_FALSE(data_.IsMissing(2, 0));
    // With another token the default star is an ordinary state name.
    ASSERT_EQ(Read("a\n*\nq\n", &p), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"*", "q"}));

    p = VEK_datasetParseParams();
    p.missingInt = -99;
    p.missingFloat = -1.0f;
    ASSERT_EQ(Read("i,f\n*,*\n4,0.5\n", &p), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetMissingInt(0), -99);
    EXPECT_EQ(data_.GetInt(0, 0), -99);
    EXPECT_TRUE(data_.IsMissing(0, 0));
    EXPECT_FLOAT_EQ(data_.GetMissingFloat(1), -1.0f);
    EXPECT_FLOAT_EQ(data_.GetFloat(1, 0), -1.0f);
    EXPECT_TRUE(data_.IsMissing(1, 0));
    EXPECT_FALSE(data_.IsMissing(1, 1));

    // A non-negative int marker would be a state index: named columns use -1.
    p = VEK_datasetParseParams();
    p.missingInt = 0;
    ASSERT_EQ(Read("s\n*\nred\n", &p), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetMissingInt(0), -1);
    EXPECT_TRUE(data_.IsMissing(0, 0));
    EXPECT_EQ(data_.GetInt(0, 1), 0);
}

TEST(Dataset, MissingFloatRule) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(VEK_dataset::IsMissingFloat(nan, nan));
    EXPECT_TRUE(VEK_dataset::IsMissingFloat(inf, nan));
    EXPECT_TRUE(VEK_dataset::IsMissingFloat(-inf, nan));
    EXPECT_FALSE(VEK_dataset::IsMissingFloat(0.0f, nan));
    EXPECT_TRUE(VEK_dataset::IsMissingFloat(nan, -inf));
    EXPECT_FALSE(VEK_dataset::IsMissingFloat(1e30f, inf));
    EXPECT_TRUE(VEK_dataset::IsMissingFloat(-9.0f, -9.0f));
    EXPECT_FALSE(VEK_dataset::IsMissingFloat(nan, -9.0f));
    EXPECT_FALSE(VEK_dataset::IsMissingFloat(-9.5f, -9.0f));
}

TEST_F(DatasetFile, SeparatorComesFromTheFirstLine) {
    ASSERT_EQ(Read("a\tb,c\n1\t2,3\n"), VEK_OKAY) << message_;
    ASSERT_EQ(data_.GetNumberOfVariables(), 2);
    EXPECT_STREQ(data_.GetId(1), "b,c");
    EXPECT_EQ(data_.GetStateNames(1), (std::vector<std::string>{"2,3"}));

    ASSERT_EQ(Read("a;b c\n1;2\n"), VEK_OKAY) << message_;
    ASSERT_EQ(data_.GetNumberOfVariables(), 2);
    EXPECT_STREQ(data_.GetId(1), "b c");

    ASSERT_EQ(Read("a b  c\n1 2 3\n"), VEK_OKAY) << message_;
    ASSERT_EQ(data_.GetNumberOfVariables(), 3);
    EXPECT_STREQ(data_.GetId(2), "c");

    // No separator: one column, CRLF endings, blank lines skipped.
    ASSERT_EQ(Read("only\r\n4\r\n\r\n5\r\n\n"), VEK_OKAY) << message_;
    ASSERT_EQ(data_.GetNumberOfVariables(), 1);
    EXPECT_STREQ(data_.GetId(0), "only");
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{4, 5}));

    // Quoted fields, leading spaces skipped.
    ASSERT_EQ(Read("a,b\n \"x,1\",\"a\"\"b\"\n\"\",2\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"x,1"}));
    EXPECT_TRUE(data_.IsMissing(0, 1));
    EXPECT_EQ(data_.GetStateNames(1), (std::vector<std::string>{"2", "a\"b"}));

    std::string longLine(129, 'x');
    EXPECT_EQ(Read(longLine + "\n1\n"), VEK_FILE_IO_FAILED);
    EXPECT_EQ(message_, "First line has more than 128 characters and no separators were found");
    EXPECT_EQ(Read(std::string(128, 'x') + "\n1\n"), VEK_OKAY) << message_;
}

TEST_F(DatasetFile, WithoutColumnIdsTheFirstLineIsData) {
    VEK_datasetParseParams p;
    p.columnIdsPresent = false;
    ASSERT_EQ(Read("1,a\n2,b\n", &p), VEK_OKAY) << message_;
    ASSERT_EQ(data_.GetNumberOfVariables(), 2);
    ASSERT_EQ(data_.GetNumberOfRecords(), 2);
    EXPECT_STREQ(data_.GetId(0), "Column1");
    EXPECT_STREQ(data_.GetId(1), "Column2");
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{1, 2}));
    EXPECT_EQ(data_.GetStateNames(1), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(Read("1,,\n2,3\n", &p), VEK_FILE_IO_FAILED);
    EXPECT_EQ(message_, "Line 2: expected 3 columns of data but found 2");
}

TEST_F(DatasetFile, ParseFaultsReportLineAndCause) {
    struct Case {
        std::string content;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"", "Can't read first line of file"},
        {"\n1\n", "The header line is empty"},
        {"a,b,\n1,2,3\n", "Trailing separator found in the header line"},
        {"a,,b\n1,2,3\n", "Column name 2 is empty"},
        {"a,b,a\n1,2,3\n", "Duplicated column name: a"},
        {"\"a,b\n", "Can't recognize column names/values in the first line"},
        {"a,b\n1,2\n3\n", "Line 3: expected 2 columns of data but found 1"},
        {"a,b\n1,2\n\n3,4,5\n", "Line 4: expected 2 columns of data but found 3"},
        {"a,b\n\"ab\"c,1\n", "Line 2: Unexpected character in the quoted string"},
        {"a,b\n\"ab,1\n", "Line 2: Unexpected endline in the quoted string"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Read(c.content), VEK_FILE_IO_FAILED) << c.content;
        EXPECT_EQ(message_, c.message) << c.content;
        ExpectConsistent(data_);
    }
    // What was read before the fault stays, sorted and consistent.
    ASSERT_EQ(Read("s,t\nb,1\na,2\nc\n"), VEK_FILE_IO_FAILED);
    EXPECT_EQ(data_.GetNumberOfRecords(), 2);
    EXPECT_EQ(data_.GetStateNames(0), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(data_.GetVariable(0).intData, (std::vector<int>{1, 0}));

    // An unopenable file leaves the dataset as it was.
    std::string missing = (dir_ / "no_such_file.txt").string();
    EXPECT_EQ(data_.ReadFile(missing.c_str(), nullptr, &message_), VEK_FILE_IO_FAILED);
    EXPECT_EQ(message_, "Can't open data file: " + missing);
    EXPECT_EQ(data_.GetNumberOfRecords(), 2);
}

TEST_F(DatasetFile, WriteAndReadBack) {
    VEK_dataset d;
    ASSERT_EQ(d.AddIntVariable("n"), 0);
    ASSERT_EQ(d.AddIntVariable("s"), 1);
    ASSERT_EQ(d.AddFloatVariable("f"), 2);
    ASSERT_EQ(d.SetStateNames(1, {"a,b", "q\"t", "plain"}), VEK_OKAY);
    for (int r = 0; r < 4; ++r) ASSERT_EQ(d.AddEmptyRecord(), r);
    for (auto [v, r, x] : {std::tuple{0, 0, 12}, {0, 1, -4}, {1, 0, 0}, {1, 1, 1}, {1, 2, 2}})
        ASSERT_EQ(d.SetInt(v, r, x), VEK_OKAY);
    for (auto [r, x] : {std::pair{0, 0.1f}, {1, -2.75f}, {2, 1e-7f}}) ASSERT_EQ(d.SetFloat(2, r, x), VEK_OKAY);

    std::string path = (dir_ / "out.csv").string();
    VEK_datasetWriteParams w;
    w.separator = ',';
    w.missingValueToken = "?";
    std::string msg;
    ASSERT_EQ(d.WriteFile(path.c_str(), &w, &msg), VEK_OKAY) << msg;
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "n,s,f\n12,\"a,b\",0.1\n-4,\"q\"\"t\",-2.75\n?,plain,1e-07\n?,?,?\n");

    VEK_datasetParseParams p;
    p.missingValueToken = "?";
    VEK_dataset back;
    ASSERT_EQ(back.ReadFile(path.c_str(), &p, &msg), VEK_OKAY) << msg;
    ASSERT_EQ(back.GetNumberOfRecords(), 4);
    EXPECT_EQ(back.GetVariable(0).intData, (std::vector<int>{12, -4, -1, -1}));
    // The names come back sorted; the cells follow them.
    EXPECT_EQ(back.GetStateNames(1), (std::vector<std::string>{"a,b", "plain", "q\"t"}));
    EXPECT_EQ(back.GetVariable(1).intData, (std::vector<int>{0, 2, 1, -1}));
    ASSERT_FALSE(back.IsDiscrete(2));
    EXPECT_EQ(back.GetFloat(2, 0), 0.1f);
    EXPECT_EQ(back.GetFloat(2, 2), 1e-7f);
    EXPECT_TRUE(back.IsMissing(2, 3));

    // Tab default, no header, a printf format for floats.
    w = VEK_datasetWriteParams();
    w.columnIdsPresent = false;
    w.floatFormat = "%.3f";
    ASSERT_EQ(d.WriteFile(path.c_str(), &w, &msg), VEK_OKAY) << msg;
    std::ifstream in2(path);
    std::string first;
    std::getline(in2, first);
    EXPECT_EQ(first, "12\ta,b\t0.100");

    // Parameters that would write an unreadable file or misuse printf.
    for (const char* bad : {"%s", "%d", "%f%f", "abc", "%n", "%1000f", "%Lf"}) {
        w.floatFormat = bad;
        EXPECT_EQ(d.WriteFile(path.c_str(), &w, &msg), VEK_OUT_OF_RANGE) << bad;
    }
    w.floatFormat = "%%%+08.2e%%";
    EXPECT_EQ(d.WriteFile(path.c_str(), &w, &msg), VEK_OKAY) << msg;
    w.separator = '"';
    EXPECT_EQ(d.WriteFile(path.c_str(), &w, &msg), VEK_OUT_OF_RANGE);
    w.separator = ',';
    std::string noDir = (dir_ / "missing_dir" / "x.csv").string();
    EXPECT_EQ(d.WriteFile(noDir.c_str(), &w, &msg), VEK_FILE_IO_FAILED);
    EXPECT_EQ(msg, "Can't open data file: " + noDir);
}

TEST(Dataset, CellAccessKeepsColumnsValid) {
    VEK_dataset d;
    EXPECT_EQ(d.AddIntVariable(""), VEK_OUT_OF_RANGE);
    ASSERT_EQ(d.AddIntVariable("a", -5), 0);
    EXPECT_EQ(d.AddFloatVariable("a"), VEK_DUPLICATED_IDENTIFIER);
    ASSERT_EQ(d.AddEmptyRecord(), 0);
    ASSERT_EQ(d.AddFloatVariable("b", -1.0f), 1);
    ASSERT_EQ(d.AddEmptyRecord(), 1);
    // A column added later is filled with its marker for existing records.
    EXPECT_TRUE(d.IsMissing(1, 0));
    EXPECT_EQ(d.GetFloat(1, 0), -1.0f);
    EXPECT_EQ(d.GetInt(0, 1), -5);
    EXPECT_TRUE(d.HasMissingData(0));

    EXPECT_EQ(d.SetInt(0, 2, 1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.SetInt(2, 0, 1), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.SetInt(1, 0, 1), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(d.SetFloat(0, 0, 1.0f), VEK_WRONG_NODE_TYPE);
    ASSERT_EQ(d.SetInt(0, 0, 3), VEK_OKAY);
    ASSERT_EQ(d.SetInt(0, 1, 0), VEK_OKAY);
    EXPECT_FALSE(d.HasMissingData(0));

    // Names must cover the cells already stored.
    EXPECT_EQ(d.SetStateNames(0, {"x", "y"}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.SetStateNames(0, {"x", "y", "x", "z"}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.SetStateNames(0, {"w", "", "y", "z"}), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.SetStateNames(1, {"x"}), VEK_WRONG_NODE_TYPE);
    EXPECT_TRUE(d.GetStateNames(0).empty());
    ASSERT_EQ(d.SetStateNames(0, {"w", "x", "y", "z"}), VEK_OKAY);
    EXPECT_EQ(d.SetInt(0, 0, 4), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.SetInt(0, 0, -5), VEK_OKAY);  // the marker is always allowed
    EXPECT_TRUE(d.IsMissing(0, 0));

    EXPECT_EQ(d.SetId(1, "a"), VEK_DUPLICATED_IDENTIFIER);
    EXPECT_EQ(d.SetId(1, "c"), VEK_OKAY);
    EXPECT_EQ(d.FindVariable("c"), 1);
    EXPECT_EQ(d.FindVariable("b"), VEK_NO_ITEM);

    ASSERT_EQ(d.RemoveRecord(0), VEK_OKAY);
    EXPECT_EQ(d.GetNumberOfRecords(), 1);
    EXPECT_EQ(d.GetInt(0, 0), 0);
    ASSERT_EQ(d.RemoveVariable(0), VEK_OKAY);
    EXPECT_EQ(d.GetNumberOfVariables(), 1);
    EXPECT_STREQ(d.GetId(0), "c");
    EXPECT_EQ(d.GetId(1), nullptr);
    ExpectConsistent(d);
}

// Damaged input of every kind: never a crash, always a status, a message on
// failure and a consistent dataset afterwards.
TEST_F(DatasetFile, DamagedInputFailsCleanly) {
    std::mt19937 rng(12345);
    const std::string good = "id,age,colour,w\n1,34,red,0.5\n2,*,\"bl,ue\",1.25\n3,51,green,*\n";
    auto check = [&](const std::string& content) {
        int res = Read(content);
        EXPECT_TRUE(res == VEK_OKAY || res == VEK_FILE_IO_FAILED) << res;
        if (res != VEK_OKAY) {
            EXPECT_FALSE(message_.empty());
        }
        ExpectConsistent(data_);
    };
    for (size_t n = 0; n <= good.size(); ++n) check(good.substr(0, n));
    for (int round = 0; round < 300; ++round) {
        std::string s = good;
        int edits = 1 + static_cast<int>(rng() % 6);
        for (int e = 0; e < edits; ++e) {
            size_t at = rng() % s.size();
            switch (rng() % 3) {
                case 0: s[at] = static_cast<char>(rng() % 256); break;
                case 1: s.insert(at, 1, "\",\n\r\t; *"[rng() % 9]); break;
                default: s.erase(at, 1 + rng() % 4); break;
            }
            if (s.empty()) s = "x";
        }
        check(s);
    }
    std::string binary(5000, '\0');
    for (char& c : binary) c = static_cast<char>(rng() % 256);
    check(binary);
    check(std::string("a,b\n1,\0x\n", 9));

    // A very long line, with and without separators.
    check("a,b\n" + std::string(3 << 20, '7') + ",1\n");
    check(std::string(3 << 20, 'q'));
    // Far more columns than any real file: refused, not attempted.
    std::string wide;
    for (int i = 0; i < 300000; ++i) wide += ",";
    EXPECT_EQ(Read("a" + wide + "\n"), VEK_FILE_IO_FAILED);
    EXPECT_NE(message_.find("columns are not supported"), std::string::npos) << message_;
    EXPECT_EQ(data_.GetNumberOfVariables(), 0);
    // Many columns within the limit are fine.
    std::string header, row;
    for (int i = 0; i < 20000; ++i) {
        header += (i ? ",c" : "c") + std::to_string(i);
        row += (i ? "," : "") + std::to_string(i % 7);
    }
    ASSERT_EQ(Read(header + "\n" + row + "\n" + row + "\n"), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetNumberOfVariables(), 20000);
    EXPECT_EQ(data_.GetInt(19999, 1), 19999 % 7);
}

// A file far larger than the reader's chunks keeps every record and every
// column's kind; the reading speed is measured in bench/bench_learning.
TEST_F(DatasetFile, LargeFileKeepsEveryRecord) {
    std::mt19937 rng(7);
    std::string text = "a,b,c,d,e,f\n";
    const char* words[] = {"low", "mid", "high"};
    int records = 0;
    while (text.size() < (2u << 20)) {
        text += std::to_string(rng() % 5) + "," + words[rng() % 3] + "," + std::to_string(rng() % 1000 / 7.0) +
                "," + (rng() % 10 == 0 ? "*" : std::to_string(rng() % 2)) + "," + std::to_string(rng() % 100) +
                "," + words[rng() % 3] + "\n";
        ++records;
    }
    std::string path = Write(text, "big.csv");
    ASSERT_EQ(data_.ReadFile(path.c_str(), nullptr, &message_), VEK_OKAY) << message_;
    EXPECT_EQ(data_.GetNumberOfRecords(), records);
    EXPECT_EQ(data_.GetStateNames(1), (std::vector<std::string>{"high", "low", "mid"}));
    EXPECT_FALSE(data_.IsDiscrete(2));
    EXPECT_TRUE(data_.HasMissingData(3));
    ExpectConsistent(data_);
}

}  // namespace
