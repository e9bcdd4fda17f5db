// What compiling one input produced, as every report (text, JSON, container) needs it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "diagnostic_view.h"
#include "unit_data.h"

struct ScriptResult {
    std::string file;
    std::string script;
    bool read = false;
    std::string readError;      // why the input could not be read
    uint64_t sourceBytes = 0;
    int32_t status = 0;         // the library's: 0 success, 1 compile error, -1 other failure
    std::vector<ErrorReport> errors;
    std::string libraryOutput;  // what the library wrote to standard output meanwhile
    UnitData unit;              // when status is 0
    uint32_t firstName = 0;     // the names this script added: ids firstName up to nameEnd
    uint32_t nameEnd = 0;
};

struct RunTotals {
    uint64_t scripts = 0;       // inputs tried, unreadable ones included
    uint64_t succeeded = 0;
    uint64_t failed = 0;        // failed to read, parse or compile
    uint64_t unreadable = 0;
    uint64_t sourceBytes = 0;
};
