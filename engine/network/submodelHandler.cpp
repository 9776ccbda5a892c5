#include "network/submodelHandler.h"

#include <cstring>

#include "network/status.h"

VEK_submodelHandler::VEK_submodelHandler() { Clear(); }

void VEK_submodelHandler::Clear() {
    entries_.assign(kGrowthStep, VEK_submodel{});
    entries_[0].header = VEK_header("Main");
    entries_[0].parent = VEK_SUBMODEL_MAIN;
}

bool VEK_submodelHandler::IsValidSubmodel(int handle) const {
    if (!LooksLikeSubmodel(handle)) return false;
    int i = ToIndex(handle);
    return i < GetCapacity() && entries_[i].parent != VEK_SUBMODEL_EMPTY;
}

int VEK_submodelHandler::GetNumberOfSubmodels() const {
    int n = 0;
    for (const auto& e : entries_) n += e.parent != VEK_SUBMODEL_EMPTY;
    return n;
}

int VEK_submodelHandler::GetFirstSubmodel() const { return GetMainSubmodel(); }

int VEK_submodelHandler::GetNextSubmodel(int handle) const {
    if (!IsValidSubmodel(handle)) return VEK_OUT_OF_RANGE;
    for (int i = ToIndex(handle) + 1; i < GetCapacity(); ++i) {
        if (entries_[i].parent != VEK_SUBMODEL_EMPTY) return ToHandle(i);
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_submodelHandler::FindSubmodel(const char* id) const {
    if (!id) return VEK_OUT_OF_RANGE;
    for (int i = 0; i < GetCapacity(); ++i) {
        if (entries_[i].parent != VEK_SUBMODEL_EMPTY && std::strcmp(entries_[i].header.GetId(), id) == 0) {
            return ToHandle(i);
        }
    }
    return VEK_OUT_OF_RANGE;
}

bool VEK_submodelHandler::IsIdInUse(const char* id) const { return FindSubmodel(id) >= 0; }

int VEK_submodelHandler::CreateSubmodel(int parent, const char* id, const std::string& generatedId) {
    if (!IsValidSubmodel(parent)) return VEK_OUT_OF_RANGE;
    int slot = -1;
    for (int i = 1; i < GetCapacity(); ++i) {
        if (entries_[i].parent == VEK_SUBMODEL_EMPTY) { slot = i; break; }
    }
    if (slot < 0) {
        slot = GetCapacity();
        if (ToHandle(slot + kGrowthStep) < 0 || slot + kGrowthStep >= VEK_SUBMODEL_HANDLE_BIT) return VEK_OUT_OF_MEMORY;
        entries_.resize(entries_.size() + kGrowthStep);
    }
    VEK_submodel& s = entries_[slot];
    s = VEK_submodel{};
    s.header = VEK_header(id ? id : generatedId.c_str());
    s.parent = ToIndex(parent);
    return ToHandle(slot);
}

int VEK_submodelHandler::DeleteSubmodel(int handle) {
    if (!IsValidSubmodel(handle) || ToIndex(handle) == 0) return VEK_OUT_OF_RANGE;
    int index = ToIndex(handle);
    int parent = entries_[index].parent;
    // Children of the deleted submodel move up to its parent.
    for (auto& e : entries_) {
        if (e.parent == index) e.parent = parent;
    }
    entries_[index] = VEK_submodel{};
    return VEK_OKAY;
}

bool VEK_submodelHandler::IsIncluded(int handle, int ancestor) const {
    if (!IsValidSubmodel(handle) || !IsValidSubmodel(ancestor)) return false;
    int target = ToIndex(ancestor);
    for (int i = ToIndex(handle); i >= 0;) {
        if (i == target) return true;
        int p = entries_[i].parent;
        if (p < 0) break;
        i = p;
    }
    return false;
}

int VEK_submodelHandler::MoveSubmodel(int handle, int newParent) {
    if (!IsValidSubmodel(handle) || !IsValidSubmodel(newParent)) return VEK_OUT_OF_RANGE;
    if (ToIndex(handle) == 0 || handle == newParent) return VEK_OUT_OF_RANGE;
    if (IsIncluded(newParent, handle)) return VEK_OUT_OF_RANGE;
    entries_[ToIndex(handle)].parent = ToIndex(newParent);
    return VEK_OKAY;
}

VEK_submodel* VEK_submodelHandler::Get(int handle) {
    return IsValidSubmodel(handle) ? &entries_[ToIndex(handle)] : nullptr;
}

const VEK_submodel* VEK_submodelHandler::Get(int handle) const {
    return IsValidSubmodel(handle) ? &entries_[ToIndex(handle)] : nullptr;
}

int VEK_submodelHandler::GetParent(int handle) const {
    if (!IsValidSubmodel(handle)) return VEK_OUT_OF_RANGE;
    int p = entries_[ToIndex(handle)].parent;
    return p < 0 ? VEK_OUT_OF_RANGE : ToHandle(p);
}
