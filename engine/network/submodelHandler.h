// The submodel tree. Entry 0 is the main submodel (the network's top level).
// Public submodel handles carry bit 0x8000 so they never collide with node
// handles.
#pragma once

#include <string>
#include <vector>

#include "network/header.h"
#include "network/screenInfo.h"

constexpr int VEK_SUBMODEL_HANDLE_BIT = 0x8000;
constexpr int VEK_SUBMODEL_EMPTY = -8889;
constexpr int VEK_SUBMODEL_MAIN = -8888;

struct VEK_submodel {
    VEK_header header;
    int parent = VEK_SUBMODEL_EMPTY;  // entry index of the parent, or a marker
    VEK_screenInfo info;
    bool operator==(const VEK_submodel& o) const {
        return std::string(header.GetId()) == o.header.GetId() &&
               std::string(header.GetName()) == o.header.GetName() &&
               std::string(header.GetComment()) == o.header.GetComment() && parent == o.parent && info == o.info;
    }
};

class VEK_submodelHandler {
public:
    static constexpr int kGrowthStep = 8;

    VEK_submodelHandler();

    static int ToIndex(int handle) { return handle & ~VEK_SUBMODEL_HANDLE_BIT; }
    static int ToHandle(int index) { return index | VEK_SUBMODEL_HANDLE_BIT; }
    static bool LooksLikeSubmodel(int handle) { return handle >= 0 && (handle & VEK_SUBMODEL_HANDLE_BIT) != 0; }

    int GetMainSubmodel() const { return ToHandle(0); }
    bool IsValidSubmodel(int handle) const;
    int GetNumberOfSubmodels() const;
    int GetFirstSubmodel() const;  // the main submodel
    int GetNextSubmodel(int handle) const;
    int FindSubmodel(const char* id) const;  // handle or -2
    bool IsIdInUse(const char* id) const;

    // Creates a submodel inside parent; returns its handle or a status.
    [[nodiscard]] int CreateSubmodel(int parent, const char* id, const std::string& generatedId);
    [[nodiscard]] int DeleteSubmodel(int handle);
    [[nodiscard]] int MoveSubmodel(int handle, int newParent);
    bool IsIncluded(int handle, int ancestor) const;

    VEK_submodel* Get(int handle);
    const VEK_submodel* Get(int handle) const;
    int GetParent(int handle) const;  // public handle, or -2
    int GetCapacity() const { return static_cast<int>(entries_.size()); }
    void Clear();
    bool operator==(const VEK_submodelHandler& o) const { return entries_ == o.entries_; }

private:
    std::vector<VEK_submodel> entries_;
};
