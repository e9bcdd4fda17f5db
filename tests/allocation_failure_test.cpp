// Every allocation of every export fails once, in turn: the export returns normally with the
// failure recorded, the process-wide tables are as they were, nothing leaks beyond what the
// library keeps by design, and the next parse and compile give exactly what they give without
// the failure. Each attempt runs in a forked child of a process that has done only the
// scenario's set-up, so every attempt starts from the same state, and the reference results
// come from a child that ran without a failure.
//
// Built only with the test-only allocation hook (VELTJS_FAULT_INJECTION, the sanitizer preset).
#include <gtest/gtest.h>

#if defined(VELTJS_FAULT_INJECTION)

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "codegen/context.h"
#include "helpers/unit_report.h"
#include "state/process_state.h"
#include "support/fault_injection.h"
#include "veltjs.h"

// The library's std containers and `new` expressions allocate through these; while the hook is
// armed they count against the same countdown as the library's own allocation helpers.
void* operator new(std::size_t size) {
    if (AllocationShouldFail()) throw std::bad_alloc();
    void* block = std::malloc(size ? size : 1);
    if (!block) throw std::bad_alloc();
    return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (AllocationShouldFail()) return nullptr;
    return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

extern "C" int __lsan_do_recoverable_leak_check(void) __attribute__((weak));

namespace {

// Functions, loops, labels, object literals with accessors, switch, try, strings with escapes,
// a regular expression, for-in, new, delete, typeof, instanceof.
const char kRealisticScript[] = R"js(var total = 0, names = ["a", "b", , "c"];
function add(x, y) { return x + y; }
function Counter(start) {
    this.value = start;
    var self = this;
    return { get current() { return self.value; }, set current(v) { self.value = v; },
             step: function () { self.value++; return arguments.length; } };
}
var pattern = /ab+c/gi;
outer: for (var i = 0; i < 10; i++) {
    for (var key in names) {
        if (key == "b") continue outer;
        if (i > 5) break outer;
        total = add(total, i * 2 - 1) % 7;
    }
}
switch (total) {
    case 1: total += 1; break;
    case "two": total -= 2;
    default: total = total << 1;
}
try { throw new Error("bad " + total); } catch (e) { total = typeof e; } finally { total = total || null; }
var j = 0;
do { j += 3; } while (j < 20 && !(j === 9));
while (j > 0) { j = j - 1; if (j == 4) break; }
var c = new Counter(3);
c.current = c.current + 1.5;
delete c.step;
var s = 'it\'s ' + "\x41\u0042" + (c instanceof Counter ? "yes" : "no") + pattern.source;
)js";

// The script compiled after each failure.
const char kNextScript[] = R"js(function fib(n) { if (n < 2) return n; return fib(n - 1) + fib(n - 2); }
var list = [1, 2.5, "three", null, true, 70000, 3000000000];
var obj = { name: "b", size: list.length, get twice() { return this.size * 2; } };
for (var k = 0; k < list.length; k++) { obj.name += list[k]; }
var r = /x*y/m, f = function (a) { return a ? -a : ~a; };
done: while (true) { if (fib(3) > 1) break done; }
)js";

// A script that redefines functions of an earlier one, so their records are replaced in place.
const char kEarlierScript[] = R"js(function add(x) { return x; }
function Counter() { var kept = 1; return kept; }
var total = "earlier";
)js";

std::string ReadAll(int descriptor) {
    std::string text;
    char buffer[4096];
    for (;;) {
        ssize_t got = read(descriptor, buffer, sizeof buffer);
        if (got <= 0) break;
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

struct ChildResult {
    std::string output;   // what the body returned
    bool clean;           // exited normally, status 0, and no leak found
    std::string how;      // how it ended when not clean
};

// Runs `body` in a forked child and brings back what it returns. The child then runs the leak
// check: leaks it reports make the result unclean.
ChildResult InChild(const std::function<std::string()>& body) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return {"", false, "no pipe"};
    std::fflush(stdout);
    std::fflush(stderr);
    pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        std::string output = body();
        size_t written = 0;
        while (written < output.size()) {
            ssize_t put = write(pipeEnds[1], output.data() + written, output.size() - written);
            if (put <= 0) break;
            written += static_cast<size_t>(put);
        }
        close(pipeEnds[1]);
        int leaked = __lsan_do_recoverable_leak_check ? __lsan_do_recoverable_leak_check() : 0;
        std::fflush(stdout);
        _exit(leaked ? 3 : 0);
    }
    close(pipeEnds[1]);
    ChildResult result;
    result.output = ReadAll(pipeEnds[0]);
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.clean = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (WIFSIGNALED(status)) {
        result.how = "killed by signal " + std::to_string(WTERMSIG(status));
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == 3) {
        result.how = "leaks reported";
    } else if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        result.how = "exit status " + std::to_string(WEXITSTATUS(status));
    }
    return result;
}

