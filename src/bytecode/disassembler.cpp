#include "bytecode/disassembler.h"

#include <cstdlib>
#include <cstring>

#include "bytecode/code_buffer.h"
#include "bytecode/instruction.h"
#include "support/numbers.h"

const char* TypeSuffix(uint32_t type) {
    static const char* const kSuffixes[16] = {".d", ".f", ".i", ".l", ".b", ".v", ".s", "",
                                              "",   "",   "",   "",   "",   "",   "",   ".e"};
    return kSuffixes[type & 15u];
}

namespace {

const uint8_t* Bytes(const uint32_t* code) { return reinterpret_cast<const uint8_t*>(code); }

uint32_t Load32(const uint32_t* code, int64_t at) { return LoadWord(Bytes(code) + at); }

uint64_t Load64(const uint32_t* code, int64_t at) {
    return static_cast<uint64_t>(Load32(code, at)) | static_cast<uint64_t>(Load32(code, at + 4)) << 32;
}

void PadTo(StringBuilder& out, int32_t& column, int32_t target) {
    while (column < target) {
        AppendText(out, " ");
        column++;
    }
}

const char* NameAt(const PtrArray& names, int64_t index) {
    return static_cast<const char*>(names.data[index]);
}

void AppendVariable(StringBuilder& out, const PtrArray& names, uint32_t operand) {
    uint32_t index = operand & 0x0FFFFFFFu;
    const char* name = index < static_cast<uint32_t>(names.count) ? NameAt(names, index) : "<unknown>";
    AppendFormat(out, "$%s$", name);
}

void AppendDouble(StringBuilder& out, double value) {
    char text[kFormatFixedSize];
    FormatFixed(value, text, sizeof text);
    AppendText(out, text);
}

void AppendOperand(StringBuilder& out, const PtrArray& names, const uint32_t* code, int32_t position, uint32_t opcode,
                   uint32_t type) {
    int64_t at = static_cast<int64_t>(position) + 4;
    switch (type) {
        case TYPE_DOUBLE: {
            uint64_t bits = Load64(code, at);
            double value;
            std::memcpy(&value, &bits, sizeof value);
            AppendDouble(out, value);
            break;
        }
        case TYPE_FLOAT: {
            uint32_t bits = Load32(code, at);
            float value;
            std::memcpy(&value, &bits, sizeof value);
            AppendDouble(out, static_cast<double>(value));
            break;
        }
        case TYPE_INT: {
            int32_t value = static_cast<int32_t>(Load32(code, at));
            if (opcode == OP_CALL && value < 100000) {
                const char* name = value >= 0 && value < names.count ? NameAt(names, value) : "<unknown>";
                AppendFormat(out, "%s", name);
            } else {
                AppendFormat(out, "%d", value);
            }
            break;
        }
        case TYPE_LONG:
            AppendFormat(out, "%lld", static_cast<long long>(Load64(code, at)));
            break;
        case TYPE_BOOL: {
            uint32_t value = Load32(code, at);
            AppendText(out, value == 1 ? "true" : "false");
            // The boolean also prints as a variable reference: hosts compare listings line for line
            // (Disassembler.BooleanFallsThroughIntoTheVariableForm).
            AppendVariable(out, names, value);
            break;
        }
        case TYPE_VARIABLE:
            AppendVariable(out, names, Load32(code, at));
            break;
        case TYPE_STRING: {
            int32_t value = static_cast<int32_t>(Load32(code, at));
            // An index equal to the count is accepted: that slot is kept addressable and null.
            const char* name = value >= 0 && value <= names.count ? NameAt(names, value) : nullptr;
            AppendFormat(out, "\"%s\"", name);
            break;
        }
        case TYPE_SHORT:
            AppendFormat(out, "%d", static_cast<int32_t>(static_cast<int16_t>(Load32(code, position) & 0xFFFFu)));
            break;
        default:
            break;
    }
}

}  // namespace

int32_t DisassembleOne(const uint32_t* code, int32_t position, const PtrArray& names, StringBuilder& out) {
    uint32_t word = Load32(code, position);
    uint32_t opcode = word >> 24;
    uint32_t firstType = (word >> 16) & 15u;
    uint32_t secondType = (word >> 20) & 15u;
    int32_t next = position + static_cast<int32_t>(InstructionLength(word));

    AppendFormat(out, "%08x : ", static_cast<unsigned>(position));
    for (int32_t at = position; at < next; at++) AppendFormat(out, "%02x", Bytes(code)[at]);
    int32_t column = 11 + 2 * (next - position);
    PadTo(out, column, 36);

    const char* mnemonic = OpcodeMnemonic(opcode);
    AppendText(out, mnemonic);
    column += static_cast<int32_t>(std::strlen(mnemonic));
    // A suffix of types 7 to 14 is empty but still counts its two columns.
    TypeLayout types = TypeLayoutOf(opcode);
    if (types == kOneType) {
        AppendText(out, TypeSuffix(firstType));
        column += 2;
    } else if (types == kTwoTypes) {
        AppendText(out, TypeSuffix(firstType));
        AppendText(out, TypeSuffix(secondType));
        column += 4;
    }
    PadTo(out, column, 46);

    if (HasOperand(opcode)) {
        AppendOperand(out, names, code, position, opcode, firstType);
    } else if (IsBranch(opcode)) {
        int32_t offset = static_cast<int32_t>((word & 0x7FFFFFu) << 9) >> 9;
        uint32_t target = static_cast<uint32_t>(position) + static_cast<uint32_t>(offset) * 4u;
        AppendFormat(out, "0x%08x", target);
    }
    AppendText(out, "\n");
    return next;
}

char* Disassemble(const uint32_t* code, int64_t length, const PtrArray& names) {
    if (length < 1) return nullptr;
    StringBuilder out{};
    char* text;
    try {
        int64_t position = 0;
        while (position < length) position = DisassembleOne(code, static_cast<int32_t>(position), names, out);
        text = out.text ? CheckedStrdup(out.text) : nullptr;
    } catch (...) {
        FreeStringBuilder(out);
        throw;
    }
    FreeStringBuilder(out);
    return text;
}
