// Id clashes the resource compiler accepts silently: two controls of one dialog with the same id
// make GetDlgItem return the wrong one.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Problems = std::vector<std::string>;
using IdMap = std::map<std::string, long>;

std::string ReadResource(const std::string& name) {
    std::ostringstream out;
    out << std::ifstream(std::string(CVPIN_RESOURCES_DIR) + "/" + name).rdbuf();
    return out.str();
}

// `// --- group: NAME` starts a group; the values of the #defines in one group must differ.
Problems CheckHeader(const std::string& text, IdMap* ids) {
    Problems problems;
    std::map<long, std::string> group;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("// --- group:", 0) == 0) group.clear();
        std::istringstream words(line);
        std::string directive, name;
        long value = 0;
        if (!(words >> directive >> name >> value) || directive != "#define") continue;
        if (!ids->emplace(name, value).second) problems.push_back(name + " is defined twice");
        if (!group.emplace(value, name).second)
            problems.push_back(name + " shares its value with " + group[value]);
    }
    return problems;
}

// Every line between BEGIN and END of a DIALOGEX is one control; its id is the first field of
// EDITTEXT and the second (after the text) of the others.
Problems CheckDialogs(const std::string& rc, IdMap ids) {
    ids.insert({{"IDC_STATIC", -1}, {"IDOK", 1}, {"IDCANCEL", 2}});
    Problems problems;
    std::string dialog;
    bool body = false;
    std::map<long, std::string> seen;
    std::istringstream lines(rc);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string keyword, second, field, name;
        words >> keyword >> second;
        if (second == "DIALOGEX") {
            dialog = keyword, seen.clear();
        } else if (keyword == "BEGIN" || keyword == "END") {
            body = keyword == "BEGIN" && !dialog.empty();
            if (!body) dialog.clear();
        } else if (body && !keyword.empty() && keyword.rfind("//", 0) != 0) {
            // Blank the texts so that a comma inside one does not shift the fields.
            std::istringstream fields(std::regex_replace(line.substr(line.find(keyword) + keyword.size()),
                                                         std::regex("\"[^\"]*\""), "\"\""));
            for (int i = keyword == "EDITTEXT" ? 0 : 1; i >= 0; --i)
                std::getline(fields, field, ',');
            std::istringstream(field) >> name;
            auto id = ids.find(name);
            if (id == ids.end())
                problems.push_back(dialog + ": unknown id " + name);
            else if (id->second != -1 && !seen.emplace(id->second, name).second)
                problems.push_back(dialog + ": " + name + " shares its id with " + seen[id->second]);
        }
    }
    return problems;
}

TEST(ResourceIds, NoClashWithinAHeaderGroupOrAmongADialogsControls) {
    IdMap ids;
    EXPECT_EQ(CheckHeader(ReadResource("resource_ids.h"), &ids), Problems{});
    EXPECT_GT(ids.size(), 10u);
    const std::string rc = ReadResource("pinrc.rc");
    ASSERT_NE(rc.find("DIALOGEX"), std::string::npos);
    EXPECT_EQ(CheckDialogs(rc, ids), Problems{});
}

// The checks themselves must catch what they are for; reading the id from the wrong field of
// any line below changes the outcome.
TEST(ResourceIds, CheckerReportsClashes) {
    IdMap ids;
    const char* header =
        "// --- group: a\n#define A 1\n#define B 1\n// --- group: b\n#define C 1\n#define A 2\n";
    EXPECT_EQ(CheckHeader(header, &ids), (Problems{"B shares its value with A", "A is defined twice"}));
    const std::string rc =
        "D1 DIALOGEX 0, 0, 9, 9\nCAPTION \"x, y\"\nBEGIN\n"
        "  LTEXT \"a, b\", X, 1, 1, 1, 1\n  EDITTEXT Y, 1, 1, 1, 1\n"
        "  ICON X, IDC_STATIC, 1, 1, 1, 1\n  PUSHBUTTON \"OK\", IDOK, 1, 1, 1, 1\n"
        "  CONTROL \"\", Z, \"Static\", 0, 1, 1, 1, 1\nEND\n"
        "D2 DIALOGEX 0, 0, 9, 9\nBEGIN\n  LTEXT \"\", X, 1, 1, 1, 1\n  LTEXT \"\", NOPE, 1, 1, 1, 1\nEND\n";
    EXPECT_EQ(CheckDialogs(rc, {{"X", 5}, {"Y", 6}, {"Z", 6}}),
              (Problems{"D1: Z shares its id with Y", "D2: unknown id NOPE"}));
}

} // namespace
