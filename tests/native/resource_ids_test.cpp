// Checks the resource sources for id clashes that the resource compiler accepts silently: a
// clash inside one dialog makes GetDlgItem return the wrong control at run time.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Problems = std::vector<std::string>;
using IdMap = std::map<std::string, long>;

bool ReadFile(const std::string& path, std::string* text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream out;
    out << in.rdbuf();
    *text = out.str();
    return true;
}

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n"), e = s.find_last_not_of(" \t\r\n");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

bool ParseNumber(const std::string& text, long* value) {
    try {
        size_t used = 0;
        *value = std::stol(text, &used, 0);
        return used == text.size();
    } catch (...) {
        return false;
    }
}

// `// --- group: NAME` starts a group; `#define NAME VALUE` lines inside it must not share values.
Problems CheckHeader(const std::string& text, IdMap* ids) {
    Problems problems;
    std::string group = "(before any group)";
    std::map<long, std::string> valuesInGroup;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        line = Trim(line);
        const std::string marker = "// --- group:";
        if (line.compare(0, marker.size(), marker) == 0) {
            group = Trim(line.substr(marker.size()));
            valuesInGroup.clear();
            continue;
        }
        std::istringstream fields(line);
        std::string directive, name, value;
        if (!(fields >> directive >> name >> value) || directive != "#define") continue;
        long number = 0;
        if (!ParseNumber(value, &number)) {
            problems.push_back(name + " is not a plain number: " + value);
            continue;
        }
        if (!ids->emplace(name, number).second) problems.push_back(name + " is defined twice");
        auto clash = valuesInGroup.emplace(number, name);
        if (!clash.second)
            problems.push_back(group + ": " + name + " and " + clash.first->second + " share " + value);
    }
    return problems;
}

// Splits at commas outside string literals ("" is an escaped quote inside one).
std::vector<std::string> SplitFields(const std::string& statement) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (char c : statement) {
        if (c == '"') quoted = !quoted;
        if (c == ',' && !quoted)
            fields.emplace_back();
        else
            fields.back() += c;
    }
    for (auto& f : fields)
        f = Trim(f);
    return fields;
}

std::string StripComment(const std::string& line) {
    bool quoted = false;
    for (size_t i = 0; i + 1 < line.size(); ++i) {
        if (line[i] == '"') quoted = !quoted;
        if (!quoted && line[i] == '/' && line[i + 1] == '/') return line.substr(0, i);
    }
    return line;
}

bool ResolveId(const std::string& token, const IdMap& ids, long* value) {
    static const IdMap kSystem = {{"IDC_STATIC", -1}, {"IDOK", 1},     {"IDCANCEL", 2}, {"IDABORT", 3},
                                  {"IDRETRY", 4},     {"IDIGNORE", 5}, {"IDYES", 6},    {"IDNO", 7},
                                  {"IDCLOSE", 8},     {"IDHELP", 9}};
    for (const IdMap* map : {&ids, &kSystem}) {
        auto it = map->find(token);
        if (it != map->end()) return *value = it->second, true;
    }
    return ParseNumber(token, value);
}

// Every DIALOGEX block: two controls with the same id (other than -1) are a clash.
Problems CheckDialogs(const std::string& rc, const IdMap& ids) {
    static const std::set<std::string> kIdFirst = {"EDITTEXT", "LISTBOX", "COMBOBOX", "SCROLLBAR"};
    static const std::set<std::string> kIdSecond = {
        "CONTROL", "LTEXT",      "RTEXT",    "CTEXT",        "PUSHBUTTON",  "DEFPUSHBUTTON",
        "ICON",    "GROUPBOX",   "CHECKBOX", "AUTOCHECKBOX", "RADIOBUTTON", "AUTORADIOBUTTON",
        "STATE3",  "AUTO3STATE", "PUSHBOX"};
    Problems problems;
    std::string dialog;
    int depth = 0;
    std::vector<std::string> statements; // of the current dialog, continuation lines joined
    std::istringstream lines(rc);
    auto finishDialog = [&] {
        std::map<long, std::string> seen;
        for (const std::string& statement : statements) {
            std::istringstream words(statement);
            std::string keyword;
            words >> keyword;
            bool first = kIdFirst.count(keyword) != 0;
            if (!first && !kIdSecond.count(keyword)) continue;
            auto fields = SplitFields(statement.substr(statement.find(keyword) + keyword.size()));
            size_t index = first ? 0 : 1;
            long id = 0;
            if (fields.size() <= index || !ResolveId(fields[index], ids, &id)) {
                problems.push_back(dialog + ": cannot read the id of: " + statement);
                continue;
            }
            if (id == -1) continue;
            auto clash = seen.emplace(id, fields[index]);
            if (!clash.second)
                problems.push_back(dialog + ": " + fields[index] + " and " + clash.first->second +
                                   " share id " + std::to_string(id));
        }
        statements.clear();
        dialog.clear();
    };
    for (std::string line; std::getline(lines, line);) {
        line = Trim(StripComment(line));
        std::istringstream words(line);
        std::string first, second;
        words >> first >> second;
        if (dialog.empty()) {
            if (second == "DIALOGEX") dialog = first, depth = 0;
            continue;
        }
        if (first == "BEGIN" || first == "{") {
            ++depth;
        } else if (first == "END" || first == "}") {
            if (--depth == 0) finishDialog();
        } else if (depth > 0 && !line.empty()) {
            bool keyword = kIdFirst.count(first) || kIdSecond.count(first);
            if (keyword || statements.empty())
                statements.push_back(line);
            else
                statements.back() += " " + line;
        }
    }
    if (!dialog.empty()) problems.push_back(dialog + ": no END");
    return problems;
}

