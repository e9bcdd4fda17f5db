// The guides, checked against the library: the README's code is the example host's, the bytecode
// reference lists every opcode the disassembler knows, every example of the language guide
// compiles (or fails) as shown, the host guide's worked example and C programs print what
// the guide shows, and links to a section of a guide lead to a heading.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cctype>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bytecode/instruction.h"
#include "helpers/compile_support.h"
#include "veltjs.h"

namespace {

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.good()) << "cannot read " << path;
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.good()) << "cannot write " << path;
}

std::string SourcePath(const std::string& relative) { return std::string(VELTJS_SOURCE_DIR) + "/" + relative; }

// A folder of this test's own under the build tree.
std::string WorkFolder(const std::string& name) {
    std::string folder = std::string(VELTJS_TEST_WORK) + "/" + name;
    std::string command = "rm -rf '" + folder + "' && mkdir -p '" + folder + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return folder;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::string line;
    std::istringstream stream(text);
    while (std::getline(stream, line)) lines.push_back(line);
    return lines;
}

// A fenced block of a markdown file: its info string (the words after the opening fence), its
// text with a line feed after every line, and the line of the opening fence.
struct Block {
    std::string info;
    std::string text;
    int line;
};

std::vector<Block> FencedBlocks(const std::string& markdown) {
    std::vector<Block> blocks;
    std::vector<std::string> lines = Lines(markdown);
    for (size_t i = 0; i < lines.size(); i++) {
        if (lines[i].compare(0, 3, "```") != 0) continue;
        Block block{lines[i].substr(3), "", static_cast<int>(i + 1)};
        for (i++; i < lines.size() && lines[i].compare(0, 3, "```") != 0; i++) block.text += lines[i] + "\n";
        EXPECT_LT(i, lines.size()) << "unclosed block at line " << block.line;
        blocks.push_back(block);
    }
    return blocks;
}

// The first block whose info string is exactly `info`.
const Block* FindBlock(const std::vector<Block>& blocks, const std::string& info) {
    for (const Block& block : blocks) {
        if (block.info == info) return &block;
    }
    return nullptr;
}

struct CommandResult {
    int status;
    std::string output;
};

