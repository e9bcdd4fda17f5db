#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>

#include "helpers/tree_text.h"

namespace {

std::string Repeat(const std::string& piece, int times) {
    std::string out;
    out.reserve(piece.size() * static_cast<size_t>(times));
    for (int i = 0; i < times; i++) out += piece;
    return out;
}

struct Construct {
    const char* name;
    std::function<std::string(int)> source;
    std::function<size_t(int)> depth;   // TreeDepth of the root for n levels
};

const Construct kConstructs[] = {
    {"parentheses", [](int n) { return Repeat("(", n) + "a" + Repeat(")", n); },
     [](int) { return size_t{2}; }},
    {"parenthesised sums", [](int n) { return Repeat("a+(", n) + "a" + Repeat(")", n); },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"array literals", [](int n) { return Repeat("[", n) + Repeat("]", n); },
     [](int n) { return static_cast<size_t>(n) + 1; }},
    {"index brackets", [](int n) { return "a" + Repeat("[a", n) + Repeat("]", n); },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"calls", [](int n) { return Repeat("f(", n) + Repeat(")", n); },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"blocks", [](int n) { return Repeat("{", n) + Repeat("}", n); },
     [](int n) { return static_cast<size_t>(n) + 1; }},
    {"object literals", [](int n) { return "x = " + Repeat("{a:", n) + "1" + Repeat("}", n); },
     [](int n) { return 2 * static_cast<size_t>(n) + 3; }},
    {"unary operators", [](int n) { return Repeat("!", n) + "a"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"news", [](int n) { return Repeat("new ", n) + "F"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"conditionals", [](int n) { return Repeat("a ? ", n) + "b" + Repeat(" : c", n); },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"else conditionals", [](int n) { return Repeat("a ? b : ", n) + "c"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"assignments", [](int n) { return Repeat("a = ", n) + "b"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"arrows", [](int n) { return Repeat("x => ", n) + "1"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"function expressions",
     [](int n) { return "x = " + Repeat("function(){ return ", n) + "1" + Repeat(" }", n); },
     [](int n) { return 3 * static_cast<size_t>(n) + 3; }},
    {"if statements", [](int n) { return Repeat("if (a) ", n) + "b;"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"while statements", [](int n) { return Repeat("while (a) ", n) + "b;"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"for statements", [](int n) { return Repeat("for (;;) ", n) + "b;"; },
     [](int n) { return static_cast<size_t>(n) + 2; }},
    {"function declarations", [](int n) { return Repeat("function f() {", n) + Repeat("}", n); },
     [](int n) { return 2 * static_cast<size_t>(n) + 1; }},
};

struct Job {
    std::string source;
    int status = -2;
    std::string error;
    size_t depth = 0;
};

void* ParseJob(void* argument) {
    Job* job = static_cast<Job*>(argument);
    ParseResult result = ParseSource(job->source);
    job->status = result.unit->status;
    job->error = result.error;
    if (result.parser) job->depth = TreeDepth(&result.parser->root);
    return nullptr;
}

// The stack of the smallest host thread we support (a Windows main thread), scaled for the
// larger frames of an instrumented build.
size_t HostStackSize() {
#if defined(__SANITIZE_ADDRESS__)
    return 4u * 1024 * 1024;
#else
    return 1024u * 1024;
#endif
}

Job RunOnSmallStack(const std::string& source) {
    Job job;
    job.source = source;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, HostStackSize());
    pthread_t thread;
    if (pthread_create(&thread, &attributes, ParseJob, &job) == 0) pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return job;
}

TEST(ParserNesting, FiveHundredLevelsParseExactlyOnASmallStack) {
    for (const Construct& construct : kConstructs) {
        Job job = RunOnSmallStack(construct.source(500));
        EXPECT_EQ(job.status, 0) << construct.name << ": " << job.error;
        EXPECT_EQ(job.depth, construct.depth(500)) << construct.name;
    }
}

TEST(ParserNesting, SmallNestingHasTheSameShape) {
    EXPECT_EQ(Parsed("((a))"), "a");
    EXPECT_EQ(Parsed("[[]]"), "ARRAY(ARRAY)");
    EXPECT_EQ(Parsed("{{}}"), "{({)");
    EXPECT_EQ(Parsed("x = {a:{a:1}}"), "=(x,OBJECT(a(OBJECT(a(1)))))");
    EXPECT_EQ(Parsed("new new F"), "NEW(NEW(F))");
    EXPECT_EQ(Parsed("a ? a ? b : c : c"), "?(a,?(a,b,c),c)");
    EXPECT_EQ(Parsed("a = a = b"), "=(a,=(a,b))");
    EXPECT_EQ(Parsed("x = function(){ return function(){ return 1 } }"),
              "=(x,FUNCTION(UNDEFINED,(,{(RETURN(FUNCTION(UNDEFINED,(,{(RETURN(1)))))))");
    EXPECT_EQ(Parsed("!!!a"), "!(!(!(a)))");
}

TEST(ParserNesting, HundredThousandLevelsReportNestingTooDeep) {
    for (const Construct& construct : kConstructs) {
        Job job = RunOnSmallStack(construct.source(100000));
        EXPECT_EQ(job.status, 1) << construct.name;
        EXPECT_EQ(job.error, "Error : f(1) : nesting too deep\n") << construct.name;
    }
}

TEST(ParserNesting, ThreeHundredThousandLevelsOnTheMainThread) {
    // The main thread's stack is larger; 300,000 levels exhaust it all the same.
    for (const Construct& construct : kConstructs) {
        ParseResult result = ParseSource(construct.source(300000));
        EXPECT_EQ(result.error, "Error : f(1) : nesting too deep\n") << construct.name;
    }
}

TEST(ParserNesting, PrefixOperatorChainsAreBoundedAtTenThousand) {
    Job longest = RunOnSmallStack(Repeat("!", 10000) + "a");
    EXPECT_EQ(longest.status, 0) << longest.error;
    EXPECT_EQ(longest.depth, 10002u);
    Job mixed = RunOnSmallStack("a" + Repeat("-~", 5000) + "b");
    EXPECT_EQ(mixed.status, 0) << mixed.error;
    Job tooLong = RunOnSmallStack(Repeat("!", 10001) + "a");
    EXPECT_EQ(tooLong.status, 1);
    EXPECT_EQ(tooLong.error, "Error : f(1) : nesting too deep\n");
    Job onLaterLine = RunOnSmallStack("x;\ny = " + Repeat("-", 100000) + "1");
    EXPECT_EQ(onLaterLine.error, "Error : f(2) : nesting too deep\n");
}

TEST(ParserNesting, DeepChainsOfLoopsDoNotTouchTheStack) {
    // Long flat and left-nested runs are loops as well.
    Job sum = RunOnSmallStack("a" + Repeat(" + a", 100000));
    EXPECT_EQ(sum.status, 0);
    EXPECT_EQ(sum.depth, 100002u);
    Job members = RunOnSmallStack("a" + Repeat(".b", 100000));
    EXPECT_EQ(members.status, 0);
    Job ors = RunOnSmallStack("a" + Repeat(" || a", 100000));
    EXPECT_EQ(ors.status, 0);
    EXPECT_EQ(ors.depth, 100002u);
    Job statements = RunOnSmallStack(Repeat("a;", 100000));
    EXPECT_EQ(statements.status, 0);
}

TEST(ParserNesting, DumpOfDeepPartialTreeOnTheErrorPath) {
    // 2000 open blocks and then a token that starts nothing: the dump walks 2000 levels.
    testing::internal::CaptureStdout();
    Job job = RunOnSmallStack(Repeat("{", 2000) + ")");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(job.error, "Error : f(1) : We really expected to get something here...\n");
    EXPECT_EQ(out.rfind("]\n\n\n"), out.size() - 4);
    const std::string start = "[ {=\"{\", \n  [ {=\"{\", \n    [ {=\"{\", ";
    EXPECT_EQ(out.compare(0, start.size(), start), 0);
}

}  // namespace
