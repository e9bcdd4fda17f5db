// Instruction words of the runner's stack machine: opcodes, type codes and word builders.
#pragma once

#include <cstdint>

enum Opcode : uint32_t {
    OP_POPV = 0x05,
    OP_CONV = 0x07,
    OP_MUL = 0x08,
    OP_DIV = 0x09,
    OP_REM = 0x0A,
    OP_MOD = 0x0B,
    OP_ADD = 0x0C,
    OP_SUB = 0x0D,
    OP_AND = 0x0E,
    OP_OR = 0x0F,
    OP_XOR = 0x10,
    OP_NEG = 0x11,
    OP_NOT = 0x12,
    OP_SHL = 0x13,
    OP_SHR = 0x14,
    OP_SET = 0x15,
    OP_POP = 0x45,
    OP_PUSHV = 0x80,
    OP_PUSHI = 0x84,
    OP_DUP = 0x86,
    OP_CALLV = 0x99,
    OP_RET = 0x9C,
    OP_EXIT = 0x9D,
    OP_POPZ = 0x9E,
    OP_B = 0xB6,
    OP_BT = 0xB7,
    OP_BF = 0xB8,
    OP_PUSHENV = 0xBA,
    OP_POPENV = 0xBB,
    OP_PUSH = 0xC0,
    OP_PUSHL = 0xC1,
    OP_PUSHG = 0xC2,
    OP_PUSHB = 0xC3,
    OP_CALL = 0xD9,
    OP_BREAK = 0xFF,
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

constexpr bool HasOperand(uint32_t opcode) { return (opcode & 0x40u) != 0; }
constexpr bool IsBranch(uint32_t opcode) { return (opcode & 0x40u) == 0 && (opcode & 0x20u) != 0; }

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

// "unknown" for values outside the opcode table.
const char* OpcodeMnemonic(uint32_t opcode);
// ".d" … ".s", ".e" for 15, "" for 7 to 14.
const char* TypeSuffix(uint32_t type);
