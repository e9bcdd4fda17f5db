// What the kernel says about the mapping that holds an address (Linux: /proc/self/smaps), for
// tests of the blocks the library maps itself.
#pragma once

#include <cstdint>
#include <string>

struct MappingInfo {
    bool found;
    uintptr_t start;
    uintptr_t end;
    std::string flags;   // the VmFlags line: "hg" means advised for huge pages
};

// The mapping that holds `address`; `found` is false where there is no /proc/self/smaps.
MappingInfo MappingOf(const void* address);
// Whether the mapping that holds `address` is advised for huge pages.
bool AdvisedForHugePages(const void* address);
