// Emitting: the type stack, instruction words, labels and branches, and the lists the context
// keeps its scopes and jump targets in.
#include <cstdlib>
#include <cstring>
#include <new>

#include "codegen/context.h"
#include "parser/node.h"
#include "support/diagnostics.h"

namespace {

constexpr int32_t kTypeStackEntries = 1024;

// Branch offsets count words in a signed 23-bit field; masking one that does not fit would
// jump somewhere else entirely, so such a compile fails instead.
constexpr int64_t kBranchWordLimit = int64_t{1} << 22;

int32_t BranchWords(const CodeGenContext& cx, int64_t from, int64_t to) {
    int64_t words = (to - from) >> 2;
    if (words >= kBranchWordLimit || words <= -kBranchWordLimit) {
        ReportError(cx.statement ? cx.statement->position : nullptr, "branch offset out of range");
    }
    return static_cast<int32_t>(words);
}

}  // namespace

void ListPush(List& list, void* value) {
    ListNode* node;
    if (!list.spare) {
        node = static_cast<ListNode*>(CheckedMalloc(sizeof(ListNode)));
    } else if (*list.spare) {
        node = *list.spare;
        *list.spare = node->next;
    } else {
        node = static_cast<ListNode*>(CompileRecord(sizeof(ListNode)));
    }
    node->value = value;
    node->next = nullptr;
    node->prev = list.last;
    if (list.last) {
        list.last->next = node;
    } else {
        list.first = node;
    }
    list.last = node;
    list.count++;
}

void* ListPop(List& list) {
    ListNode* node = list.last;
    if (!node) return nullptr;
    list.last = node->prev;
    if (list.last) {
        list.last->next = nullptr;
    } else {
        list.first = nullptr;
    }
    list.count--;
    void* value = node->value;
    if (list.spare) {
        node->next = *list.spare;
        *list.spare = node;
    } else {
        std::free(node);
    }
    return value;
}

void* ListAt(const List& list, int32_t steps) {
    if (steps < 0) return nullptr;
    ListNode* node = list.first;
    for (int32_t i = 0; node && i < steps; i++) node = node->next;
    return node ? node->value : nullptr;
}

void GrowTypeStack(CodeGenContext& cx) {
    int32_t capacity = cx.typeCapacity > 0 ? cx.typeCapacity * 2 : kTypeStackEntries;
    uint32_t* grown = static_cast<uint32_t*>(CheckedMalloc(static_cast<size_t>(capacity) * sizeof(uint32_t)));
    if (cx.typeStack && cx.typeDepth > 0) {
        std::memcpy(grown, cx.typeStack, static_cast<size_t>(cx.typeDepth) * sizeof(uint32_t));
    }
    std::free(cx.typeStack);
    cx.typeStack = grown;
    cx.typeCapacity = capacity;
}

// op.T with the operand sized by T.
void EmitPushConstant(CodeGenContext& cx, uint32_t opcode, uint32_t type, double value, uint64_t longBits) {
    uint32_t word = MakeWord1(opcode, type, 0);
    switch (type) {
    case TYPE_DOUBLE: {
        uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        Emit(cx, {word, static_cast<uint32_t>(bits), static_cast<uint32_t>(bits >> 32)});
        break;
    }
    case TYPE_FLOAT: {
        float narrow = static_cast<float>(value);
        uint32_t bits;
        std::memcpy(&bits, &narrow, sizeof bits);
        Emit(cx, {word, bits});
        break;
    }
    case TYPE_INT:
    case TYPE_VARIABLE:
    case TYPE_STRING:
        Emit(cx, {word, static_cast<uint32_t>(static_cast<int64_t>(value))});
        break;
    case TYPE_LONG:
        Emit(cx, {word, static_cast<uint32_t>(longBits), static_cast<uint32_t>(longBits >> 32)});
        break;
    case TYPE_BOOL:
        Emit(cx, {word, value != 0 ? 1u : 0u});
        break;
    default:
        Emit(cx, {word});
        break;
    }
}

BranchLabel* NewLabel(const char* name) {
    BranchLabel* label = static_cast<BranchLabel*>(CompileRecord(sizeof(BranchLabel)));
    label->name = name;
    label->depth = -1;
    return label;
}

BranchLabel* NewLabel(CodeGenContext& cx, const char* name) {
    SpareLabel* spare = cx.spareLabels;
    if (!spare) return NewLabel(name);
    cx.spareLabels = spare->next;
    BranchLabel* label = new (spare) BranchLabel{};
    label->name = name;
    label->depth = -1;
    return label;
}

void ReleaseLabel(CodeGenContext& cx, BranchLabel* label) {
    static_assert(sizeof(SpareLabel) <= sizeof(BranchLabel), "a released label holds the link");
    if (!label || label->pending) return;
    cx.spareLabels = new (label) SpareLabel{cx.spareLabels};
}

// label: each pending site's word keeps its opcode and gets the word offset to here.
void PlaceLabel(CodeGenContext& cx, BranchLabel* label) {
    label->offset = CodeOffset(cx);
    label->defined = 1;
    // Detached first: when a site is out of range the compile fails here, and the label must not
    // keep sites half patched.
    BranchSite* first = label->pending;
    label->pending = nullptr;
    BranchSite* last = nullptr;
    for (BranchSite* site = first; site; site = site->next) {
        uint32_t word = ReadWord(*cx.code, site->offset);
        int32_t words = BranchWords(cx, site->offset, label->offset);
        PatchWord(*cx.code, site->offset, MakeBranch(word >> 24, words) | site->extra);
        last = site;
    }
    // Patched sites serve the next forward branches.
    if (last) {
        last->next = cx.spareSites;
        cx.spareSites = first;
    }
}

// op target: backward with the known offset, forward as op 0 patched by PlaceLabel.
void BranchToLabel(CodeGenContext& cx, BranchLabel* label, uint32_t opcode) {
    int64_t here = CodeOffset(cx);
    if (label->defined) {
        Emit(cx, {MakeBranch(opcode, BranchWords(cx, here, label->offset))});
        return;
    }
    BranchSite* site = cx.spareSites;
    if (site) {
        cx.spareSites = site->next;
    } else {
        site = static_cast<BranchSite*>(CompileRecord(sizeof(BranchSite)));
    }
    site->next = label->pending;
    site->offset = here;
    site->extra = 0;
    label->pending = site;
    Emit(cx, {MakeBranch(opcode, 0)});
}