CompileUnit* ParseAndCompile(const char* source, uint8_t topLevel, const char* scriptName = "main") {
    CompileUnit* unit = VeltJS_Parse(source, "script.js", scriptName);
    if (unit && unit->status == 0) VeltJS_Compile(unit, topLevel);
    return unit;
}

// Units stay reachable, as a host would keep them: what they hold is then no concern of the leak
// check, which looks at what the failure paths leave behind.
CompileUnit* keptUnits[2];

// What the next parse and compile give.
std::string NextScriptResult() {
    keptUnits[1] = ParseAndCompile(kNextScript, 0, "next");
    return DescribeUnit(keptUnits[1]);
}

// The attempt's findings, one per line; the first line says whether the armed allocation failed
// and how many were counted.
struct Findings {
    std::ostringstream lines;
    void Expect(bool ok, const std::string& what) {
        if (!ok) lines << "PROBLEM " << what << "\n";
    }
};

// The checks every attempt makes after its call returned: the tables as before the call when
// the allocation failed, consistent indexes, and the next compile exactly as without failure.
void CheckProcessAfterwards(Findings& findings, bool failed, const std::string& tablesBefore,
                            const std::string& nextReference) {
    if (failed) {
        std::string tablesAfter = DescribeTables();
        findings.Expect(tablesAfter == tablesBefore, "tables changed: " + FirstDifference(tablesBefore, tablesAfter));
    }
    std::string consistency = CheckTableConsistency();
    findings.Expect(consistency.empty(), "inconsistent tables: " + consistency);
    if (!nextReference.empty()) {
        std::string next = NextScriptResult();
        findings.Expect(next == nextReference, "the next compile differs: " + FirstDifference(nextReference, next));
    }
}

// A unit whose parse or compile ended for memory: status -1, one message, the constant text.
void CheckUnknownError(Findings& findings, const CompileUnit* unit, const char** constant) {
    findings.Expect(unit->status == -1, "status " + std::to_string(unit->status));
    findings.Expect(unit->errorCount == 1, "errorCount " + std::to_string(unit->errorCount));
    if (!unit->errors || unit->errorCount != 1) return;
    findings.Expect(unit->errors[0] && std::strcmp(unit->errors[0], "Unknown error") == 0,
                    "message is not 'Unknown error'");
    *constant = unit->errors[0];
}

// One export call, made with the hook armed. Returns a text that says what the call gave; when
// an allocation failed it checks the failure's outcome itself (into `findings`) and sets
// `constant` to the "Unknown error" text it found, if any.
using Call = std::function<std::string(Findings& findings, bool armed, const char** constant)>;

struct Scenario {
    std::function<void()> setUp;   // in the parent: the state every attempt starts from
    Call call;
    bool persistent = false;       // every allocation from the armed one on fails
};

// Runs the call with its 1st, 2nd, ... allocation failing until the call needs fewer allocations
// than that. Returns how many attempts made an allocation fail.
int64_t RunEveryFailure(const Scenario& scenario) {
    VeltJS_Init();
    if (scenario.setUp) scenario.setUp();
    // Symbolizing the allocation sites of kept memory for the leak check's suppressions is slow
    // the first time; done once here, before the children are forked, it is done for all.
    VeltJS_Parse(kRealisticScript, "warm.js", "warm");
    VeltJS_Parse(kNextScript, "warm.js", "warm");
    VeltJS_Parse("var 1;", "warm.js", "warm");
    if (__lsan_do_recoverable_leak_check) __lsan_do_recoverable_leak_check();

    ChildResult reference = InChild([&] {
        Findings findings;
        const char* constant = nullptr;
        return scenario.call(findings, false, &constant);
    });
    EXPECT_TRUE(reference.clean) << reference.how;
    // The next script compiled straight from the starting state.
    ChildResult next = InChild([] { return NextScriptResult(); });
    EXPECT_TRUE(next.clean) << next.how;
    std::string tablesBefore = DescribeTables();

    int64_t attempts = 0;
    std::string firstConstant;
    for (int64_t nth = 1;; nth++) {
        ChildResult attempt = InChild([&] {
            Findings findings;
            const char* constant = nullptr;
            ArmAllocationFailure(nth, scenario.persistent);
            std::string outcome = scenario.call(findings, true, &constant);
            bool failed = AllocationFailureHappened();
            int64_t counted = DisarmAllocationFailure();
            std::ostringstream head;
            head << (failed ? "failed" : "completed") << " " << counted << " " << static_cast<const void*>(constant)
                 << "\n";
            if (!failed) {
                // Fewer allocations than nth: the call ran to its end and must give the reference.
                findings.Expect(outcome == reference.output,
                                "without a failure the call differs: " + FirstDifference(reference.output, outcome));
            }
            // A call that ran to its end left its additions, so the next script gives something
            // else by design: only failed calls are followed by the next script.
            CheckProcessAfterwards(findings, failed, tablesBefore, failed ? next.output : "");
            return head.str() + findings.lines.str();
        });
        std::istringstream lines(attempt.output);
        std::string state;
        int64_t counted = 0;
        std::string constant;
        lines >> state >> counted >> constant;
        EXPECT_TRUE(attempt.clean) << "allocation " << nth << ": " << attempt.how << "\n" << attempt.output;
        EXPECT_EQ(attempt.output.find("PROBLEM"), std::string::npos) << "allocation " << nth << ":\n" << attempt.output;
        if (state != "failed") {
            EXPECT_EQ(state, "completed") << "allocation " << nth << ": " << attempt.how;
            EXPECT_EQ(counted, nth - 1) << "the call made " << counted << " allocations";
            break;
        }
        // The constant text is one object, whichever call recorded it.
        if (constant != "0") {
            if (firstConstant.empty()) firstConstant = constant;
            EXPECT_EQ(constant, firstConstant) << "allocation " << nth;
        }
        attempts++;
        if (::testing::Test::HasFailure() && attempts > 20) break;
    }
    std::printf("allocations made to fail in turn: %lld\n", static_cast<long long>(attempts));
    return attempts;
}

