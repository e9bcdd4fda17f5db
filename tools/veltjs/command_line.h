// The command line: options anywhere, a man-style --help, usage errors with exit status 2.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

enum class Mode { Listing, Check, Tree, Json, Unit, Disasm };
enum class ColourChoice { Auto, Always, Never };

struct BuiltIn {
    bool fromFile;       // --builtins FILE (else --builtin NAME)
    std::string value;
};

struct Options {
    Mode mode = Mode::Listing;
    std::vector<std::string> inputs;   // files, "-", directories; for disasm the one file
    std::string output;                // empty or "-": standard output
    bool topLevel = false;
    bool quiet = false;
    bool nativeErrors = false;
    bool raw = false;                  // disasm --raw
    ColourChoice colour = ColourChoice::Auto;
    std::vector<BuiltIn> builtIns;     // in command-line order
};

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// Parses `arguments` (program name first). Returns -1 when the tool should run with `options`;
// otherwise the exit status, after printing the help or version to `out` or a usage error to
// `err`.
int ParseCommandLine(const std::vector<std::string>& arguments, const std::string& version, Options& options,
                     FILE* out, FILE* err);

// The help text of the command ("" ) or of a subcommand ("disasm"), for tests and docs.
std::string HelpText(const std::string& subcommand, const std::string& version);

// Every long and short option name the parser knows, for tests that check the help lists them.
std::vector<std::string> OptionNames(const std::string& subcommand, const std::string& version);
