#include "xml/xmlInputStream.h"

#include <cstring>

int XmlInputFileStream::GetData(char* buffer, int size) {
    if (!file_ || !buffer || size <= 0) return 0;
    return static_cast<int>(std::fread(buffer, 1, static_cast<size_t>(size), file_));
}

int XmlInputStringStream::GetData(char* buffer, int size) {
    if (!begin_ || !end_ || begin_ >= end_ || !buffer || size <= 0) return 0;
    size_t n = static_cast<size_t>(end_ - begin_);
    if (n > static_cast<size_t>(size)) n = static_cast<size_t>(size);
    std::memcpy(buffer, begin_, n);
    begin_ += n;
    return static_cast<int>(n);
}
