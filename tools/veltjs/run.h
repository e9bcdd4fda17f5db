// The two things the tool does: compile inputs (in one of its modes) and list containers.
#pragma once

#include <string>

#include "command_line.h"

int RunCompile(const Options& options, const std::string& version);
int RunDisasm(const Options& options);
