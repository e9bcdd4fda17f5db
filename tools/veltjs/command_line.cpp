#include "command_line.h"

#include <memory>
#include <sstream>

#include <CLI/CLI.hpp>

namespace {

const char kSummary[] = "compile VeltJS scripts and show what a host receives";

const char kDescription[] =
    "Compiles each script in the order given, in one process, as a host does: the name table and "
    "the record lists grow from one script to the next. For each script it prints the code listing, "
    "the source positions, the names this script added to the table and the patch and function "
    "records, with every name shown as its text. Errors go to standard error as "
    "FILE:LINE:COL: error: MESSAGE with the source line and a caret; nothing is printed on standard "
    "output for a script that fails. What the compiler itself writes to standard output is caught "
    "and shown on standard error (or in the JSON document).\n"
    "\n"
    "An INPUT is a file, - for standard input, or a directory: every *.js file below it, in sorted "
    "path order. An input that cannot be read is reported and the run goes on.";

const char kDisasmDescription[] =
    "Lists a unit container written by veltjs --emit unit -o FILE.vjc: for every unit in it the "
    "code listing with names resolved, the positions, the names the unit uses and its patch and "
    "function records. With --raw, FILE is read as raw little-endian bytecode words instead, and "
    "names print as the library prints names it does not know.";

const char* const kExitStatus[][2] = {
    {"0", "Every script compiled (or the container was listed)."},
    {"1", "A script failed to parse or compile, an input could not be read, or the output could not "
          "be written."},
    {"2", "Usage error: an unknown option, a bad value, no input, or an unreadable --builtins file."},
};

const char kExamples[] =
    "veltjs hello.js                      listing and records of one script\n"
    "veltjs -p scripts/                   check a whole project, diagnostics only\n"
    "veltjs --json -o out.json scripts/   one JSON document for the project\n"
    "cat a.js | veltjs --tree -           syntax tree of standard input\n"
    "veltjs --emit unit -o a.vjc a.js     write the compiled unit\n"
    "veltjs disasm a.vjc                  list it again, names resolved";

const char kDisasmExamples[] =
    "veltjs disasm a.vjc\n"
    "veltjs disasm --raw code.bin";

constexpr size_t kWidth = 79;

// Wraps `text` at kWidth with every line indented by `indent` spaces; explicit newlines are kept.
std::string Wrap(const std::string& text, size_t indent) {
    std::string out;
    std::istringstream paragraphs(text);
    std::string paragraph;
    while (std::getline(paragraphs, paragraph)) {
        if (paragraph.empty()) {
            out += "\n";
            continue;
        }
        // Lines that are laid out already (columns of examples) stay as they are.
        if (paragraph.find("   ") != std::string::npos) {
            out += std::string(indent, ' ') + paragraph + "\n";
            continue;
        }
        std::istringstream words(paragraph);
        std::string word;
        std::string line;
        while (words >> word) {
            if (!line.empty() && indent + line.size() + 1 + word.size() > kWidth) {
                out += std::string(indent, ' ') + line + "\n";
                line.clear();
            }
            line += (line.empty() ? "" : " ") + word;
        }
        if (!line.empty()) out += std::string(indent, ' ') + line + "\n";
    }
    return out;
}

std::string OptionHeading(const CLI::Option* option) {
    std::string heading;
    for (const std::string& name : option->get_snames()) heading += (heading.empty() ? "-" : ", -") + name;
    for (const std::string& name : option->get_lnames()) heading += (heading.empty() ? "--" : ", --") + name;
    if (option->get_positional()) heading = option->get_name();
    // The type name without the list of allowed values that the parser appends to it.
    std::string type = option->get_type_name();
    type = type.substr(0, type.find(':'));
    if (!type.empty() && !option->get_positional()) heading += " " + type;
    return heading;
}

// A man page: NAME, SYNOPSIS, DESCRIPTION, ARGUMENTS, OPTIONS, COMMANDS, EXIT STATUS, EXAMPLES.
class ManFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
        bool sub = app->get_parent() != nullptr;
        std::string out = "NAME\n";
        out += Wrap(std::string(sub ? "veltjs disasm - " : "veltjs - ") +
                        (sub ? "list a unit container or raw bytecode" : kSummary),
                    7);
        out += "\nSYNOPSIS\n";
        if (sub) {
            out += "       veltjs disasm [--raw] [-o FILE] FILE\n";
        } else {
            out += "       veltjs [OPTIONS] INPUT...\n";
            out += "       veltjs disasm [--raw] [-o FILE] FILE\n";
        }
        out += "\nDESCRIPTION\n" + Wrap(app->get_description(), 7);
        std::string arguments;
        std::string options;
        for (const CLI::Option* option : app->get_options()) {
            std::string entry = "       " + OptionHeading(option) + "\n" + Wrap(option->get_description(), 14);
            (option->get_positional() ? arguments : options) += entry;
        }
        if (!arguments.empty()) out += "\nARGUMENTS\n" + arguments;
        out += "\nOPTIONS\n" + options;
        if (!sub) {
            out += "\nCOMMANDS\n";
            for (const CLI::App* command : app->get_subcommands({})) {
                out += "       " + command->get_name() + "\n" +
                       Wrap("List a unit container (names resolved) or, with --raw, raw bytecode. "
                            "See veltjs disasm --help.",
                            14);
            }
        }
        out += "\nEXIT STATUS\n";
        for (const auto& status : kExitStatus) out += "       " + std::string(status[0]) + "\n" + Wrap(status[1], 14);
        out += "\nEXAMPLES\n" + Wrap(sub ? kDisasmExamples : kExamples, 7);
        out += "\nSEE ALSO\n       docs/cli.md\n";
        return out;
    }
};

