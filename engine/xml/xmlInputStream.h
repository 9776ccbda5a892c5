// Byte sources for the XML reader.
#pragma once

#include <cstdio>

class IXmlInputStream {
public:
    // Copies up to size bytes into buffer; returns how many (0 at the end).
    virtual int GetData(char* buffer, int size) = 0;
    virtual void Delete() { delete this; }
    virtual ~IXmlInputStream() = default;
};

// Reads from a FILE that the caller opened and will close.
class XmlInputFileStream : public IXmlInputStream {
public:
    explicit XmlInputFileStream(FILE* file) : file_(file) {}
    int GetData(char* buffer, int size) override;

private:
    FILE* file_;
};

// Reads from the text span [begin, end), which must outlive the stream.
class XmlInputStringStream : public IXmlInputStream {
public:
    XmlInputStringStream(const char* begin, const char* end) : begin_(begin), end_(end) {}
    int GetData(char* buffer, int size) override;

private:
    const char* begin_;
    const char* end_;
};
