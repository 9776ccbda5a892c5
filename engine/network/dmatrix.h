// N-dimensional matrix of doubles: every table of the engine.
//
// Row-major with the last dimension varying fastest, so one column (one
// distribution over a node's own outcomes) is a contiguous run of items.
// products[i] is the product of the sizes of the dimensions after i.
#pragma once

#include <stdexcept>
#include <vector>

#include "network/doubleArray.h"
#include "network/intArray.h"

// a * b, throwing std::overflow_error("VEK_smulThrowOnOverflow") when the
// product does not fit a signed 32-bit int.
int VEK_smulThrowOnOverflow(int a, int b);

class VEK_Dmatrix {
public:
    VEK_Dmatrix() = default;
    explicit VEK_Dmatrix(const VEK_intArray& dims);
    VEK_Dmatrix(const VEK_intArray& dims, double fill);
    VEK_Dmatrix(const VEK_Dmatrix&) = default;
    VEK_Dmatrix(VEK_Dmatrix&&) noexcept = default;
    VEK_Dmatrix& operator=(const VEK_Dmatrix&) = default;
    VEK_Dmatrix& operator=(VEK_Dmatrix&&) noexcept = default;

    bool operator==(const VEK_Dmatrix& other) const {
        return m_dims == other.m_dims && m_items == other.m_items;
    }

    // ---- shape ----
    // -2 when count < 0 or a size is below 1; count 0 clears.
    [[nodiscard]] int Setup(const int* sizes, int count);
    [[nodiscard]] int Setup(const VEK_intArray& sizes) { return Setup(sizes.Items(), sizes.GetSize()); }
    // count < 1 clears; otherwise sets the dimensions and sizes the items
    // (items already present keep their linear positions, new ones are 0).
    [[nodiscard]] int ReCreate(const int* sizes, int count);
    [[nodiscard]] int ReCreate(const VEK_intArray& sizes) { return ReCreate(sizes.Items(), sizes.GetSize()); }
    [[nodiscard]] int SetSingleDimension(int size);
    void Clear();
    // Recomputes the products from the dimensions (throws on overflow).
    void CalculatePreProd();

    // ---- access ----
    int GetSize() const { return m_items.GetSize(); }
    int GetNumberOfDimensions() const { return m_dims.GetSize(); }
    int GetSizeOfDimension(int dim) const;
    int GetLastDimensionSize() const { return m_dims.IsEmpty() ? 0 : m_dims[m_dims.GetSize() - 1]; }
    const VEK_intArray& GetDimensions() const { return m_dims; }
    const VEK_intArray& GetProducts() const { return m_prods; }
    VEK_doubleArray& GetItems() { return m_items; }
    const VEK_doubleArray& GetItems() const { return m_items; }
    double* Items() { return m_items.Items(); }
    const double* Items() const { return m_items.Items(); }

    double& operator[](int index) { return m_items[index]; }
    const double& operator[](int index) const { return m_items[index]; }
    double& Subscript(int index) { return m_items[index]; }
    const double& Subscript(int index) const { return m_items[index]; }
    double& Subscript(const VEK_intArray& coordinates) { return m_items[CoordinatesToIndex(coordinates)]; }
    const double& Subscript(const VEK_intArray& coordinates) const {
        return m_items[CoordinatesToIndex(coordinates)];
    }

    // No range check; see Ok.
    int CoordinatesToIndex(const VEK_intArray& coordinates) const;
    // At least one coordinate per dimension, each within its dimension.
    bool Ok(const VEK_intArray& coordinates) const;
    [[nodiscard]] int IndexToCoordinates(int index, VEK_intArray& coordinates) const;

    // ---- whole-table arithmetic ----
    void FillWith(double v) { m_items.FillWith(v); }
    [[nodiscard]] int FillFrom(const VEK_doubleArray& src);
    [[nodiscard]] int FillFrom(const std::vector<double>& src);
    int FillFrom(const double* src);  // trusts the caller for the length
    [[nodiscard]] int FillFrom(const VEK_Dmatrix& src);
    void Multiply(double v);
    void Add(double v);
    // Item k times a[k mod n], n the size of the last dimension.
    [[nodiscard]] int Multiply(const VEK_doubleArray& a);
    // Adds a element by element from the item at coordinates.
    [[nodiscard]] int Add(const VEK_intArray& coordinates, const VEK_doubleArray& a);
    bool CompatibleWith(const VEK_Dmatrix& other) const { return m_dims == other.m_dims; }
    [[nodiscard]] int Sum(const VEK_Dmatrix& a, const VEK_Dmatrix& b);
    [[nodiscard]] int Subtract(const VEK_Dmatrix& a, const VEK_Dmatrix& b);
    [[nodiscard]] int Add(const VEK_Dmatrix& other);