// Runs a shell command and collects its standard output.
CommandResult RunCommand(const std::string& command) {
    CommandResult run{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    EXPECT_NE(pipe, nullptr) << command;
    if (!pipe) return run;
    char buffer[4096];
    size_t read;
    while ((read = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, read);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

const char kExampleFile[] = "example.js";

CompileUnit* CompileExample(const std::string& source) {
    EnsureLibraryInitialised();
    CompileUnit* unit = VeltJS_Parse(source.c_str(), kExampleFile, "example");
    if (unit->status == 0) VeltJS_Compile(unit, 0);
    return unit;
}

// The language guide's examples: "js ok" compiles (and, when a "text listing" block follows,
// lists as shown), "js error" fails with the message of the "text" block that follows.
struct Example {
    const Block* script;
    const Block* expected;   // null when nothing follows
};

std::vector<Example> LanguageExamples(const std::vector<Block>& blocks) {
    std::vector<Example> examples;
    for (size_t i = 0; i < blocks.size(); i++) {
        if (blocks[i].info.compare(0, 2, "js") != 0) continue;
        const Block* next = i + 1 < blocks.size() ? &blocks[i + 1] : nullptr;
        examples.push_back({&blocks[i], next});
    }
    return examples;
}

// The host guide's claims about patch records, on one compiled unit: variable and function
// patches point at the instruction word and the name id is in the operand word after it (the
// low 28 bits of a variable reference); a string patch points at the operand word of push.s.
void ExpectPatchSitesAsTheGuideSays(const CompileUnit* unit, const std::string& source) {
    SCOPED_TRACE(source);
    auto word = [&](uint64_t offset) { return unit->code[offset / 4]; };
    auto inside = [&](uint64_t offset) { return offset % 4 == 0 && offset + 4 <= static_cast<uint64_t>(unit->codeSize); };
    for (int32_t i = 0; i < unit->varCount; i++) {
        const PatchRecord* record = unit->vars[i];
        if (record->codeOffset == UINT64_MAX) continue;
        ASSERT_TRUE(inside(record->codeOffset + 4)) << "variable patch at " << record->codeOffset;
        uint32_t instruction = word(record->codeOffset);
        uint32_t opcode = instruction >> 24;
        EXPECT_TRUE(opcode == OP_PUSH || opcode == OP_PUSHB || opcode == OP_POP) << std::hex << instruction;
        EXPECT_EQ((instruction >> 16) & 15u, static_cast<uint32_t>(TYPE_VARIABLE)) << std::hex << instruction;
        uint32_t operand = word(record->codeOffset + 4);
        EXPECT_TRUE(operand >> 28 == 0xA || operand >> 28 == 0xB) << std::hex << operand;
        EXPECT_EQ(operand & 0x0FFFFFFFu, record->nameIndex);
        EXPECT_LT(record->nameIndex, static_cast<uint32_t>(unit->nameCount));
    }
    for (int32_t i = 0; i < unit->funcCount; i++) {
        const PatchRecord* record = unit->funcs[i];
        ASSERT_TRUE(inside(record->codeOffset + 4)) << "function patch at " << record->codeOffset;
        uint32_t instruction = word(record->codeOffset);
        bool call = (instruction & 0xFFFF0000u) == MakeWord1(OP_CALL, TYPE_INT, 0);
        bool push = instruction == MakeWord1(OP_PUSH, TYPE_INT, 0);
        EXPECT_TRUE(call || push) << std::hex << instruction;
        EXPECT_EQ(word(record->codeOffset + 4), record->nameIndex);
        EXPECT_EQ(record->kind, 0u);
        // A function reference: push.i id, conv.i.v, call.i @@script_ref@@ (8 bytes after the id).
        if (std::string(unit->names[record->nameIndex]) == "@@script_ref@@") {
            ASSERT_GE(record->codeOffset, 12u);
            EXPECT_EQ(word(record->codeOffset - 12), MakeWord1(OP_PUSH, TYPE_INT, 0));
            EXPECT_EQ(word(record->codeOffset - 4), MakeWord(OP_CONV, TYPE_INT, TYPE_VARIABLE, 0));
            EXPECT_LT(word(record->codeOffset - 8), static_cast<uint32_t>(unit->nameCount));
        }
    }
    for (int32_t i = 0; i < unit->stringCount; i++) {
        const PatchRecord* record = unit->strings[i];
        ASSERT_TRUE(inside(record->codeOffset) && record->codeOffset >= 4) << "string patch at " << record->codeOffset;
        EXPECT_EQ(word(record->codeOffset - 4), MakeWord1(OP_PUSH, TYPE_STRING, 0));
        EXPECT_EQ(word(record->codeOffset), record->nameIndex);
        EXPECT_EQ(record->kind, 0u);
    }
}

// The anchor a heading gets: lower case, punctuation dropped, spaces turned into hyphens.
std::string HeadingAnchor(const std::string& heading) {
    std::string anchor;
    for (unsigned char c : heading) {
        if (std::isalnum(c)) {
            anchor += static_cast<char>(std::tolower(c));
        } else if (c == ' ' || c == '-') {
            anchor += '-';
        } else if (c == '_' || c >= 0x80) {
            anchor += static_cast<char>(c);
        }
    }
    return anchor;
}

// The anchors of a markdown file's headings; lines in fenced blocks are not headings.
std::set<std::string> HeadingAnchors(const std::string& markdown) {
    std::set<std::string> anchors;
    bool fenced = false;
    for (const std::string& line : Lines(markdown)) {
        if (line.compare(0, 3, "```") == 0) fenced = !fenced;
        if (fenced) continue;
        size_t level = line.find_first_not_of('#');
        if (level == 0 || level == std::string::npos || line[level] != ' ') continue;
        anchors.insert(HeadingAnchor(line.substr(level + 1)));
    }
    return anchors;
}

}  // namespace

TEST(Readme, CodeBlockIsAnExcerptOfTheExampleHostInOrder) {
    std::vector<Block> blocks = FencedBlocks(ReadText(SourcePath("README.md")));
    const Block* code = FindBlock(blocks, "c");
    ASSERT_NE(code, nullptr) << "README.md has no c block";
    for (const char* call : {"VeltJS_Init(", "VeltJS_AddBuiltInFunction(", "VeltJS_Parse(", "VeltJS_Compile(",
                             "VeltJS_Disasm(", "int main("}) {
        EXPECT_NE(code->text.find(call), std::string::npos) << "the README's code does not show " << call;
    }
    std::vector<std::string> host = Lines(ReadText(SourcePath("examples/host/host.c")));
    size_t next = 0;
    for (const std::string& line : Lines(code->text)) {
        if (line.empty()) continue;
        size_t at = next;
        while (at < host.size() && host[at] != line) at++;
        ASSERT_LT(at, host.size()) << "not a line of examples/host/host.c after line " << next << ": " << line;
        next = at + 1;
    }
}

TEST(BytecodeReference, EveryOpcodeTheDisassemblerKnowsHasARow) {
    std::string reference = ReadText(SourcePath("docs/bytecode.md"));
    std::vector<std::string> lines = Lines(reference);
    int known = 0;
    for (uint32_t opcode = 0; opcode < 256; opcode++) {
        std::string mnemonic = OpcodeMnemonic(opcode);
        if (mnemonic == "unknown") continue;
        known++;
        char value[16];
        std::snprintf(value, sizeof value, "| 0x%02X |", opcode);
        bool found = false;
        for (const std::string& line : lines) {
            if (line.find(value) == 0 && line.find("| `" + mnemonic + "` |") != std::string::npos) found = true;
        }
        EXPECT_TRUE(found) << "no row \"" << value << " … `" << mnemonic << "`\" in docs/bytecode.md";
    }
    // The opcode table has no row for a value the disassembler does not know.
    int rows = 0;
    for (const std::string& line : lines) {
        if (line.size() > 7 && line.compare(0, 4, "| 0x") == 0 && line.compare(6, 3, " | ") == 0 && line.find("`OP_") != std::string::npos) rows++;
    }
    EXPECT_EQ(rows, known);
    EXPECT_EQ(known, 35);
}

TEST(BytecodeReference, EveryTypeCodeHasItsSuffix) {
    std::string reference = ReadText(SourcePath("docs/bytecode.md"));
    for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 15u}) {
        std::string row = "| " + std::to_string(type) + " | `" + std::string(TypeSuffix(type)) + "` |";
        EXPECT_NE(reference.find(row), std::string::npos) << "no row " << row;
    }
}

