// The veltjs tool's pieces, and its JSON document checked against the documented schema.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/diagnostics.h"
#include "capture.h"
#include "command_line.h"
#include "container.h"
#include "diagnostic_view.h"
#include "json_report.h"
#include "progress.h"
#include "unit_data.h"
#include "veltjs.h"

using Json = nlohmann::json;

namespace {

std::string DataPath(const std::string& name) { return std::string(VELTJS_CLI_DATA) + "/" + name; }

std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs the built tool in the test data folder; returns its exit status and standard output.
int RunTool(const std::string& arguments, std::string& out, const std::string& stdinFile = "") {
    // Tests run in parallel processes: name the file after the test.
    static int counter = 0;
    std::string outPath = std::string(VELTJS_CLI_WORK) + "/" +
                          testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
                          std::to_string(counter++) + ".out";
    std::string command = "cd '" + std::string(VELTJS_CLI_DATA) + "' && '" + VELTJS_CLI_TOOL + "' " + arguments + " > '" +
                          outPath + "' 2>/dev/null";
    if (!stdinFile.empty()) command += " < '" + stdinFile + "'";
    std::system(("mkdir -p '" + std::string(VELTJS_CLI_WORK) + "'").c_str());
    int status = std::system(command.c_str());
    out = ReadBytes(outPath);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::set<std::string> KeysOf(const Json& object) {
    std::set<std::string> keys;
    for (auto it = object.begin(); it != object.end(); ++it) keys.insert(it.key());
    return keys;
}

void ExpectNameOrNull(const Json& value, const std::string& where) {
    EXPECT_TRUE(value.is_string() || value.is_null()) << where;
}

void ExpectPatch(const Json& patch) {
    EXPECT_EQ(KeysOf(patch), (std::set<std::string>{"nameIndex", "name", "kind", "codeOffset"}));
    EXPECT_TRUE(patch["nameIndex"].is_number_unsigned());
    ExpectNameOrNull(patch["name"], "patch name");
    EXPECT_TRUE(patch["kind"].is_number_unsigned());
    EXPECT_TRUE(patch["codeOffset"].is_number_unsigned() || patch["codeOffset"].is_null());
}

void ExpectPair(const Json& pair) {
    EXPECT_EQ(KeysOf(pair), (std::set<std::string>{"qualifiedIndex", "qualified", "nameIndex", "name"}));
    EXPECT_TRUE(pair["qualifiedIndex"].is_number_unsigned());
    ExpectNameOrNull(pair["qualified"], "qualified");
    EXPECT_TRUE(pair["nameIndex"].is_number_unsigned());
    ExpectNameOrNull(pair["name"], "name");
}

void ExpectFunction(const Json& function) {
    EXPECT_EQ(KeysOf(function), (std::set<std::string>{"nameIndex", "name", "declaredNameIndex", "declaredName",
                                                       "codeOffset", "paramCount", "params", "locals", "slots",
                                                       "flags"}));
    EXPECT_TRUE(function["nameIndex"].is_number_unsigned() || function["nameIndex"].is_null());
    ExpectNameOrNull(function["name"], "function name");
    EXPECT_TRUE(function["declaredNameIndex"].is_number_unsigned() || function["declaredNameIndex"].is_null());
    ExpectNameOrNull(function["declaredName"], "declared name");
    EXPECT_TRUE(function["codeOffset"].is_number_unsigned());
    EXPECT_TRUE(function["paramCount"].is_number_integer());
    ASSERT_TRUE(function["params"].is_array());
    EXPECT_EQ(function["params"].size(), function["paramCount"].get<size_t>());
    for (const Json& param : function["params"]) {
        EXPECT_EQ(KeysOf(param), (std::set<std::string>{"nameIndex", "name"}));
        EXPECT_TRUE(param["nameIndex"].is_number_unsigned());
        ExpectNameOrNull(param["name"], "param name");
    }
    for (const char* key : {"locals", "slots"}) {
        ASSERT_TRUE(function[key].is_array());
        for (const Json& pair : function[key]) ExpectPair(pair);
    }
    EXPECT_TRUE(function["flags"].is_number_unsigned());
}

void ExpectScript(const Json& script) {
    std::set<std::string> always = {"file", "script", "sourceBytes", "status", "errors", "output"};
    std::set<std::string> compiled = {"codeBytes", "code", "listing", "positions", "names",
                                      "variablePatches", "functionPatches", "stringPatches", "functionRecords"};
    ASSERT_TRUE(script.is_object());
    ASSERT_TRUE(script["status"].is_number_integer());
    std::set<std::string> expected = always;
    if (script["status"] == 0) expected.insert(compiled.begin(), compiled.end());
    EXPECT_EQ(KeysOf(script), expected);
    EXPECT_TRUE(script["file"].is_string());
    EXPECT_TRUE(script["script"].is_string());
    EXPECT_TRUE(script["sourceBytes"].is_number_unsigned());
    EXPECT_TRUE(script["output"].is_string());
    ASSERT_TRUE(script["errors"].is_array());
    EXPECT_EQ(script["errors"].empty(), script["status"] == 0);
    for (const Json& error : script["errors"]) {
        EXPECT_EQ(KeysOf(error), (std::set<std::string>{"text", "message", "line", "column"}));
        EXPECT_TRUE(error["text"].is_string());
        EXPECT_TRUE(error["message"].is_string());
        EXPECT_TRUE(error["line"].is_number_integer() || error["line"].is_null());
        EXPECT_TRUE(error["column"].is_number_integer() || error["column"].is_null());
    }
    if (script["status"] != 0) return;
    EXPECT_TRUE(script["codeBytes"].is_number_unsigned());
    ASSERT_TRUE(script["code"].is_array());
    EXPECT_EQ(script["code"].size(), (script["codeBytes"].get<size_t>() + 3) / 4);
    for (const Json& word : script["code"]) EXPECT_TRUE(word.is_number_unsigned());
    EXPECT_TRUE(script["listing"].is_string());
    ASSERT_TRUE(script["positions"].is_array());
    for (const Json& pair : script["positions"]) {
        ASSERT_TRUE(pair.is_array());
        ASSERT_EQ(pair.size(), 2u);
        EXPECT_TRUE(pair[0].is_number_unsigned());
        EXPECT_TRUE(pair[1].is_number_unsigned());
    }
    const Json& names = script["names"];
    EXPECT_EQ(KeysOf(names), (std::set<std::string>{"first", "added", "invalid"}));
    EXPECT_TRUE(names["first"].is_number_unsigned());
    ASSERT_TRUE(names["added"].is_array());
    for (const Json& name : names["added"]) ExpectNameOrNull(name, "added name");
    ASSERT_TRUE(names["invalid"].is_object());
    for (auto it = names["invalid"].begin(); it != names["invalid"].end(); ++it) {
        EXPECT_TRUE(it.value().is_string());
        EXPECT_EQ(it.key().find_first_not_of("0123456789"), std::string::npos);
    }
    for (const char* key : {"variablePatches", "functionPatches", "stringPatches"}) {
        ASSERT_TRUE(script[key].is_array());
        for (const Json& patch : script[key]) ExpectPatch(patch);
    }
    ASSERT_TRUE(script["functionRecords"].is_array());
    for (const Json& function : script["functionRecords"]) ExpectFunction(function);
}

// Checks every documented key and type of a document, and returns it.
Json ExpectDocument(const std::string& text) {
    EXPECT_TRUE(IsValidUtf8(text));
    Json document = Json::parse(text);
    EXPECT_EQ(KeysOf(document), (std::set<std::string>{"format", "version", "topLevel", "scripts", "unreadable", "summary"}));
    EXPECT_EQ(document["format"], 1);
    EXPECT_TRUE(document["version"].is_string());
    EXPECT_TRUE(document["topLevel"].is_boolean());
    EXPECT_TRUE(document["scripts"].is_array());
    for (const Json& script : document["scripts"]) ExpectScript(script);
    EXPECT_TRUE(document["unreadable"].is_array());
    for (const Json& entry : document["unreadable"]) {
        EXPECT_EQ(KeysOf(entry), (std::set<std::string>{"file", "reason"}));
        EXPECT_TRUE(entry["file"].is_string());
        EXPECT_TRUE(entry["reason"].is_string());
    }
    const Json& summary = document["summary"];
    EXPECT_EQ(KeysOf(summary), (std::set<std::string>{"scripts", "succeeded", "failed", "unreadable", "sourceBytes"}));
    for (const char* key : {"scripts", "succeeded", "failed", "unreadable", "sourceBytes"}) {
        EXPECT_TRUE(summary[key].is_number_unsigned()) << key;
    }
    size_t failed = 0;
    for (const Json& script : document["scripts"]) failed += script["status"] != 0 ? 1 : 0;
    EXPECT_EQ(summary["scripts"].get<size_t>(), document["scripts"].size() + document["unreadable"].size());
    EXPECT_EQ(summary["unreadable"].get<size_t>(), document["unreadable"].size());
    EXPECT_EQ(summary["failed"].get<size_t>(), failed + document["unreadable"].size());
    return document;
}

UnitData CompileInProcess(const char* source, const char* file) {
    VeltJS_Init();
    CompileUnit* unit = VeltJS_Parse(source, file, "script");
    if (unit->status == 0) VeltJS_Compile(unit, 0);
    EXPECT_EQ(unit->status, 0);
    return CopyUnit(unit, file, "script", false);
}

}  // namespace

TEST(CliJson, EveryDocumentedKeyAndTypeForScriptsThatCompileFailAndCannotBeRead) {
    std::string out;
    EXPECT_EQ(RunTool("--json hello.js second.js tree_dump.js syntax_error.js invalid_utf8.js nope.js", out), 1);
    Json document = ExpectDocument(out);
    ASSERT_EQ(document["scripts"].size(), 5u);
    EXPECT_EQ(document["scripts"][0]["names"]["first"], 0);
    // Names are listed once across the run: each script starts where the one before stopped.
    EXPECT_EQ(document["scripts"][1]["names"]["first"].get<size_t>(), document["scripts"][0]["names"]["added"].size());
    EXPECT_EQ(document["unreadable"][0]["file"], "nope.js");
    EXPECT_EQ(document["unreadable"][0]["reason"], "No such file or directory");
}

TEST(CliJson, LibraryTreeDumpIsAFieldAndTheDocumentStaysValid) {
    std::string out;
    EXPECT_EQ(RunTool("--json tree_dump.js hello.js", out), 1);
    Json document = ExpectDocument(out);
    const Json& failed = document["scripts"][0];
    EXPECT_EQ(failed["status"], 1);
    EXPECT_NE(failed["output"].get<std::string>().find("[ {=\"{\","), std::string::npos);
    EXPECT_EQ(failed["errors"][0]["message"], "We really expected to get something here...");
    EXPECT_EQ(failed["errors"][0]["line"], 3);
    EXPECT_EQ(document["scripts"][1]["status"], 0);
}

TEST(CliJson, InvalidUtf8IsReplacedAndItsBytesKeptAsHex) {
    std::string out;
    EXPECT_EQ(RunTool("--json invalid_utf8.js", out), 0);
    Json document = ExpectDocument(out);
    const Json& names = document["scripts"][0]["names"];
    ASSERT_FALSE(names["invalid"].empty());
    for (auto it = names["invalid"].begin(); it != names["invalid"].end(); ++it) {
        size_t id = std::stoul(it.key()) - names["first"].get<size_t>();
        std::string shown = names["added"][id].get<std::string>();
        EXPECT_NE(shown.find("\xef\xbf\xbd"), std::string::npos) << shown;   // U+FFFD
        EXPECT_EQ(it.value().get<std::string>().size() % 2, 0u);
    }
}

TEST(CliJson, ProjectDirectoryStandardInputAndTopLevel) {
    std::string out;
    EXPECT_EQ(RunTool("--json -q project", out), 1);
    Json project = ExpectDocument(out);
    EXPECT_EQ(project["scripts"].size(), 8u);
    EXPECT_EQ(RunTool("--json --top-level -", out, DataPath("hello.js")), 0);
    Json piped = ExpectDocument(out);
    EXPECT_EQ(piped["topLevel"], true);
    EXPECT_EQ(piped["scripts"][0]["file"], "<stdin>");
}

TEST(CliTool, DisasmOfAWrittenUnitListsTheSameCodeAsTheCompile) {
    std::string compiled;
    std::string listed;
    std::string container = std::string(VELTJS_CLI_WORK) + "/round_trip.vjc";
    ASSERT_EQ(RunTool("-q hello.js second.js", compiled), 0);
    std::string ignored;
    ASSERT_EQ(RunTool("-q --emit unit -o '" + container + "' hello.js second.js", ignored), 0);
    ASSERT_EQ(RunTool("disasm '" + container + "'", listed), 0);
    // Everything but the names section's title and contents is the same text.
    auto withoutNames = [](const std::string& text) {
        std::istringstream lines(text);
        std::string line;
        std::string kept;
        bool inNames = false;
        while (std::getline(lines, line)) {
            if (line.rfind("names ", 0) == 0) {
                inNames = true;
                continue;
            }
            if (inNames && line.rfind("variable patches", 0) == 0) inNames = false;
            if (!inNames) kept += line + "\n";
        }
        return kept;
    };
    EXPECT_EQ(withoutNames(listed), withoutNames(compiled));
    EXPECT_NE(listed.find("call.i    @@GlobalScope@@"), std::string::npos);
    EXPECT_EQ(listed.find("<unknown>"), std::string::npos);
}

TEST(CliContainer, RoundTripKeepsEveryField) {
    UnitData unit = CompileInProcess("var a = 1; function f(x, y) { var z = x; return a + z + y; } f(a, \"s\");", "a.js");
    std::string bytes = EncodeContainer({unit});
    Container container;
    std::string error;
    ASSERT_TRUE(DecodeContainer(bytes, container, error)) << error;
    ASSERT_EQ(container.units.size(), 1u);
    const UnitData& back = container.units[0];
    EXPECT_EQ(back.file, "a.js");
    EXPECT_EQ(back.script, "script");
    EXPECT_EQ(back.codeBytes, unit.codeBytes);
    EXPECT_EQ(back.code, unit.code);
    EXPECT_EQ(back.positions, unit.positions);
    ASSERT_EQ(back.variablePatches.size(), unit.variablePatches.size());
    for (size_t i = 0; i < unit.variablePatches.size(); i++) {
        EXPECT_EQ(back.variablePatches[i].nameIndex, unit.variablePatches[i].nameIndex);
        EXPECT_EQ(back.variablePatches[i].kind, unit.variablePatches[i].kind);
        EXPECT_EQ(back.variablePatches[i].codeOffset, unit.variablePatches[i].codeOffset);
    }
    EXPECT_EQ(back.functionPatches.size(), unit.functionPatches.size());
    EXPECT_EQ(back.stringPatches.size(), unit.stringPatches.size());
    ASSERT_EQ(back.functions.size(), unit.functions.size());
    for (size_t i = 0; i < unit.functions.size(); i++) {
        EXPECT_EQ(back.functions[i].nameIndex, unit.functions[i].nameIndex);
        EXPECT_EQ(back.functions[i].declaredNameIndex, unit.functions[i].declaredNameIndex);
        EXPECT_EQ(back.functions[i].codeOffset, unit.functions[i].codeOffset);
        EXPECT_EQ(back.functions[i].paramCount, unit.functions[i].paramCount);
        EXPECT_EQ(back.functions[i].params, unit.functions[i].params);
        EXPECT_EQ(back.functions[i].locals, unit.functions[i].locals);
        EXPECT_EQ(back.functions[i].slots, unit.functions[i].slots);
        EXPECT_EQ(back.functions[i].flags, unit.functions[i].flags);
    }
    // Exactly the names the unit uses, each with the text the table holds.
    std::vector<uint32_t> used = NamesUsed(unit);
    ASSERT_EQ(container.names.size(), used.size());
    for (size_t i = 0; i < used.size(); i++) {
        EXPECT_EQ(container.names[i].first, used[i]);
        EXPECT_EQ(container.names[i].second, NameText(used[i]));
    }
}

TEST(CliContainer, EveryTruncationIsRefusedWithoutReadingPastTheEnd) {
    UnitData unit = CompileInProcess("var t = \"text\"; function g(p) { return p; } g(t);", "t.js");
    std::string bytes = EncodeContainer({unit, unit});
    for (size_t length = 0; length < bytes.size(); length++) {
        Container container;
        std::string error;
        // Each cut copy lives in a buffer of exactly its length, so the sanitizer sees any overread.
        std::string cut = bytes.substr(0, length);
        bool ok = DecodeContainer(cut, container, error);
        // A cut that falls on the padding after the last section is still a whole container.
        if (ok) EXPECT_GE(length, bytes.size() - 3) << length;
        else EXPECT_FALSE(error.empty());
    }
}

TEST(CliContainer, DamagedBytesNeverCrashAndHugeCountsAreRefused) {
    UnitData unit = CompileInProcess("var d = 4;", "d.js");
    std::string bytes = EncodeContainer({unit});
    uint32_t state = 12345;
    for (int round = 0; round < 2000; round++) {
        std::string damaged = bytes;
        for (int flips = 0; flips < 3; flips++) {
            state = state * 1103515245u + 12345u;
            damaged[(state >> 8) % damaged.size()] = static_cast<char>(state >> 24);
        }
        Container container;
        std::string error;
        DecodeContainer(damaged, container, error);
    }
    // A unit count of four billion in a 16-byte header.
    std::string header("VJC\0\x01\0\0\0\xff\xff\xff\xff\x01\0\0\0", 16);
    Container container;
    std::string error;
    EXPECT_FALSE(DecodeContainer(header, container, error));
    EXPECT_EQ(error, "unit count larger than the file");
    std::string newer("VJC\0\x02\0\0\0\0\0\0\0\0\0\0\0", 16);
    EXPECT_FALSE(DecodeContainer(newer, container, error));
    EXPECT_EQ(error, "format version 2 (this veltjs reads version 1)");
}

TEST(CliHelp, ListsEveryOptionOfTheCommandAndOfDisasm) {
    for (const std::string subcommand : {"", "disasm"}) {
        std::string help = HelpText(subcommand, "1.2.3");
        for (const std::string& name : OptionNames(subcommand, "1.2.3")) {
            EXPECT_NE(help.find(name), std::string::npos) << name << " missing from the help of '" << subcommand << "'";
        }
        for (const char* section : {"NAME\n", "SYNOPSIS\n", "DESCRIPTION\n", "OPTIONS\n", "EXIT STATUS\n", "EXAMPLES\n"}) {
            EXPECT_NE(help.find(section), std::string::npos) << section;
        }
    }
}

TEST(CliCommandLine, OptionsAnywhereBuiltInsInOrderAndUsageErrors) {
    Options options;
    FILE* sink = std::tmpfile();
    ASSERT_EQ(ParseCommandLine({"veltjs", "a.js", "--builtins", "list.txt", "-", "--builtin", "x", "--top-level", "dir"},
                               "1.2.3", options, sink, sink),
              -1);
    EXPECT_EQ(options.inputs, (std::vector<std::string>{"a.js", "-", "dir"}));
    ASSERT_EQ(options.builtIns.size(), 2u);
    EXPECT_TRUE(options.builtIns[0].fromFile);
    EXPECT_EQ(options.builtIns[0].value, "list.txt");
    EXPECT_FALSE(options.builtIns[1].fromFile);
    EXPECT_EQ(options.builtIns[1].value, "x");
    EXPECT_TRUE(options.topLevel);

    Options bad;
    EXPECT_EQ(ParseCommandLine({"veltjs", "a.js", "--tree", "--check"}, "1.2.3", bad, sink, sink), kExitUsage);
    Options none;
    EXPECT_EQ(ParseCommandLine({"veltjs", "--json"}, "1.2.3", none, sink, sink), kExitUsage);
    Options disasm;
    ASSERT_EQ(ParseCommandLine({"veltjs", "disasm", "u.vjc", "--raw"}, "1.2.3", disasm, sink, sink), -1);
    EXPECT_EQ(disasm.mode, Mode::Disasm);
    EXPECT_TRUE(disasm.raw);
    EXPECT_EQ(disasm.inputs, (std::vector<std::string>{"u.vjc"}));
    std::fclose(sink);
}

TEST(CliSummary, FiguresReadAsInTheIssueExample) {
    RunTotals totals;
    totals.scripts = 2000;
    totals.failed = 3;
    totals.sourceBytes = 11600000;
    EXPECT_EQ(SummaryLine("compiled", totals, 1.842), "compiled 2,000 scripts, 11.6 MB, 3 failed, 1.84 s\n");
    EXPECT_EQ(GroupThousands(0), "0");
    EXPECT_EQ(GroupThousands(999), "999");
    EXPECT_EQ(GroupThousands(1000), "1,000");
    EXPECT_EQ(GroupThousands(1234567), "1,234,567");
    EXPECT_EQ(FormatSize(1), "1 byte");
    EXPECT_EQ(FormatSize(999), "999 bytes");
    EXPECT_EQ(FormatSize(1000), "1.0 kB");
    EXPECT_EQ(FormatSize(999999), "1.0 MB");
    EXPECT_EQ(FormatSize(2500000000ull), "2.5 GB");
}

TEST(CliProgress, BarFitsItsWidthAndFillsWithTheCount) {
    EXPECT_EQ(ProgressText(0, 4, 30), "[>               ] 0/4 scripts");
    EXPECT_EQ(ProgressText(2, 4, 30), "[========>       ] 2/4 scripts");
    EXPECT_EQ(ProgressText(4, 4, 30), "[================] 4/4 scripts");
    EXPECT_LE(ProgressText(1234, 2000, 79).size(), 79u);
}

TEST(CliUtf8, StrictValidity) {
    EXPECT_TRUE(IsValidUtf8("plain"));
    EXPECT_TRUE(IsValidUtf8("caf\xc3\xa9 \xf0\x9f\x98\x80"));
    EXPECT_FALSE(IsValidUtf8("\xff"));
    EXPECT_FALSE(IsValidUtf8("\xc0\xaf"));           // overlong '/'
    EXPECT_FALSE(IsValidUtf8("\xed\xa0\x80"));       // a surrogate
    EXPECT_FALSE(IsValidUtf8("\xf4\x90\x80\x80"));   // above U+10FFFF
    EXPECT_FALSE(IsValidUtf8("\xe2\x82"));           // cut short
}

TEST(CliDiagnostics, ColumnsCountBytesFromTheLineStartAcrossLineEndsAndWideCharacters) {
    // The lexer has advanced two characters past the one it stopped at.
    DiagnosticLocation location{true, 2, 0, 2 + 9};
    ErrorReport crlf = DescribeError("f.js", "ab;\r\ncd(1 2)", "Error : f.js(2) : bad\n", location);
    EXPECT_EQ(crlf.message, "bad");
    EXPECT_EQ(crlf.sourceLine, "cd(1 2)");
    EXPECT_EQ(crlf.column, 5);
    EXPECT_EQ(FormatError(crlf, false), "f.js:2:5: error: bad\ncd(1 2)\n    ^\n");

    DiagnosticLocation wide{true, 1, 0, 2 + 2};
    ErrorReport accent = DescribeError("g.js", "\xc3\xa9\xc3\xa9x;", "Error : g.js(1) : m\n", wide);
    EXPECT_EQ(accent.column, 5);
    EXPECT_EQ(FormatError(accent, false), "g.js:1:5: error: m\n\xc3\xa9\xc3\xa9x;\n  ^\n");

    DiagnosticLocation past{true, 1, 0, 100};
    ErrorReport end = DescribeError("h.js", "var", "Error : h.js(1) : m\n", past);
    EXPECT_EQ(end.column, 4);

    ErrorReport nowhere = DescribeError("i.js", "var", "Error : Unknown\n", DiagnosticLocation{});
    EXPECT_EQ(FormatError(nowhere, false), "i.js: error: Unknown\n");
}

TEST(CliCapture, LargeLibraryOutputIsCaughtWithoutBlocking) {
    StdoutCapture capture;
    ASSERT_TRUE(OpenCapture(capture));
    std::string line(1023, 'x');
    line += '\n';
    std::string caught;
    BeginCapture(capture);
    for (int i = 0; i < 64 * 1024; i++) std::fputs(line.c_str(), stdout);   // 64 MiB
    EndCapture(capture, caught);
    EXPECT_EQ(caught.size(), 64u * 1024 * 1024);
    std::string second;
    BeginCapture(capture);
    std::printf("short\n");
    EndCapture(capture, second);
    EXPECT_EQ(second, "short\n");
    CloseCapture(capture);
}

TEST(CliCapture, TheLibrarysTreeDumpIsCaught) {
    StdoutCapture capture;
    ASSERT_TRUE(OpenCapture(capture));
    VeltJS_Init();
    std::string caught;
    BeginCapture(capture);
    CompileUnit* unit = VeltJS_Parse("var x = ;", "x.js", "x");
    EndCapture(capture, caught);
    CloseCapture(capture);
    EXPECT_EQ(unit->status, 1);
    EXPECT_EQ(caught, "[ {=\"{\", \n  [ var=\"var\", \n    [ id=\"x\" ]\n  ]\n]\n\n\n");
}
