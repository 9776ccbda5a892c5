#include "equations/exprParser.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "equations/exprFunctions.h"
#include "network/status.h"

namespace {

enum class Tok { End, Number, Ident, LParen, RParen, Comma, Assign, Op };

struct Token {
    Tok type = Tok::End;
    VEK_exprOp op = VEK_exprOp::Add;
    int pos = 0;
    double number = 0.0;
    std::string text;
};

class Parser {
public:
    Parser(const std::string& text, const VEK_functionSet* functions, const std::vector<std::string>* allowed,
           VEK_expression& out)
        : s_(text), functions_(functions), allowed_(allowed), out_(out) {
        Next();
    }

    int Expression() { return Or(); }
    const Token& Current() const { return tok_; }
    void Next() {
        if (!failed_) tok_ = Lex();
    }
    void Expect(Tok t, const char* what) {
        if (tok_.type != t) Fail(tok_.pos, std::string("Expected ") + what + Found());
        Next();
    }
    // Records the first failure; from then on the lexer only yields the end,
    // so every rule returns at once.
    int Fail(int pos, std::string message) {
        if (!failed_) {
            failed_ = true;
            errorPos_ = pos;
            message_ = std::move(message);
        }
        tok_ = Token{};
        tok_.pos = pos;
        i_ = s_.size();
        return -1;
    }
    bool Failed() const { return failed_; }
    int Report(int& errorPos, std::string& message) const {
        if (!failed_) return VEK_OKAY;
        errorPos = errorPos_;
        message = message_;
        return VEK_SYNTAX_ERROR;
    }
    std::string Found() const {
        if (tok_.type == Tok::End) return " but the text ended";
        return " but found '" + s_.substr(tok_.pos, std::max<size_t>(1, tok_.text.size())) + "'";
    }

private:
    bool IsOp(VEK_exprOp op) const { return tok_.type == Tok::Op && tok_.op == op; }

    int Or() {
        int a = And();
        while (IsOp(VEK_exprOp::Or)) {
            const int pos = tok_.pos;
            Next();
            a = out_.AddBinary(VEK_exprOp::Or, a, And(), pos);
        }
        return a;
    }
    int And() {
        int a = Compare();
        while (IsOp(VEK_exprOp::And)) {
            const int pos = tok_.pos;
            Next();
            a = out_.AddBinary(VEK_exprOp::And, a, Compare(), pos);
        }
        return a;
    }
    int Compare() {
        int a = Sum();
        while (tok_.type == Tok::Op && tok_.op >= VEK_exprOp::Lt && tok_.op <= VEK_exprOp::Ne) {
            const VEK_exprOp op = tok_.op;
            const int pos = tok_.pos;
            Next();
            a = out_.AddBinary(op, a, Sum(), pos);
        }
        return a;
    }
    int Sum() {
        int a = Product();
        while (IsOp(VEK_exprOp::Add) || IsOp(VEK_exprOp::Sub)) {
            const VEK_exprOp op = tok_.op;
            const int pos = tok_.pos;
            Next();
            a = out_.AddBinary(op, a, Product(), pos);
        }
        return a;
    }
    int Product() {
        int a = Unary();
        while (IsOp(VEK_exprOp::Mul) || IsOp(VEK_exprOp::Div)) {
            const VEK_exprOp op = tok_.op;
            const int pos = tok_.pos;
            Next();
            a = out_.AddBinary(op, a, Unary(), pos);
        }
        return a;
    }
    int Unary() {
        const int pos = tok_.pos;
        if (IsOp(VEK_exprOp::Sub) || IsOp(VEK_exprOp::Neg)) {
            Next();
            return out_.AddUnary(VEK_exprOp::Neg, Unary(), pos);
        }
        if (IsOp(VEK_exprOp::Not)) {
            Next();
            return out_.AddUnary(VEK_exprOp::Not, Unary(), pos);
        }
        if (IsOp(VEK_exprOp::Add)) {
            Next();
            return Unary();
        }
        return Power();
    }
    int Power() {
        int a = Primary();
        if (IsOp(VEK_exprOp::Pow)) {
            const int pos = tok_.pos;
            Next();
            a = out_.AddBinary(VEK_exprOp::Pow, a, Unary(), pos);
        }
        return a;
    }
    int Primary() {
        const Token t = tok_;
        switch (t.type) {
            case Tok::Number: Next(); return out_.AddNumber(t.number, t.pos);
            case Tok::LParen: {
                Next();
                const int a = Expression();
                Expect(Tok::RParen, "')'");
                return a;
            }
            case Tok::Ident: {
                Next();
                if (tok_.type == Tok::LParen) return Call(t);
                if (allowed_) {
                    bool found = false;
                    for (const std::string& v : *allowed_) found = found || v == t.text;
                    if (!found) return Fail(t.pos, "Unknown variable '" + t.text + "'");
                }
                return out_.AddVariable(t.text, t.pos);
            }
            case Tok::End: return Fail(t.pos, "Unexpected end of expression");
            default: return Fail(t.pos, "Expected a number, a variable or '('" + Found());
        }
    }
    int Call(const Token& name) {
        Next();  // '('
        std::vector<int> args;
        if (tok_.type != Tok::RParen) {
            for (;;) {
                args.push_back(Expression());
                if (tok_.type != Tok::Comma) break;
                Next();
            }
        }
        Expect(Tok::RParen, "',' or ')'");
        if (failed_) return -1;
        const int argc = static_cast<int>(args.size());
        const int lib = VEK_findLibFunction(name.text);
        if (lib >= 0) {
            const VEK_libFunction& f = VEK_libFunctions()[lib];
            if (argc < f.minArgs || (f.maxArgs >= 0 && argc > f.maxArgs)) {
                std::string want = std::to_string(f.minArgs);
                if (f.maxArgs < 0) want = "at least " + want;
                else if (f.maxArgs != f.minArgs) want += " or " + std::to_string(f.maxArgs);
                return Fail(name.pos, "Function '" + name.text + "' takes " + want + " arguments, got " + std::to_string(argc));
            }
            const std::string n = name.text;
            if ((n == "Switch" || n == "CustomPDF") && argc % 2) {
                return Fail(name.pos, "Function '" + n + "' takes an even number of arguments, got " + std::to_string(argc));
            }
            return out_.AddCall(VEK_exprKind::Call, lib, args, name.pos);
        }
        const int user = functions_ ? functions_->Find(name.text) : -1;
        if (user < 0) return Fail(name.pos, "Unknown function '" + name.text + "'");
        const int want = static_cast<int>(functions_->Get(user).params.size());
        if (argc != want) {
            return Fail(name.pos, "Function '" + name.text + "' takes " + std::to_string(want) + " arguments, got " +
                               std::to_string(argc));
        }
        return out_.AddCall(VEK_exprKind::UserCall, user, args, name.pos);
    }