TEST(BytecodeReference, EveryRunnerHelperTheExamplesCallIsDescribed) {
    std::string reference = ReadText(SourcePath("docs/bytecode.md"));
    std::vector<Block> blocks = FencedBlocks(ReadText(SourcePath("docs/language.md")));
    std::vector<Block> guide = FencedBlocks(ReadText(SourcePath("docs/host-guide.md")));
    blocks.insert(blocks.end(), guide.begin(), guide.end());
    std::set<std::string> helpers;
    for (const Block& block : blocks) {
        if (block.info.compare(0, 2, "js") != 0) continue;
        CompileUnit* unit = CompileExample(block.text);
        if (unit->status != 0) continue;
        for (int32_t i = 0; i < unit->funcCount; i++) {
            std::string name = unit->names[unit->funcs[i]->nameIndex];
            if (name.size() > 4 && name.compare(0, 2, "@@") == 0) helpers.insert(name);
        }
    }
    EXPECT_GE(helpers.size(), 19u) << "the guides' examples call fewer runner helpers than the compiler has";
    for (const std::string& helper : helpers) {
        EXPECT_NE(reference.find("| `" + helper + "` |"), std::string::npos) << helper << " has no row in docs/bytecode.md";
    }
}

namespace {

// Compiles a script as the first script of a fresh process, with the example host: the name ids
// in a listing's bytes depend on what the process compiled before.
struct FreshCompile {
    int status;
    std::string error;     // standard error: the message
    std::string listing;   // the listing part of standard output
};

FreshCompile CompileInFreshProcess(const std::string& folder, const std::string& source) {
    WriteText(folder + "/" + kExampleFile, source);
    CommandResult run = RunCommand("cd '" + folder + "' && '" VELTJS_EXAMPLE_HOST "' " + kExampleFile + " 2>error.txt");
    FreshCompile result{run.status, ReadText(folder + "/error.txt"), ""};
    size_t start = run.output.find(" bytes)\n");
    size_t end = run.output.find("positions (");
    if (run.status == 0 && start != std::string::npos && end != std::string::npos) {
        result.listing = run.output.substr(start + 8, end - start - 8);
    }
    return result;
}

}  // namespace

TEST(LanguageGuide, EveryExampleCompilesAsShown) {
    std::vector<Block> blocks = FencedBlocks(ReadText(SourcePath("docs/language.md")));
    std::vector<Example> examples = LanguageExamples(blocks);
    EXPECT_GE(examples.size(), 40u);
    std::string folder = WorkFolder("language");
    for (const Example& example : examples) {
        SCOPED_TRACE("docs/language.md:" + std::to_string(example.script->line));
        const std::string& info = example.script->info;
        ASSERT_TRUE(info == "js ok" || info == "js error") << "a js block is marked \"js ok\" or \"js error\": " << info;
        FreshCompile fresh = CompileInFreshProcess(folder, example.script->text);
        if (info == "js error") {
            ASSERT_TRUE(example.expected && example.expected->info == "text") << "an error example is followed by its message";
            EXPECT_EQ(fresh.status, 1) << example.script->text;
            EXPECT_EQ(fresh.error, example.expected->text);
            continue;
        }
        ASSERT_EQ(fresh.status, 0) << example.script->text << fresh.error;
        if (example.expected && example.expected->info == "text listing") {
            EXPECT_EQ(fresh.listing, example.expected->text) << example.script->text;
        }
        ExpectPatchSitesAsTheGuideSays(CompileExample(example.script->text), example.script->text);
    }
}