struct Parsed {
    bool check = false;
    bool tree = false;
    bool json = false;
    std::string emit = "listing";
    std::string colour = "auto";
    std::vector<std::string> builtinNames;
    std::vector<std::string> builtinFiles;
    std::string disasmOutput;
    std::string disasmFile;
};

std::unique_ptr<CLI::App> MakeApp(Options& options, Parsed& parsed, const std::string& version) {
    auto app = std::make_unique<CLI::App>(kDescription, "veltjs");
    app->formatter(std::make_shared<ManFormatter>());
    // "/path/to/a.js" is a file on every platform, never a Windows-style "/option".
    app->allow_windows_style_options(false);
    app->set_help_flag("-h,--help", "Show this help and exit.");
    app->set_version_flag("--version", "veltjs " + version, "Print the version, \"veltjs X.Y.Z\", and exit.");
    app->add_option("INPUT", options.inputs, "Script files, - for standard input, directories (every *.js below).")
        ->type_name("INPUT");
    app->add_flag("-p,--check", parsed.check, "Parse and compile; print nothing but diagnostics.");
    app->add_flag("--tree", parsed.tree, "Print the syntax tree of each script instead of compiling it.");
    app->add_flag("--json", parsed.json,
                  "Print one JSON document for the whole run (schema in docs/cli.md).");
    app->add_option("--emit", parsed.emit,
                    "What to write: listing (the default) or unit, the compiled units in a container "
                    "for veltjs disasm (needs -o).")
        ->type_name("KIND")
        ->check(CLI::IsMember({"listing", "unit"}));
    app->add_option("-o,--output", options.output, "Write the output to FILE instead of standard output.")
        ->type_name("FILE");
    app->add_flag("--top-level", options.topLevel, "Compile with the top-level flag set.");
    app->add_option("--builtin", parsed.builtinNames, "Declare a runner built-in function (repeatable).")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app->add_option("--builtins", parsed.builtinFiles,
                    "Declare the built-in functions listed in FILE, one name per line (repeatable).")
        ->type_name("FILE")
        ->allow_extra_args(false);
    app->add_option("--color", parsed.colour,
                    "Colour in diagnostics: auto (the default: only when standard error is a "
                    "terminal and NO_COLOR is not set), always or never.")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app->add_flag("--native-errors", options.nativeErrors,
                  "Print the library's own error text (\"Error : file(line) : message\") unchanged.");
    app->add_flag("-q,--quiet", options.quiet, "No summary line and no progress bar.");

    CLI::App* disasm = app->add_subcommand("disasm", kDisasmDescription);
    disasm->formatter(std::make_shared<ManFormatter>());
    disasm->set_help_flag("-h,--help", "Show this help and exit.");
    disasm->add_option("FILE", parsed.disasmFile, "A unit container (.vjc), or raw bytecode with --raw.")
        ->type_name("FILE")
        ->required();
    disasm->add_flag("--raw", options.raw, "Read FILE as raw little-endian bytecode words.");
    disasm->add_option("-o,--output", parsed.disasmOutput, "Write the listing to FILE instead of standard output.")
        ->type_name("FILE");
    return app;
}

