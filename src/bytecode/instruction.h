// Instruction words of the runner's stack machine: opcodes, type codes and word builders.
#pragma once

#include <cstdint>

// The opcode table, in value order (ORDER OP): the enum, the mnemonic the disassembler prints
// ("unknown" for every other value), and how the rest of the word reads.
//   types:   kTwoTypes (first, then second), kOneType (the first), kBranch (a 23-bit word offset),
//            kNoTypes (0xFF: bits 0x20 and 0x80 both set, neither a branch nor typed)
//   operand: kOperandByType (a following operand sized by the first type) or kNoOperand
// The runner decodes a word by its opcode's bits alone, so the two columns restate what the bits
// say; the static_asserts below hold them to it, and the bit tests serve values outside the table.
#define VELTJS_OPCODES(X)                                \
    X(OP_POPV, 0x05, "popv", kTwoTypes, kNoOperand)      \
    X(OP_CONV, 0x07, "conv", kTwoTypes, kNoOperand)      \
    X(OP_MUL, 0x08, "mul", kTwoTypes, kNoOperand)        \
    X(OP_DIV, 0x09, "div", kTwoTypes, kNoOperand)        \
    X(OP_REM, 0x0A, "rem", kTwoTypes, kNoOperand)        \
    X(OP_MOD, 0x0B, "mod", kTwoTypes, kNoOperand)        \
    X(OP_ADD, 0x0C, "add", kTwoTypes, kNoOperand)        \
    X(OP_SUB, 0x0D, "sub", kTwoTypes, kNoOperand)        \
    X(OP_AND, 0x0E, "and", kTwoTypes, kNoOperand)        \
    X(OP_OR, 0x0F, "or", kTwoTypes, kNoOperand)          \
    X(OP_XOR, 0x10, "xor", kTwoTypes, kNoOperand)        \
    X(OP_NEG, 0x11, "neg", kTwoTypes, kNoOperand)        \
    X(OP_NOT, 0x12, "not", kTwoTypes, kNoOperand)        \
    X(OP_SHL, 0x13, "shl", kTwoTypes, kNoOperand)        \
    X(OP_SHR, 0x14, "shr", kTwoTypes, kNoOperand)        \
    X(OP_SET, 0x15, "set", kTwoTypes, kNoOperand)        \
    X(OP_POP, 0x45, "pop", kTwoTypes, kOperandByType)    \
    X(OP_PUSHV, 0x80, "pushv", kOneType, kNoOperand)     \
    X(OP_PUSHI, 0x84, "pushi", kOneType, kNoOperand)     \
    X(OP_DUP, 0x86, "dup", kOneType, kNoOperand)         \
    X(OP_CALLV, 0x99, "call", kOneType, kNoOperand)      \
    X(OP_RET, 0x9C, "ret", kOneType, kNoOperand)         \
    X(OP_EXIT, 0x9D, "exit", kOneType, kNoOperand)       \
    X(OP_POPZ, 0x9E, "popz", kOneType, kNoOperand)       \
    X(OP_B, 0xB6, "b", kBranch, kNoOperand)              \
    X(OP_BT, 0xB7, "bt", kBranch, kNoOperand)            \
    X(OP_BF, 0xB8, "bf", kBranch, kNoOperand)            \
    X(OP_PUSHENV, 0xBA, "pushenv", kBranch, kNoOperand)  \
    X(OP_POPENV, 0xBB, "popenv", kBranch, kNoOperand)    \
    X(OP_PUSH, 0xC0, "push", kOneType, kOperandByType)   \
    X(OP_PUSHL, 0xC1, "pushl", kOneType, kOperandByType) \
    X(OP_PUSHG, 0xC2, "pushg", kOneType, kOperandByType) \
    X(OP_PUSHB, 0xC3, "pushb", kOneType, kOperandByType) \
    X(OP_CALL, 0xD9, "call", kOneType, kOperandByType)   \
    X(OP_BREAK, 0xFF, "break", kNoTypes, kOperandByType)

enum Opcode : uint32_t {
#define VELTJS_OPCODE_ENUM(name, value, mnemonic, types, operand) name = value,
    VELTJS_OPCODES(VELTJS_OPCODE_ENUM)
#undef VELTJS_OPCODE_ENUM
};

enum TypeLayout : uint32_t { kTwoTypes, kOneType, kBranch, kNoTypes };
enum OperandLayout : uint32_t { kNoOperand, kOperandByType };

struct OpcodeEntry {
    uint32_t value;
    const char* mnemonic;
    TypeLayout types;
    OperandLayout operand;
};