// Parse then compile `source` as a host does (compiling only what parsed); a failed allocation
// ends one of them with status -1.
Call ParseAndCompileCall(const char* source, uint8_t topLevel) {
    return [source, topLevel](Findings& findings, bool armed, const char** constant) {
        CompileUnit* unit = VeltJS_Parse(source, "script.js", "main");
        keptUnits[0] = unit;
        bool parsed = unit && unit->status == 0;
        if (parsed) VeltJS_Compile(unit, topLevel);
        bool failed = armed && AllocationFailureHappened();
        int64_t counted = DisarmAllocationFailure();
        if (!failed) return DescribeUnit(unit);
        if (!unit) {
            // No unit only when there was no memory for the unit itself, the parse's first allocation.
            findings.Expect(counted == 1, "no unit after " + std::to_string(counted) + " allocations");
            return std::string();
        }
        CheckUnknownError(findings, unit, constant);
        if (!parsed) findings.Expect(unit->parser == nullptr, "a failed parse left a parser");
        findings.Expect(unit->scriptName != nullptr, "no script name");
        // A unit is filled in whole or not at all: nothing of the failed compile shows.
        findings.Expect(!unit->code && !unit->code2 && unit->codeSize == 0 && unit->code2Size == 0,
                        "a failed compile left code in the unit");
        findings.Expect(!unit->names && !unit->vars && !unit->funcs && !unit->strings && !unit->fourth,
                        "a failed compile left table pointers in the unit");
        findings.Expect(unit->nameCount == 0 && unit->varCount == 0 && unit->funcCount == 0 &&
                            unit->stringCount == 0 && unit->fourthCount == 0,
                        "a failed compile left counts in the unit");
        return std::string();
    };
}

// The host places names past the count and declares a built-in, and an earlier script defines
// functions that the realistic script defines again (their records are then replaced in place).
void SetUpAnEarlierCompile() {
    VeltJS_AddBuiltInFunction("print");
    keptUnits[1] = ParseAndCompile(kEarlierScript, 1, "earlier");
    ASSERT_EQ(keptUnits[1]->status, 0);
    static const char placedFar[] = "placedFar";
    static const char placedNext[] = "placedNext";
    VeltJS_AddName(placedNext, NameArray.count);
    VeltJS_AddName(placedFar, NameArray.count + 5);
}

std::vector<uint32_t> realisticCode;

// The realistic script's parse and compile ask for memory at least this often: a floor that shows
// the scenario reached every stage. It counts the library's own requests, which are fewer since
// tokens of the same text share one record and empty tables get no buckets (1,556 before, 1,286
// after; 1,249 for the compile after an earlier one).
constexpr int64_t kRealisticScriptRequests = 1100;

}  // namespace

TEST(AllocationFailure, EveryAllocationOfTheFirstParseAndCompileOfAProcess) {
    Scenario scenario;
    scenario.call = ParseAndCompileCall(kRealisticScript, 0);
    EXPECT_GT(RunEveryFailure(scenario), kRealisticScriptRequests);
}

