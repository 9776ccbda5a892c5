// One element of a document schema: its name, the attributes and child
// elements it accepts, its validation mode and the handler that receives its
// events. Formats declare their whole document as a tree of bindings.
#pragma once

#include <string>
#include <utility>
#include <vector>

class IXmlHandler;

// Flags of a child binding.
constexpr int XmlChildRequired = 1;
constexpr int XmlChildMayRepeat = 2;

// Validation modes. Bit 1: unknown attributes are errors; bit 2: unknown
// children are errors. Mode 4 takes the mode in force for the parent.
constexpr int XmlModeLenient = 0;
constexpr int XmlModeStrictAttributes = 1;
constexpr int XmlModeStrictChildren = 2;
constexpr int XmlModeStrict = 3;
constexpr int XmlModeInherit = 4;

// Names of the child elements met so far inside one element. Elements have
// few distinct child names, so a flat list beats a tree here.
class XmlNameSet {
public:
    // Adds name; returns false when it was already there.
    bool Insert(const char* name);
    bool Contains(const char* name) const;
    void Clear() { names_.clear(); }
    int Count() const { return static_cast<int>(names_.size()); }

private:
    std::vector<std::string> names_;
};

class IXmlBinding {
public:
    virtual const char* GetName() const = 0;
    virtual IXmlHandler* GetHandler() const = 0;
    virtual int GetMode() const = 0;
    virtual void AddChild(const IXmlBinding* child, int flags) = 0;
    virtual void AddAttribute(const char* name, bool required) = 0;
    // The child binding named name, with its flags in *flags; null if none.
    virtual const IXmlBinding* FindChild(const char* name, int* flags) const = 0;
    virtual bool FindAttribute(const char* name) const = 0;
    // First required attribute (declaration order) absent from attrs, the
    // null-terminated name/value array of the element; null if none.
    virtual const char* FindMissingAttribute(const char* const* attrs) const = 0;
    // First required child (declaration order) not in seenNames; null if none.
    virtual const char* FindMissingChild(const XmlNameSet& seenNames) const = 0;
    virtual void Delete() = 0;
    virtual ~IXmlBinding() = default;
};

// Bindings a loader made and owns: each is deleted with the list, also when
// the loader's constructor fails half-way, and one that cannot be added is
// deleted at once.
class XmlBindingList {
public:
    XmlBindingList() = default;
    ~XmlBindingList() {
        for (IXmlBinding* b : list_) b->Delete();
    }
    XmlBindingList(const XmlBindingList&) = delete;
    XmlBindingList& operator=(const XmlBindingList&) = delete;
    void push_back(IXmlBinding* b) {
        try {
            list_.push_back(b);
        } catch (...) {
            if (b) b->Delete();
            throw;
        }
    }

private:
    std::vector<IXmlBinding*> list_;
};

class XmlBinding : public IXmlBinding {
public:
    XmlBinding(IXmlHandler* handler, const char* name, int mode);
    XmlBinding(const XmlBinding&) = delete;
    XmlBinding& operator=(const XmlBinding&) = delete;

    const char* GetName() const override { return name_.c_str(); }
    IXmlHandler* GetHandler() const override { return handler_; }
    int GetMode() const override { return mode_; }
    void SetMode(int mode) { mode_ = mode; }
    void AddChild(const IXmlBinding* child, int flags) override;
    void AddAttribute(const char* name, bool required) override;
    const IXmlBinding* FindChild(const char* name, int* flags) const override;
    bool FindAttribute(const char* name) const override;
    const char* FindMissingAttribute(const char* const* attrs) const override;
    const char* FindMissingChild(const XmlNameSet& seenNames) const override;
    void Delete() override { delete this; }

protected:
    // For XmlHandler<T>, which is its own handler.
    void SetHandler(IXmlHandler* handler) { handler_ = handler; }

private:
    IXmlHandler* handler_;
    std::string name_;
    std::vector<std::pair<const IXmlBinding*, int>> children_;
    std::vector<std::pair<std::string, bool>> attributes_;
    int mode_;
};