constexpr OpcodeEntry kOpcodeTable[] = {
#define VELTJS_OPCODE_ENTRY(name, value, mnemonic, types, operand) {value, mnemonic, types, operand},
    VELTJS_OPCODES(VELTJS_OPCODE_ENTRY)
#undef VELTJS_OPCODE_ENTRY
};

enum TypeCode : uint32_t {
    TYPE_DOUBLE = 0,
    TYPE_FLOAT = 1,
    TYPE_INT = 2,
    TYPE_LONG = 3,
    TYPE_BOOL = 4,
    TYPE_VARIABLE = 5,
    TYPE_STRING = 6,
    TYPE_SHORT = 15,
};

// Comparison kinds carried in bits 8-15 of a set word.
enum ComparisonKind : uint32_t {
    CMP_LT = 0x07,
    CMP_GT = 0x08,
    CMP_LE = 0x09,
    CMP_GE = 0x0A,
    CMP_IN = 0x0B,
    CMP_EQ = 0x0C,
    CMP_NE = 0x0D,
    CMP_SEQ = 0x0E,
    CMP_SNE = 0x0F,
};

// opcode | second type | first type | 16-bit field.
constexpr uint32_t MakeWord(uint32_t opcode, uint32_t firstType, uint32_t secondType, uint32_t field) {
    return (opcode << 24) | ((secondType & 15u) << 20) | ((firstType & 15u) << 16) | (field & 0xFFFFu);
}

// An instruction with one type (second type nibble zero).
constexpr uint32_t MakeWord1(uint32_t opcode, uint32_t type, uint32_t field) {
    return MakeWord(opcode, type, 0, field);
}

// A branch with a word offset counted from the branch word itself (23-bit two's complement).
constexpr uint32_t MakeBranch(uint32_t opcode, int32_t wordOffset) {
    return (opcode << 24) | (static_cast<uint32_t>(wordOffset) & 0x7FFFFFu);
}

constexpr uint32_t kVarReference = 0xA0000000u;
constexpr uint32_t kVarDeclaration = 0xB0000000u;

// The opcode bits that decide how a word reads, for every value, in the table or not.
constexpr bool HasOperand(uint32_t opcode) { return (opcode & 0x40u) != 0; }
constexpr bool IsBranch(uint32_t opcode) { return (opcode & 0x40u) == 0 && (opcode & 0x20u) != 0; }
constexpr TypeLayout TypeLayoutOf(uint32_t opcode) {
    if ((opcode & 0xA0u) == 0) return kTwoTypes;
    if ((opcode & 0xA0u) == 0x80u) return kOneType;
    return IsBranch(opcode) ? kBranch : kNoTypes;
}

constexpr bool TableAgreesWithTheBits() {
    uint32_t previous = 0;
    for (const OpcodeEntry& entry : kOpcodeTable) {
        if (entry.value <= previous || entry.value > 0xFF) return false;
        if (entry.types != TypeLayoutOf(entry.value)) return false;
        if ((entry.operand == kOperandByType) != HasOperand(entry.value)) return false;
        previous = entry.value;
    }
    return true;
}
static_assert(TableAgreesWithTheBits(), "each opcode's columns follow from its bits, in value order");

// Bytes of the operand that follows a word of this opcode and first type.
constexpr uint32_t OperandSize(uint32_t opcode, uint32_t firstType) {
    if (!HasOperand(opcode)) return 0;
    if (firstType == TYPE_DOUBLE || firstType == TYPE_LONG) return 8;
    if (firstType <= TYPE_STRING) return 4;
    return 0;
}

// Total length in bytes of the instruction starting with this word.
constexpr uint32_t InstructionLength(uint32_t word) {
    return 4 + OperandSize(word >> 24, (word >> 16) & 15u);
}

struct MnemonicsByValue {
    const char* text[256];
};

constexpr MnemonicsByValue MakeMnemonicsByValue() {
    MnemonicsByValue byValue{};
    for (const char*& text : byValue.text) text = "unknown";
    for (const OpcodeEntry& entry : kOpcodeTable) byValue.text[entry.value] = entry.mnemonic;
    return byValue;
}

inline constexpr MnemonicsByValue kMnemonicsByValue = MakeMnemonicsByValue();

// The table's mnemonic, or "unknown" for values outside the table.
constexpr const char* OpcodeMnemonic(uint32_t opcode) {
    return opcode < 256 ? kMnemonicsByValue.text[opcode] : "unknown";
}
// ".d" … ".s", ".e" for 15, "" for 7 to 14.
const char* TypeSuffix(uint32_t type);
