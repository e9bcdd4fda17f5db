#include "helpers/mappings.h"

#include <fstream>
#include <sstream>

MappingInfo MappingOf(const void* address) {
    uintptr_t at = reinterpret_cast<uintptr_t>(address);
    std::ifstream smaps("/proc/self/smaps");
    std::string line;
    MappingInfo current{false, 0, 0, ""};
    while (std::getline(smaps, line)) {
        uintptr_t start = 0;
        uintptr_t end = 0;
        char dash = 0;
        std::istringstream range(line);
        // A mapping's first line: "start-end perms ..." in hexadecimal.
        if (range >> std::hex >> start >> dash >> end && dash == '-' && line.find(' ') > line.find('-')) {
            if (current.found) return current;
            if (at >= start && at < end) current = MappingInfo{true, start, end, ""};
            continue;
        }
        if (current.found && line.rfind("VmFlags:", 0) == 0) current.flags = line.substr(8);
    }
    return current;
}

bool AdvisedForHugePages(const void* address) {
    MappingInfo mapping = MappingOf(address);
    return mapping.found && (" " + mapping.flags + " ").find(" hg ") != std::string::npos;
}