    Token Lex() {
        while (i_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[i_]))) ++i_;
        Token t;
        t.pos = static_cast<int>(i_);
        if (i_ >= s_.size()) return t;
        const char c = s_[i_];
        const char d = i_ + 1 < s_.size() ? s_[i_ + 1] : '\0';
        if (std::isdigit(static_cast<unsigned char>(c)) || (c == '.' && std::isdigit(static_cast<unsigned char>(d)))) {
            return LexNumber(t);
        }
        if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
            size_t j = i_;
            while (j < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[j])) || s_[j] == '_')) ++j;
            // "id[-k]": the node id in the k-th earlier time slice, one
            // variable name.
            if (j + 3 < s_.size() && s_[j] == '[' && s_[j + 1] == '-' && std::isdigit(static_cast<unsigned char>(s_[j + 2]))) {
                size_t k = j + 2;
                while (k < s_.size() && std::isdigit(static_cast<unsigned char>(s_[k]))) ++k;
                if (k < s_.size() && s_[k] == ']') j = k + 1;
            }
            t.text = s_.substr(i_, j - i_);
            i_ = j;
            t.type = Tok::Ident;
            if (t.text == "and" || t.text == "AND") return OpToken(t, VEK_exprOp::And);
            if (t.text == "or" || t.text == "OR") return OpToken(t, VEK_exprOp::Or);
            if (t.text == "not" || t.text == "NOT") return OpToken(t, VEK_exprOp::Not);
            return t;
        }
        struct Sym {
            const char* text;
            Tok type;
            VEK_exprOp op;
        };
        static const Sym syms[] = {
            {"&&", Tok::Op, VEK_exprOp::And}, {"||", Tok::Op, VEK_exprOp::Or},  {"<=", Tok::Op, VEK_exprOp::Le},
            {">=", Tok::Op, VEK_exprOp::Ge},  {"==", Tok::Op, VEK_exprOp::Eq},  {"!=", Tok::Op, VEK_exprOp::Ne},
            {"<>", Tok::Op, VEK_exprOp::Ne},  {"<", Tok::Op, VEK_exprOp::Lt},   {">", Tok::Op, VEK_exprOp::Gt},
            {"!", Tok::Op, VEK_exprOp::Not},  {"^", Tok::Op, VEK_exprOp::Pow},  {"*", Tok::Op, VEK_exprOp::Mul},
            {"/", Tok::Op, VEK_exprOp::Div},  {"+", Tok::Op, VEK_exprOp::Add},  {"-", Tok::Op, VEK_exprOp::Sub},
            {"(", Tok::LParen, VEK_exprOp::Add}, {")", Tok::RParen, VEK_exprOp::Add},
            {",", Tok::Comma, VEK_exprOp::Add},  {"=", Tok::Assign, VEK_exprOp::Add},
        };
        for (const Sym& sym : syms) {
            const size_t n = std::char_traits<char>::length(sym.text);
            if (s_.compare(i_, n, sym.text) == 0) {
                t.type = sym.type;
                t.op = sym.op;
                t.text = sym.text;
                i_ += n;
                return t;
            }
        }
        Fail(t.pos, std::string("Unexpected character '") + c + "'");
        return tok_;
    }
    static Token OpToken(Token t, VEK_exprOp op) {
        t.type = Tok::Op;
        t.op = op;
        return t;
    }
    Token LexNumber(Token t) {
        const char* start = s_.c_str() + i_;
        char* end = nullptr;
        errno = 0;
        const bool hex = start[0] == '0' && (start[1] == 'x' || start[1] == 'X');
        size_t digits = 0;
        while (std::isdigit(static_cast<unsigned char>(start[digits]))) ++digits;
        const char after = start[digits];
        if (!hex && start[0] == '0' && digits > 1 && after != '.' && after != 'e' && after != 'E') {
            // An octal integer, as in C.
            t.number = static_cast<double>(std::strtoull(start, &end, 8));
            if (end != start + digits) {
                Fail(t.pos, "Malformed number: digit out of range for octal");
                return tok_;
            }
        } else {
            t.number = std::strtod(start, &end);
        }
        size_t j = static_cast<size_t>(end - s_.c_str());
        while (j < s_.size() && s_[j] != '\0' && std::strchr("uUlLfF", s_[j])) ++j;
        if (j < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[j])) || s_[j] == '_' || s_[j] == '.')) {
            Fail(t.pos, "Malformed number");
            return tok_;
        }
        t.type = Tok::Number;
        t.text = s_.substr(i_, j - i_);
        i_ = j;
        return t;
    }

    const std::string& s_;
    const VEK_functionSet* functions_;
    const std::vector<std::string>* allowed_;
    VEK_expression& out_;
    size_t i_ = 0;
    Token tok_;
    bool failed_ = false;
    int errorPos_ = 0;
    std::string message_;
};

