// Identifier, name and comment of a network, node or submodel.
#pragma once

#include <string>

class VEK_header {
public:
    VEK_header() = default;
    explicit VEK_header(const char* id);
    virtual ~VEK_header() = default;
    VEK_header(const VEK_header&) = default;
    VEK_header& operator=(const VEK_header&) = default;
    // Moves cannot fail, which lets a network take over a read model whole.
    VEK_header(VEK_header&&) noexcept = default;
    VEK_header& operator=(VEK_header&&) noexcept = default;

    const char* GetId() const { return id_.c_str(); }
    const char* GetName() const { return name_.c_str(); }
    const char* GetComment() const { return comment_.c_str(); }
    bool HasComment() const { return hasComment_; }

    // Only a valid identifier is accepted (-30 otherwise).
    [[nodiscard]] virtual int SetId(const char* id);
    int SetName(const char* name);
    int SetComment(const char* comment);

protected:
    void AssignId(const char* id) { id_ = id ? id : ""; }

private:
    std::string id_;
    std::string name_;
    std::string comment_;
    bool hasComment_ = false;
};

class VEK_network;

// A node's header: changing the id asks the network first, which checks
// uniqueness and tells the definitions of the node and its children.
class VEK_nodeHeader : public VEK_header {
public:
    VEK_nodeHeader(VEK_network& net, int handle, const char* id) : VEK_header(id), net_(&net), handle_(handle) {}
    [[nodiscard]] int SetId(const char* id) override;
    // Used by the network once it has approved the change.
    void ForceId(const char* id) { AssignId(id); }
    void Rebind(VEK_network& net) { net_ = &net; }

private:
    VEK_network* net_;
    int handle_;
};
