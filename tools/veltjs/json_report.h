// The JSON document: one per run, written a script at a time (a project's document need not
// fit in memory), always valid UTF-8.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "script_result.h"

constexpr int kJsonFormat = 1;

// Strictly valid UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF).
bool IsValidUtf8(const std::string& text);

void BeginJsonDocument(FILE* out, const std::string& version, bool topLevel);
void WriteJsonScript(FILE* out, const ScriptResult& result, bool first);
void EndJsonDocument(FILE* out, const std::vector<ScriptResult>& unreadable, const RunTotals& totals);

// The script's object alone, as one line of text (tests use it).
std::string JsonScriptText(const ScriptResult& result);