void ExpectEnd(Parser& p) {
    if (p.Current().type != Tok::End) p.Fail(p.Current().pos, "Unexpected text after the expression" + p.Found());
}

// The right side of "lhs = rhs" is lexed with the left blanked out, so that
// positions stay those of the whole text.
std::string RightOf(const std::string& text, size_t eq) { return std::string(eq + 1, ' ') + text.substr(eq + 1); }

}  // namespace

int VEK_exprParser::Parse(const std::string& text, const VEK_functionSet* functions, VEK_expression& out,
                          int& errorPos, std::string& message) {
    VEK_expression e;
    e.SetFunctions(functions);
    Parser p(text, functions, nullptr, e);
    p.Expression();
    ExpectEnd(p);
    const int res = p.Report(errorPos, message);
    if (res == VEK_OKAY) out = std::move(e);
    return res;
}

int VEK_exprParser::ParseEquation(const std::string& text, const VEK_functionSet* functions, VEK_expression& lhs,
                                  VEK_expression& rhs, int& errorPos, std::string& message) {
    VEK_expression l, r;
    l.SetFunctions(functions);
    r.SetFunctions(functions);
    Parser p(text, functions, nullptr, l);
    p.Expression();
    const size_t eq = static_cast<size_t>(p.Current().pos);
    p.Expect(Tok::Assign, "'='");
    int res = p.Report(errorPos, message);
    if (res != VEK_OKAY) return res;
    const std::string right = RightOf(text, eq);
    Parser q(right, functions, nullptr, r);
    if (q.Current().type == Tok::End) q.Fail(q.Current().pos, "Expected an expression after '='");
    q.Expression();
    ExpectEnd(q);
    res = q.Report(errorPos, message);
    if (res != VEK_OKAY) return res;
    lhs = std::move(l);
    rhs = std::move(r);
    return VEK_OKAY;
}

int VEK_exprParser::ParseFunction(const std::string& text, const VEK_functionSet& functions, VEK_userFunction& out,
                                  int& errorPos, std::string& message) {
    VEK_userFunction f;
    f.body.SetFunctions(&functions);
    VEK_expression head;
    Parser p(text, nullptr, nullptr, head);
    if (p.Current().type != Tok::Ident) p.Fail(p.Current().pos, "Expected a function name" + p.Found());
    f.name = p.Current().text;
    p.Next();
    p.Expect(Tok::LParen, "'('");
    while (p.Current().type == Tok::Ident) {
        const int pos = p.Current().pos;
        // Parameters are the body's variables 0..n-1, in order.
        if (f.body.DeclareVariable(p.Current().text) != static_cast<int>(f.params.size())) {
            p.Fail(pos, "Parameter '" + p.Current().text + "' appears twice");
        }
        f.params.push_back(p.Current().text);
        p.Next();
        if (p.Current().type != Tok::Comma) break;
        p.Next();
    }
    p.Expect(Tok::RParen, "')'");
    const size_t eq = static_cast<size_t>(p.Current().pos);
    p.Expect(Tok::Assign, "'='");
    int res = p.Report(errorPos, message);
    if (res != VEK_OKAY) return res;
    const std::string right = RightOf(text, eq);
    Parser b(right, &functions, &f.params, f.body);
    b.Expression();
    ExpectEnd(b);
    res = b.Report(errorPos, message);
    if (res == VEK_OKAY) out = std::move(f);
    return res;
}
