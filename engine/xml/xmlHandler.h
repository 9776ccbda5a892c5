// Receivers of element events, and XmlHandler<T>: a binding that forwards its
// events to member functions of a loader object, so a loader declares its
// whole schema as bindings to its own methods.
#pragma once

#include "xml/xmlBinding.h"

class IXmlReader;

class IXmlHandler {
public:
    virtual void OnStartElement(IXmlReader* reader) = 0;
    virtual void OnEndElement(IXmlReader* reader) = 0;
    // Called once per whitespace-separated item of the element's text when
    // ContainsList() is true; GetContent() then holds the item.
    virtual void OnListItem(IXmlReader*) {}
    virtual bool ContainsList() const { return false; }
    virtual void Delete() { delete this; }
    virtual ~IXmlHandler() = default;
};

template <class T>
class XmlHandler : public XmlBinding, public IXmlHandler {
public:
    using Callback = void (T::*)(IXmlReader*);

    // Any callback may be null: its event is then ignored. A non-null
    // onListItem makes the element a list element.
    XmlHandler(T* object, const char* name, Callback onStart = nullptr, Callback onEnd = nullptr,
               Callback onListItem = nullptr, int mode = XmlModeInherit)
        : XmlBinding(nullptr, name, mode), object_(object), onStart_(onStart), onEnd_(onEnd),
          onListItem_(onListItem) {
        SetHandler(this);
    }

    void OnStartElement(IXmlReader* reader) override {
        if (onStart_ && object_) (object_->*onStart_)(reader);
    }
    void OnEndElement(IXmlReader* reader) override {
        if (onEnd_ && object_) (object_->*onEnd_)(reader);
    }
    void OnListItem(IXmlReader* reader) override {
        if (onListItem_ && object_) (object_->*onListItem_)(reader);
    }
    bool ContainsList() const override { return onListItem_ != nullptr; }
    void Delete() override { delete this; }

private:
    T* object_;
    Callback onStart_;
    Callback onEnd_;
    Callback onListItem_;
};
