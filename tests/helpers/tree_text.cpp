#include "helpers/tree_text.h"

#include <utility>
#include <vector>

#include "lexer/tokens.h"

namespace {

struct KindLabel {
    std::string label;
    std::string usualText;   // the text the kind normally carries
};

std::string Upper(std::string word) {
    for (char& c : word) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return word;
}

const char* OperatorSpelling(uint32_t kind) {
    switch (kind) {
        case LEX_EQUAL: return "==";
        case LEX_TYPEEQUAL: return "===";
        case LEX_NEQUAL: return "!=";
        case LEX_NTYPEEQUAL: return "!==";
        case LEX_ARROW: return "=>";
        case LEX_LEQUAL: return "<=";
        case LEX_GEQUAL: return ">=";
        case LEX_LSHIFT: return "<<";
        case LEX_RSHIFT: return ">>";
        case LEX_RSHIFTU: return ">>>";
        case LEX_PLUSPLUS: return "++";
        case LEX_MINUSMINUS: return "--";
        case LEX_ANDAND: return "&&";
        case LEX_OROR: return "||";
        case LEX_PLUSEQUAL: return "+=";
        case LEX_MINUSEQUAL: return "-=";
        case LEX_ASTERISKEQUAL: return "*=";
        case LEX_SLASHEQUAL: return "/=";
        case LEX_PERCENTEQUAL: return "%=";
        case LEX_LSHIFTEQUAL: return "<<=";
        case LEX_RSHIFTEQUAL: return ">>=";
        case LEX_RSHIFTUEQUAL: return ">>>=";
        case LEX_ANDEQUAL: return "&=";
        case LEX_OREQUAL: return "|=";
        case LEX_XOREQUAL: return "^=";
        default: return nullptr;
    }
}

KindLabel LabelOf(uint32_t kind) {
    if (kind >= 1 && kind <= 255) {
        std::string c(1, static_cast<char>(kind));
        return {c, c};
    }
    if (const char* op = OperatorSpelling(kind)) return {op, op};
    switch (kind) {
        case LEX_POSTPLUSPLUS: return {"POST++", "++"};
        case LEX_POSTMINUSMINUS: return {"POST--", "--"};
        case LEX_THIS: return {"THIS", "this"};
        case LEX_UNDEFINED: return {"UNDEFINED", "("};
        case LEX_ELISION: return {"ELISION", ","};
        case LEX_FUNCTION: return {"FUNCTION", "function"};
        case LEX_GETTER: return {"GETTER", "get"};
        case LEX_SETTER: return {"SETTER", "set"};
        case LEX_OBJECT: return {"OBJECT", "{"};
        case LEX_ARRAY: return {"ARRAY", "["};
        case LEX_YIELD: return {"YIELD", "yield"};
        default: break;
    }
    if (kind >= LEX_IF && kind <= LEX_DEFAULT) {
        RefString* name = TokenKindName(static_cast<int32_t>(kind));
        std::string word = name->text;
        ReleaseRefString(name);
        return {Upper(word), word};
    }
    std::string number = "#" + std::to_string(kind);
    return {number, ""};
}

void Render(const Node* node, std::string& out) {
    std::string text = node->text && node->text->text ? node->text->text : "";
    switch (node->kind) {
        case LEX_ID:
        case LEX_INT:
        case LEX_FLOAT:
            out += text;
            break;
        case LEX_STR:
            out += "'" + text + "'";
            break;
        default: {
            KindLabel label = LabelOf(node->kind);
            out += label.label;
            if (text != label.usualText) out += "\"" + text + "\"";
            break;
        }
    }
    if (!node->first) return;
    out += "(";
    for (const Node* child = node->first; child; child = child->next) {
        if (child != node->first) out += ",";
        Render(child, out);
    }
    out += ")";
}

}  // namespace

std::string TreeText(const Node* node) {
    std::string out;
    Render(node, out);
    return out;
}

std::string StatementsText(const Node* root) {
    std::string out;
    for (const Node* child = root->first; child; child = child->next) {
        if (child != root->first) out += " ";
        Render(child, out);
    }
    return out;
}

// The renderer recurses; deeper trees are only measured.
constexpr size_t kRenderLimit = 5000;

ParseResult ParseSource(const std::string& source, const char* fileName) {
    VeltJS_Init();
    ParseResult result{};
    result.unit = VeltJS_Parse(source.c_str(), fileName, "script");
    result.parser = static_cast<Parser*>(result.unit->parser);
    if (result.unit->status != 0) {
        result.error = result.unit->errorCount > 0 ? result.unit->errors[0] : "?";
    } else if (result.parser && TreeDepth(&result.parser->root) < kRenderLimit) {
        result.tree = StatementsText(&result.parser->root);
    }
    return result;
}

std::string Parsed(const std::string& source) {
    ParseResult result = ParseSource(source);
    if (result.unit->status != 0) return "ERROR " + result.error;
    return result.tree;
}

size_t TreeDepth(const Node* node) {
    size_t deepest = 0;
    std::vector<std::pair<const Node*, size_t>> pending{{node, 1}};
    while (!pending.empty()) {
        auto [current, depth] = pending.back();
        pending.pop_back();
        if (depth > deepest) deepest = depth;
        for (const Node* child = current->first; child; child = child->next) {
            pending.push_back({child, depth + 1});
        }
    }
    return deepest;
}