void UsageError(FILE* err, const std::string& message) {
    std::fprintf(err, "veltjs: error: %s\nRun 'veltjs --help' for more information.\n", message.c_str());
}

void CollectBuiltIns(const CLI::App& app, const Parsed& parsed, Options& options) {
    const CLI::Option* names = app.get_option("--builtin");
    size_t nextName = 0;
    size_t nextFile = 0;
    for (const CLI::Option* option : app.parse_order()) {
        if (option == names) {
            if (nextName < parsed.builtinNames.size()) options.builtIns.push_back({false, parsed.builtinNames[nextName++]});
        } else if (option->check_lname("builtins")) {
            if (nextFile < parsed.builtinFiles.size()) options.builtIns.push_back({true, parsed.builtinFiles[nextFile++]});
        }
    }
}

}  // namespace

int ParseCommandLine(const std::vector<std::string>& arguments, const std::string& version, Options& options,
                     FILE* out, FILE* err) {
    Parsed parsed;
    std::unique_ptr<CLI::App> app = MakeApp(options, parsed, version);
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    if (!reversed.empty()) reversed.pop_back();   // the program name
    try {
        app->parse(reversed);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            std::ostringstream text;
            std::ostringstream ignored;
            app->exit(error, text, ignored);
            std::string shown = text.str();
            std::fwrite(shown.data(), 1, shown.size(), out);
            return kExitOk;
        }
        UsageError(err, error.what());
        return kExitUsage;
    }

    CLI::App* disasm = app->get_subcommand("disasm");
    if (disasm->parsed()) {
        if (!options.inputs.empty() || parsed.check || parsed.tree || parsed.json || parsed.emit != "listing" ||
            !parsed.builtinNames.empty() || !parsed.builtinFiles.empty() || options.topLevel) {
            UsageError(err, "disasm takes only --raw, -o and one FILE");
            return kExitUsage;
        }
        options.mode = Mode::Disasm;
        options.inputs = {parsed.disasmFile};
        if (!parsed.disasmOutput.empty()) options.output = parsed.disasmOutput;
    } else {
        int modes = (parsed.check ? 1 : 0) + (parsed.tree ? 1 : 0) + (parsed.json ? 1 : 0) + (parsed.emit == "unit" ? 1 : 0);
        if (modes > 1) {
            UsageError(err, "--check, --tree, --json and --emit unit cannot be combined");
            return kExitUsage;
        }
        if (parsed.check) options.mode = Mode::Check;
        if (parsed.tree) options.mode = Mode::Tree;
        if (parsed.json) options.mode = Mode::Json;
        if (parsed.emit == "unit") options.mode = Mode::Unit;
        if (options.mode == Mode::Check && !options.output.empty()) {
            UsageError(err, "--check prints nothing to write to -o");
            return kExitUsage;
        }
        if (options.mode == Mode::Unit && options.output.empty()) {
            UsageError(err, "--emit unit needs -o FILE (or -o - for standard output)");
            return kExitUsage;
        }
        if (options.inputs.empty()) {
            UsageError(err, "no input files");
            return kExitUsage;
        }
    }
    options.colour = parsed.colour == "always" ? ColourChoice::Always
                     : parsed.colour == "never" ? ColourChoice::Never
                                                : ColourChoice::Auto;
    CollectBuiltIns(*app, parsed, options);
    return -1;
}

std::string HelpText(const std::string& subcommand, const std::string& version) {
    Options options;
    Parsed parsed;
    std::unique_ptr<CLI::App> app = MakeApp(options, parsed, version);
    if (subcommand.empty()) return app->help();
    return app->get_subcommand(subcommand)->help();
}

std::vector<std::string> OptionNames(const std::string& subcommand, const std::string& version) {
    Options options;
    Parsed parsed;
    std::unique_ptr<CLI::App> app = MakeApp(options, parsed, version);
    const CLI::App* target = subcommand.empty() ? app.get() : app->get_subcommand(subcommand);
    std::vector<std::string> names;
    for (const CLI::Option* option : target->get_options()) {
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}