    [[nodiscard]] int CopyBlockFrom(const VEK_Dmatrix& src, int srcStart, int dstStart, int count);
    [[nodiscard]] int CopyColumnsFrom(const VEK_Dmatrix& src, int srcColumn, int dstColumn, int columns);
    [[nodiscard]] int MakeDeterministicColumn(int column, int outcome);

    // ---- columns ----
    // A column is named by the coordinates of any of its items (the last
    // coordinate is ignored) or by the linear index of any of its items.
    [[nodiscard]] int Normalize(const VEK_intArray& coordinates);
    [[nodiscard]] int Normalize(int index);
    bool Normalized(const VEK_intArray& coordinates) const;
    bool Normalized(int index) const;
    // Adjusts the item at the last coordinate so that its column sums to 1.
    [[nodiscard]] int Complement(const VEK_intArray& coordinates);
    // Every column: sum 1 kept, sum 0 made uniform, anything else rescaled.
    int Normalize();

    // 1 when every item of the sub-table equals value, 0 when not, -2 on bad
    // coordinates. Coordinates hold -1 for a free dimension.
    int CheckElements(double value, const VEK_intArray& coordinates) const;
    int CheckElements(double value, int dimA, int coordA, int dimB, int coordB) const;

    // ---- dimensions ----
    [[nodiscard]] int AddDimension(int size) { return InsertDimension(GetNumberOfDimensions(), size); }
    [[nodiscard]] int AddDimensions(const VEK_intArray& sizes);
    // The table is replicated along the new dimension.
    [[nodiscard]] int InsertDimension(int position, int size);
    // Keeps the slice at coordinate keep of dim. A one-dimensional matrix is
    // left unchanged (0).
    [[nodiscard]] int RemoveDimension(int dim, int keep);
    [[nodiscard]] int RemoveDimension(int dim) { return RemoveDimension(dim, 0); }
    // Weighted sum over the states of dim.
    [[nodiscard]] int RemoveDimension(int dim, const VEK_doubleArray& weights);
    [[nodiscard]] int RemoveDimension(int dim, int keep, VEK_Dmatrix& result) const;
    [[nodiscard]] int RemoveDimension(int dim, const VEK_doubleArray& weights, VEK_Dmatrix& result) const;
    // Entry >= 0: that dimension is removed keeping that coordinate (from the
    // last dimension to the first); -1 keeps the dimension.
    [[nodiscard]] int RemoveDimensions(const VEK_intArray& coordinates, VEK_Dmatrix& result) const;
    // Removes dim choosing per remaining cell the state given by a selector
    // table. dimMap[j] names the dimension of this matrix that dimension j of
    // selector stands for (same size, never dim); the item of selector at the
    // cell's coordinates on those dimensions is the state of dim that is kept.
    // -2 when the map does not fit or a selected state is not a valid state.
    [[nodiscard]] int RemoveDimension(int dim, const VEK_Dmatrix& selector, const VEK_intArray& dimMap);

    [[nodiscard]] int ResizeDimension(int dim, int size);
    [[nodiscard]] int IncreaseDimensionSize(int dim);
    [[nodiscard]] int DecreaseDimensionSize(int dim);
    [[nodiscard]] int ShiftDataUpwards(int dim, int position, double fill = 0.0);
    [[nodiscard]] int ShiftDataDownwards(int dim, int position);
    // New dimension i is old dimension perm[i].
    [[nodiscard]] int ChangeOrderOfDimensions(const VEK_intArray& perm);
    // New state i of dim holds the items of old state perm[i].
    [[nodiscard]] int ChangeOrderWithinDimension(int dim, const VEK_intArray& perm);

private:
    // Computes products and returns the item count of dims; throws on overflow.
    static int ComputeProducts(const int* dims, int count, VEK_intArray& prods);
    // Fills items with the view of this matrix that has the given dimension
    // sizes, whose coordinate i advances the source index by strides[i], and
    // that starts at base. prods receives the products of dims.
    void GatherView(const VEK_intArray& dims, const VEK_intArray& strides, int base, VEK_intArray& prods,
                    VEK_doubleArray& items) const;
    void Replace(VEK_intArray&& dims, VEK_intArray&& prods, VEK_doubleArray&& items);
    // Both assume at least two dimensions and checked arguments.
    void RemoveKeepInto(int dim, int keep, VEK_Dmatrix& out) const;
    void RemoveWeightedInto(int dim, const VEK_doubleArray& weights, VEK_Dmatrix& out) const;
    // Index of the first item of the column named by coordinates, -2 when the
    // coordinates (all but the last) are out of range.
    int ColumnStart(const VEK_intArray& coordinates) const;

    VEK_intArray m_dims;
    VEK_intArray m_prods;
    VEK_doubleArray m_items;
};
