#include "network/header.h"

#include "network/identifier.h"
#include "network/network.h"
#include "network/status.h"

VEK_header::VEK_header(const char* id) : id_(id ? id : ""), name_(id ? id : "") {}

int VEK_header::SetId(const char* id) {
    if (!VEK_isValidIdentifier(id)) return VEK_ILLEGAL_IDENTIFIER;
    id_ = id;
    return VEK_OKAY;
}

int VEK_header::SetName(const char* name) {
    name_ = name ? name : "";
    return VEK_OKAY;
}

int VEK_header::SetComment(const char* comment) {
    hasComment_ = comment != nullptr;
    comment_ = comment ? comment : "";
    return VEK_OKAY;
}

int VEK_nodeHeader::SetId(const char* id) { return net_->ChangeNodeId(handle_, id); }