TEST(AllocationFailure, EveryAllocationOfALaterTopLevelCompileThatReplacesFunctionRecords) {
    Scenario scenario;
    scenario.setUp = SetUpAnEarlierCompile;
    scenario.call = ParseAndCompileCall(kRealisticScript, 1);
    EXPECT_GT(RunEveryFailure(scenario), kRealisticScriptRequests);
}

TEST(AllocationFailure, FromEveryAllocationOnAllLaterOnesFailToo) {
    Scenario scenario;
    scenario.persistent = true;
    scenario.call = ParseAndCompileCall(kRealisticScript, 0);
    EXPECT_GT(RunEveryFailure(scenario), kRealisticScriptRequests);
}

TEST(AllocationFailure, EveryAllocationOfAParseThatEndsInASyntaxError) {
    Scenario scenario;
    scenario.call = ParseAndCompileCall("var a = { b: [1, 'two'] };\nvar = 2;\n", 0);
    EXPECT_GT(RunEveryFailure(scenario), 20);
}

TEST(AllocationFailure, EveryAllocationOfAParseThatDumpsItsTreeBeforeTheError) {
    Scenario scenario;
    scenario.call = ParseAndCompileCall("var a = [1, 'x'];\nb = (2 + );\n", 0);
    EXPECT_GT(RunEveryFailure(scenario), 20);
}

TEST(AllocationFailure, EveryAllocationOfACompileThatEndsInACompileError) {
    Scenario scenario;
    scenario.setUp = SetUpAnEarlierCompile;
    scenario.call = ParseAndCompileCall("function first(q) { return q; }\nvar n = 'x';\nbreak nowhere;\n", 0);
    EXPECT_GT(RunEveryFailure(scenario), 50);
}

TEST(AllocationFailure, EveryAllocationOfACompileThatFailsInsideNestedLoopsOfAFunction) {
    Scenario scenario;
    scenario.setUp = SetUpAnEarlierCompile;
    scenario.call = ParseAndCompileCall(
        "function add(q) {\n"
        "  switch (q) { case 1: while (q) { var s = 'x' + q; break nowhere; } }\n"
        "  return q;\n"
        "}\n",
        0);
    EXPECT_GT(RunEveryFailure(scenario), 50);
}

TEST(AllocationFailure, EveryAllocationOfADisassembly) {
    Scenario scenario;
    scenario.setUp = [] {
        keptUnits[1] = ParseAndCompile(kRealisticScript, 0);
        ASSERT_EQ(keptUnits[1]->status, 0);
        realisticCode.assign(keptUnits[1]->code, keptUnits[1]->code + keptUnits[1]->codeSize / 4);
    };
    scenario.call = [](Findings& findings, bool armed, const char**) {
        char* listing = VeltJS_Disasm(realisticCode.data(), static_cast<int64_t>(realisticCode.size() * 4));
        bool failed = armed && AllocationFailureHappened();
        DisarmAllocationFailure();
        if (failed) findings.Expect(listing == nullptr, "a failed disassembly returned a listing");
        std::string text = listing ? listing : "(null)";
        std::free(listing);
        return failed ? std::string() : text;
    };
    EXPECT_GT(RunEveryFailure(scenario), 10);
}

TEST(AllocationFailure, EveryAllocationOfAddNameGrowingTheTable) {
    Scenario scenario;
    scenario.setUp = SetUpAnEarlierCompile;
    scenario.call = [](Findings&, bool, const char**) {
        static const char placed[] = "placedBeyond";
        VeltJS_AddName(placed, NameArray.reserved + 100);
        DisarmAllocationFailure();
        return DescribeTables();
    };
    EXPECT_GE(RunEveryFailure(scenario), 1);
}

TEST(AllocationFailure, EveryAllocationOfAddBuiltInFunction) {
    Scenario scenario;
    scenario.setUp = SetUpAnEarlierCompile;
    scenario.call = [](Findings&, bool, const char**) {
        VeltJS_AddBuiltInFunction("runnerPrint");
        DisarmAllocationFailure();
        return DescribeTables() + (IsBuiltInFunction("runnerPrint") ? "declared\n" : "not declared\n");
    };
    EXPECT_GE(RunEveryFailure(scenario), 3);
}

TEST(AllocationFailure, InitAndQuitAllocateNothing) {
    ArmAllocationFailure(1, true);
    VeltJS_Init();
    VeltJS_Quit();
    EXPECT_FALSE(AllocationFailureHappened());
    EXPECT_EQ(DisarmAllocationFailure(), 0);
    EXPECT_EQ(NameHash("a"), ~0xE8B7BE43u);
}

#endif  // VELTJS_FAULT_INJECTION