const std::string kDir = CVPIN_RESOURCES_DIR;

TEST(ResourceIds, HeaderHasNoClashWithinAGroupAndNoNameTwice) {
    std::string header;
    ASSERT_TRUE(ReadFile(kDir + "/resource_ids.h", &header)) << kDir;
    IdMap ids;
    EXPECT_EQ(CheckHeader(header, &ids), Problems{});
    EXPECT_GT(ids.size(), 10u);
}

TEST(ResourceIds, NoTwoControlsOfADialogShareAnId) {
    std::string header, rc;
    ASSERT_TRUE(ReadFile(kDir + "/resource_ids.h", &header));
    if (!ReadFile(kDir + "/pinrc.rc", &rc)) GTEST_SKIP() << "no pinrc.rc yet";
    IdMap ids;
    CheckHeader(header, &ids);
    EXPECT_EQ(CheckDialogs(rc, ids), Problems{});
}

// The checks themselves must catch what they are for.
TEST(ResourceIds, CheckerReportsClashesAndDoubleNames) {
    IdMap ids;
    Problems header = CheckHeader("// --- group: a\n#define A 1\n#define B 1\n"
                                  "// --- group: b\n#define C 1\n#define A 2\n",
                                  &ids);
    EXPECT_EQ(header.size(), 2u);
    // Each line is built so that reading the id from the wrong field changes the outcome.
    const std::string rc =
        "1 DIALOGEX 0, 0, 10, 10\nCAPTION \"x\"\nBEGIN\n"
        "  LTEXT \"a, b\", C, 1, 1, 1, 1 // C is 1\n"
        "  EDITTEXT 7, 1, 1, 1, 1, ES_PASSWORD\n"
        "  CONTROL \"\", IDC_STATIC, \"Static\", SS_BITMAP |\n      SS_CENTERIMAGE, 1, 1, 1, 1\n"
        "  ICON 3200, IDC_STATIC, 1, 1, 1, 1\n"
        "  CONTROL \"\", 7, \"Static\",\n      0, 1, 1, 1, 1\n"
        "  DEFPUSHBUTTON \"OK\", IDOK, 1, 1, 1, 1\n"
        "  PUSHBUTTON \"Help\", 2, 1, 1, 1, 1\n"
        "END\n"
        "2 DIALOGEX 0, 0, 10, 10\nBEGIN\n  EDITTEXT C, 1, 1, 1, 1\n  LTEXT \"\", 1, 1, 1, 1, 1\n"
        "  LTEXT \"\", NOT_DEFINED, 1, 1, 1, 1\nEND\n";
    Problems dialogs = CheckDialogs(rc, ids);
    ASSERT_EQ(dialogs.size(), 4u) << ::testing::PrintToString(dialogs);
    EXPECT_NE(dialogs[0].find("share id 7"), std::string::npos) << dialogs[0];
    EXPECT_NE(dialogs[1].find("IDOK and C share id 1"), std::string::npos) << dialogs[1];
    EXPECT_EQ(dialogs[2].rfind("2: ", 0), 0u) << dialogs[2];
    EXPECT_NE(dialogs[3].find("NOT_DEFINED"), std::string::npos) << dialogs[3];
}

} // namespace
