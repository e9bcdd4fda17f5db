#include "run.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "state/process_state.h"
#include "support/diagnostics.h"
#include "capture.h"
#include "container.h"
#include "inputs.h"
#include "json_report.h"
#include "parser/node.h"
#include "parser/parser.h"
#include "platform.h"
#include "progress.h"
#include "text_report.h"
#include "veltjs.h"

namespace {

// Standard error, with the progress bar taken off the screen before anything is printed.
struct Messages {
    bool colour = false;
    bool native = false;
    Progress progress;

    void Print(const std::string& text) {
        ClearProgress(progress, stderr);
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
    void Error(const std::string& text) { Print(ToolMessage("error", text, colour)); }
    void Warning(const std::string& text) { Print(ToolMessage("warning", text, colour)); }
};

bool UseColour(ColourChoice choice) {
    if (choice == ColourChoice::Always) return true;
    if (choice == ColourChoice::Never) return false;
    const char* noColour = std::getenv("NO_COLOR");
    if (noColour && *noColour) return false;
    return StandardErrorIsTerminal();
}

// The output: standard output, or the -o file.
struct Output {
    FILE* file = stdout;
    std::string path;   // empty for standard output

    bool Open(const std::string& name, std::string& reason) {
        if (name.empty() || name == "-") return true;
        errno = 0;
        file = OpenFile(name, "w");
        if (!file) {
            reason = ReasonText(errno ? errno : EACCES);
            file = stdout;
            return false;
        }
        path = name;
        return true;
    }