TEST(HostGuide, WorkedExampleIsWhatTheExampleHostPrints) {
    std::vector<Block> blocks = FencedBlocks(ReadText(SourcePath("docs/host-guide.md")));
    const Block* script = FindBlock(blocks, "js worked-example");
    const Block* builtins = FindBlock(blocks, "text worked-example-builtins");
    const Block* output = FindBlock(blocks, "text worked-example-output");
    ASSERT_TRUE(script && builtins && output) << "the worked example's script, built-ins and output";
    std::string folder = WorkFolder("worked-example");
    WriteText(folder + "/counter.js", script->text);
    WriteText(folder + "/builtins.txt", builtins->text);
    CommandResult run = RunCommand("cd '" + folder + "' && '" VELTJS_EXAMPLE_HOST "' counter.js builtins.txt");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, output->text);
}

TEST(HostGuide, CProgramsPrintWhatTheGuideShows) {
    std::vector<Block> blocks = FencedBlocks(ReadText(SourcePath("docs/host-guide.md")));
    int programs = 0;
    for (size_t i = 0; i < blocks.size(); i++) {
        if (blocks[i].info != "c program") continue;
        SCOPED_TRACE("docs/host-guide.md:" + std::to_string(blocks[i].line));
        ASSERT_TRUE(i + 1 < blocks.size() && blocks[i + 1].info == "text output") << "a program is followed by its output";
        std::string folder = WorkFolder("program-" + std::to_string(blocks[i].line));
        WriteText(folder + "/program.c", blocks[i].text);
        CommandResult build = RunCommand("cd '" + folder + "' && " VELTJS_TEST_CC " " VELTJS_TEST_C_FLAGS
                               " program.c '" VELTJS_LIBRARY "' -Wl,-rpath," VELTJS_LIBRARY_DIR " -o program 2>&1");
        ASSERT_EQ(build.status, 0) << build.output;
        CommandResult run = RunCommand("cd '" + folder + "' && ASAN_OPTIONS=detect_leaks=0 ./program");
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.output, blocks[i + 1].text);
        programs++;
    }
    EXPECT_GE(programs, 2);
}

TEST(HostGuide, PatchRecordsOfTheWorkedExamplePointWhereTheGuideSays) {
    std::vector<Block> blocks = FencedBlocks(ReadText(SourcePath("docs/host-guide.md")));
    const Block* script = FindBlock(blocks, "js worked-example");
    ASSERT_NE(script, nullptr);
    CompileUnit* unit = CompileExample(script->text);
    ASSERT_EQ(unit->status, 0);
    EXPECT_GT(unit->varCount + unit->funcCount + unit->stringCount, 10);
    ExpectPatchSitesAsTheGuideSays(unit, script->text);
}

TEST(Version, HeaderMacrosAreTheProjectVersion) {
    char text[64];
    std::snprintf(text, sizeof text, "%d.%d.%d", VELTJS_VERSION_MAJOR, VELTJS_VERSION_MINOR, VELTJS_VERSION_PATCH);
    EXPECT_STREQ(text, VELTJS_VERSION_STRING);
    EXPECT_STREQ(VELTJS_VERSION_STRING, VELTJS_PROJECT_VERSION);
}

TEST(Docs, LinksToASectionLeadToAHeading) {
    // Each guide, as a path below the source tree, and the folder its links start from.
    const std::vector<std::pair<std::string, std::string>> guides = {
        {"README.md", ""},
        {"docs/bytecode.md", "docs/"},
        {"docs/cli.md", "docs/"},
        {"docs/design.md", "docs/"},
        {"docs/host-guide.md", "docs/"},
        {"docs/language.md", "docs/"},
        {"docs/performance.md", "docs/"},
        {"docs/reliability.md", "docs/"},
    };
    std::map<std::string, std::set<std::string>> anchors;
    for (const auto& guide : guides) anchors[guide.first] = HeadingAnchors(ReadText(SourcePath(guide.first)));
    int links = 0;
    for (const auto& guide : guides) {
        std::string text = ReadText(SourcePath(guide.first));
        for (size_t at = text.find("]("); at != std::string::npos; at = text.find("](", at + 2)) {
            size_t end = text.find(')', at);
            if (end == std::string::npos) break;
            std::string target = text.substr(at + 2, end - at - 2);
            size_t hash = target.find('#');
            if (hash == std::string::npos || target.find("://") != std::string::npos) continue;
            std::string file = hash == 0 ? guide.first : guide.second + target.substr(0, hash);
            SCOPED_TRACE(guide.first + ": " + target);
            ASSERT_EQ(anchors.count(file), 1u) << "a link into a file that is not a guide";
            EXPECT_EQ(anchors[file].count(target.substr(hash + 1)), 1u) << "no such heading in " << file;
            links++;
        }
    }
    // The host guide's links within itself and to the other guides, reliability's to the host guide.
    EXPECT_GE(links, 11);
}
