// Everything a compile unit shows and the state of the process-wide tables, as text, so that two
// runs can be compared exactly and a difference read in the failure output.
#pragma once

#include <string>

#include "veltjs.h"

// Status, messages, code and position words, names, the three patch lists and the function
// records with their arrays, and the listing. Names are given by index and text; no pointer
// values, so runs in different processes compare equal.
std::string DescribeUnit(const CompileUnit* unit);

// One function record on one line, as DescribeUnit prints it.
std::string DescribeFunctionRecord(const FunctionRecord* record);

// Where two texts first differ: the line number and the two lines, for failure messages that
// stay short however long the texts are. "" when they are equal.
std::string FirstDifference(const std::string& expected, const std::string& got);

// The five process-wide arrays (counts, entry pointers, the records they point at, and the
// host-placed entries past the name count), the built-in table's size, the code generator's
// counters and its root record. Pointer values are included: two such texts are equal only
// when nothing was moved or replaced.
std::string DescribeTables();

// "" when the name index and the function-record index agree with the arrays; otherwise what
// disagrees. Looks names up through the library's own index (which may catch up on the way).
std::string CheckTableConsistency();
