// The token cursor that the text readers' parsers stand on: the current
// token, advancing and expecting, and the first fault logged with its
// position (later ones would only echo it).
#pragma once

#include <string>

#include "formats/descLexer.h"
#include "formats/fileFormat.h"

class VEK_descCursor {
protected:
    VEK_descCursor(VEK_fileFormat& fmt, const char* symbols, const char* lineComments)
        : fmt_(fmt), lex_(symbols, lineComments) {}

    int Error(const std::string& message, int line, int column) {
        if (status_ == 0) {
            fmt_.LogFileReadingError(VEK_FILE_READ_ERROR, message, line, column);
            status_ = VEK_FILE_READ_ERROR;
        }
        return status_;
    }
    int Error(const std::string& message) { return Error(message, tok_.line, tok_.column); }

    [[nodiscard]] int Advance() {
        if (lex_.Next(tok_) < 0) return Error(lex_.ErrorMessage(), lex_.ErrorLine(), lex_.ErrorColumn());
        return 0;
    }

    [[nodiscard]] int Expect(char symbol) {
        if (!tok_.IsSymbol(symbol)) return Error(std::string("Expected '") + symbol + "' but found " + tok_.Describe());
        return Advance();
    }

    bool IsName() const { return tok_.kind == VEK_lexToken::Word || tok_.kind == VEK_lexToken::String; }

    VEK_fileFormat& fmt_;
    VEK_descLexer lex_;
    VEK_lexToken tok_;
    int status_ = 0;
};