    // Flushes and closes; false when a write failed (a full disk, a closed pipe).
    bool Close() {
        bool ok = std::fflush(file) == 0 && !std::ferror(file);
        if (file != stdout) ok = std::fclose(file) == 0 && ok;
        file = stdout;
        return ok;
    }
};

bool DeclareBuiltIns(const Options& options, Messages& messages) {
    for (const BuiltIn& builtIn : options.builtIns) {
        if (!builtIn.fromFile) {
            VeltJS_AddBuiltInFunction(builtIn.value.c_str());
            continue;
        }
        std::string contents;
        std::string reason;
        if (!ReadNamedFile(builtIn.value, contents, reason)) {
            messages.Error("cannot read " + builtIn.value + ": " + reason);
            return false;
        }
        size_t start = 0;
        while (start < contents.size()) {
            size_t end = contents.find_first_of("\r\n", start);
            if (end == std::string::npos) end = contents.size();
            std::string name = contents.substr(start, end - start);
            // The table keeps its own copy of the name.
            if (!name.empty()) VeltJS_AddBuiltInFunction(name.c_str());
            start = end + 1;
        }
    }
    return true;
}

void RecordErrors(const CompileUnit* unit, const std::string& source, ScriptResult& result) {
    DiagnosticLocation location = unit->status == 1 ? LastErrorLocation() : DiagnosticLocation{};
    for (int32_t i = 0; i < unit->errorCount; i++) {
        result.errors.push_back(DescribeError(result.file, source, unit->errors[i], location));
    }
}

void ShowLibraryOutput(const ScriptResult& result, Messages& messages) {
    if (result.libraryOutput.empty()) return;
    if (messages.native) {
        messages.Print(result.libraryOutput);
        return;
    }
    std::string text = result.file + ": note: the compiler wrote to standard output:\n" + result.libraryOutput;
    if (text.back() != '\n') text += '\n';
    messages.Print(text);
}

void ShowErrors(const ScriptResult& result, Messages& messages) {
    for (const ErrorReport& error : result.errors) {
        messages.Print(messages.native ? error.native : FormatError(error, messages.colour));
    }
}

const char* VerbOf(Mode mode) { return mode == Mode::Tree ? "parsed" : "compiled"; }

}  // namespace

int RunCompile(const Options& options, const std::string& version) {
    Messages messages;
    messages.colour = UseColour(options.colour);
    messages.native = options.nativeErrors;
    messages.progress.enabled = !options.quiet && StandardErrorIsTerminal();
    double start = SecondsNow();
    messages.progress.start = start;

    VeltJS_Init();
    if (!DeclareBuiltIns(options, messages)) return kExitUsage;

    std::vector<std::string> emptyDirectories;
    std::vector<Input> inputs = ExpandInputs(options.inputs, emptyDirectories);
    for (const std::string& directory : emptyDirectories) messages.Warning("no *.js files in " + directory);

    Output output;
    std::string reason;
    if (options.mode != Mode::Unit && options.mode != Mode::Check && !output.Open(options.output, reason)) {
        messages.Error("cannot write " + options.output + ": " + reason);
        return kExitFailed;
    }

    StdoutCapture capture;
    if (!OpenCapture(capture)) messages.Warning("cannot catch the compiler's own output: it goes to standard output");

    if (options.mode == Mode::Json) BeginJsonDocument(output.file, version, options.topLevel);
    RunTotals totals;
    std::vector<ScriptResult> unreadable;
    std::vector<UnitData> units;
    uint32_t namesShown = NameTableCount();
    bool firstJson = true;

    for (const Input& input : inputs) {
        ScriptResult result;
        result.file = input.path;
        result.script = input.script;
        totals.scripts++;
        std::string source;
        if (!ReadInput(input, source, result.readError)) {
            messages.Error("cannot read " + input.path + ": " + result.readError);
            totals.failed++;
            totals.unreadable++;
            unreadable.push_back(result);
            UpdateProgress(messages.progress, totals.scripts, inputs.size(), stderr);
            continue;
        }
        result.read = true;
        result.sourceBytes = source.size();
        totals.sourceBytes += source.size();

        ForgetLastErrorLocation();
        BeginCapture(capture);
        CompileUnit* unit = VeltJS_Parse(source.c_str(), input.path.c_str(), input.script.c_str());
        EndCapture(capture, result.libraryOutput);
        if (unit->status == 0 && options.mode != Mode::Tree) {
            ForgetLastErrorLocation();
            BeginCapture(capture);
            VeltJS_Compile(unit, options.topLevel ? 1 : 0);
            EndCapture(capture, result.libraryOutput);
        }
        result.status = unit->status;
        if (unit->status != 0) {
            RecordErrors(unit, source, result);
            totals.failed++;
        } else {
            totals.succeeded++;
            if (options.mode != Mode::Tree) {
                result.unit = CopyUnit(unit, input.path, input.script, options.topLevel);
                result.firstName = namesShown;
                result.nameEnd = NameTableCount();
                namesShown = result.nameEnd;
            }
        }

        if (options.mode != Mode::Json && options.mode != Mode::Check) ShowLibraryOutput(result, messages);
        ShowErrors(result, messages);

        if (options.mode == Mode::Json) {
            WriteJsonScript(output.file, result, firstJson);
            firstJson = false;
        } else if (result.status == 0) {
            if (options.mode == Mode::Listing) {
                std::vector<uint32_t> added;
                for (uint32_t id = result.firstName; id < result.nameEnd; id++) added.push_back(id);
                WriteUnitText(output.file, result.unit, ListingOf(result.unit), "names added", added);
            } else if (options.mode == Mode::Tree) {
                RefString* dump = DumpTree(&static_cast<Parser*>(unit->parser)->root, 0);
                std::fprintf(output.file, "== %s\n%s\n", input.path.c_str(), dump && dump->text ? dump->text : "");
                ReleaseRefString(dump);
            } else if (options.mode == Mode::Unit) {
                units.push_back(std::move(result.unit));
            }
        }
        UpdateProgress(messages.progress, totals.scripts, inputs.size(), stderr);
    }
    CloseCapture(capture);

    int status = totals.failed ? kExitFailed : kExitOk;
    if (options.mode == Mode::Json) EndJsonDocument(output.file, unreadable, totals);
    if (options.mode == Mode::Unit) {
        if (totals.failed) {
            messages.Error(options.output + " not written: " + GroupThousands(totals.failed) +
                           (totals.failed == 1 ? " script" : " scripts") + " failed");
        } else if (!output.Open(options.output, reason)) {
            messages.Error("cannot write " + options.output + ": " + reason);
            status = kExitFailed;
        } else {
            std::string bytes = EncodeContainer(units);
            std::fwrite(bytes.data(), 1, bytes.size(), output.file);
        }
    }
    if (!output.Close()) {
        messages.Error("cannot write " + (output.path.empty() ? std::string("standard output") : output.path));
        status = kExitFailed;
    }
    if (!options.quiet && totals.scripts >= 2) {
        messages.Print(SummaryLine(VerbOf(options.mode), totals, SecondsNow() - start));
    }
    ClearProgress(messages.progress, stderr);
    return status;
}

int RunDisasm(const Options& options) {
    Messages messages;
    messages.colour = UseColour(options.colour);
    const std::string& path = options.inputs.front();
    std::string bytes;
    std::string reason;
    if (!ReadNamedFile(path, bytes, reason)) {
        messages.Error("cannot read " + path + ": " + reason);
        return kExitFailed;
    }
    VeltJS_Init();
    Output output;
    if (!output.Open(options.output, reason)) {
        messages.Error("cannot write " + options.output + ": " + reason);
        return kExitFailed;
    }
    if (options.raw) {
        // Whole words only, padded with zeros so an instruction cut off at the end reads safely.
        std::vector<uint32_t> words((bytes.size() + 3) / 4 + 3, 0);
        for (size_t i = 0; i < bytes.size(); i++) {
            words[i / 4] |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * (i % 4));
        }
        char* listing = VeltJS_Disasm(words.data(), static_cast<int64_t>(bytes.size()));
        if (listing) std::fputs(listing, output.file);
        std::free(listing);
    } else {
        if (!LooksLikeContainer(bytes)) {
            messages.Error(path + " is not a unit container (to list raw bytecode words, use --raw)");
            output.Close();
            return kExitFailed;
        }
        // The container outlives the listing: the name table keeps pointers to its texts.
        static Container container;
        std::string error;
        if (!DecodeContainer(bytes, container, error)) {
            messages.Error(path + ": damaged unit container: " + error);
            output.Close();
            return kExitFailed;
        }
        // Ids the container does not hold read as the library prints names it does not know.
        static const char kUnknown[] = "<unknown>";
        uint32_t next = 0;
        for (const auto& name : container.names) {
            for (; next < name.first; next++) AppendNameToTable(kUnknown);
            AppendNameToTable(name.second.c_str());
            next++;
        }
        for (const UnitData& unit : container.units) {
            std::vector<uint32_t> stored;
            for (uint32_t id : NamesUsed(unit)) {
                const char* text = NameText(id);
                if (text && text != kUnknown) stored.push_back(id);
            }
            WriteUnitText(output.file, unit, ListingOf(unit), "names used", stored);
        }
    }
    if (!output.Close()) {
        messages.Error("cannot write " + (output.path.empty() ? std::string("standard output") : output.path));
        return kExitFailed;
    }
    return kExitOk;
}
