#include "network/status.h"

const char* VEK_statusText(int code) {
    switch (code) {
        case VEK_OKAY: return "NO ERROR";
        case VEK_GENERAL_ERROR: return "GENERAL ERROR";
        case VEK_OUT_OF_RANGE: return "OUT OF RANGE";
        case VEK_NO_ITEM: return "NO ITEM";
        case VEK_INVALID_VALUE: return "INVALID VALUE";
        case VEK_NO_USEFUL_SAMPLES: return "NO USEFUL SAMPLES";
        case VEK_WRONG_NUM_STATES: return "WRONG NUM STATES";
        case VEK_ILLEGAL_IDENTIFIER: return "ILLEGAL IDENTIFIER";
        case VEK_DUPLICATED_IDENTIFIER: return "DUPLICATED IDENTIFIER";
        case VEK_OUT_OF_MEMORY: return "OUT OF MEMORY";
        case VEK_WRONG_NODE_TYPE: return "WRONG NODE TYPE";
        case VEK_FILE_READ_ERROR: return "FILE READ ERROR";
        case VEK_FILE_WRITE_ERROR: return "FILE WRITE ERROR";
        case VEK_END_OF_FILE: return "END OF FILE";
        case VEK_FILE_IO_FAILED: return "FILE I/O FAILED";
        case VEK_NO_MORE_TOKENS: return "NO MORE TOKENS";
        case VEK_LEXICAL_ERROR: return "LEXICAL ERROR";
        case VEK_SYNTAX_ERROR: return "SYNTAX ERROR";
        case VEK_UNEXPECTED_EOF: return "UNEXPECTED EOF";
        default: return "UNKNOWN ERROR CODE";
    }
}
