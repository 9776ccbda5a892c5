// Engine status codes. Every operation that can fail returns one of these:
// 0 on success, a negative code otherwise. Creating operations return the new
// handle (>= 0) or a negative code.
#pragma once

constexpr int VEK_OKAY = 0;
constexpr int VEK_GENERAL_ERROR = -1;
constexpr int VEK_OUT_OF_RANGE = -2;
constexpr int VEK_NO_ITEM = -3;
constexpr int VEK_INVALID_VALUE = -4;
constexpr int VEK_NO_USEFUL_SAMPLES = -5;
constexpr int VEK_CYCLE = -11;
constexpr int VEK_WRONG_NUM_STATES = -19;
constexpr int VEK_EVIDENCE_CONFLICT = -26;
constexpr int VEK_ILLEGAL_IDENTIFIER = -30;
constexpr int VEK_DUPLICATED_IDENTIFIER = -32;
constexpr int VEK_OUT_OF_MEMORY = -42;
constexpr int VEK_IMPOSSIBLE_EVIDENCE = -43;
constexpr int VEK_WRONG_NODE_TYPE = -51;
constexpr int VEK_FILE_READ_ERROR = -100;
constexpr int VEK_FILE_WRITE_ERROR = -101;
constexpr int VEK_END_OF_FILE = -102;
constexpr int VEK_FILE_IO_FAILED = -103;
constexpr int VEK_NO_MORE_TOKENS = -111;
constexpr int VEK_LEXICAL_ERROR = -126;
constexpr int VEK_SYNTAX_ERROR = -127;
constexpr int VEK_UNEXPECTED_EOF = -128;

// The standard text of a code, used by the logger when no message is given.
const char* VEK_statusText(int code);
