// Walker over the cells of a VEK_Dmatrix that can hold some coordinates
// fixed (locked) while the others run like an odometer, last one fastest.
//
// The walker reads the matrix's shape when it is bound (constructor or
// Reset); call Reset after changing the shape of the matrix.
#pragma once

#include "network/dmatrix.h"
#include "network/intArray.h"
#include "network/status.h"

template <class Matrix, class Elem>
class VEK_sysCoordinatesT {
public:
    explicit VEK_sysCoordinatesT(Matrix& matrix) : m_matrix(&matrix) { Reset(); }

    // Re-reads the shape, unlocks every coordinate and goes to the first cell.
    void Reset() {
        const int nd = m_matrix->GetNumberOfDimensions();
        m_coords.SetSize(nd);
        m_coords.FillWith(0);
        m_locked.SetSize(nd);
        m_locked.FillWith(0);
        m_index = 0;
    }

    Matrix& GetMatrix() const { return *m_matrix; }
    int GetNumberOfDimensions() const { return m_coords.GetSize(); }

    // Coordinates may be set directly; GoToCurrentPosition then moves there.
    int& operator[](int i) { return m_coords[i]; }
    int operator[](int i) const { return m_coords[i]; }
    VEK_intArray& Coordinates() { return m_coords; }
    const VEK_intArray& GetCoordinates() const { return m_coords; }
    int GetIndex() const { return m_index; }

    void LockCoordinate(int i) {
        if (i >= 0 && i < m_locked.GetSize()) m_locked[i] = 1;
    }
    // Sets coordinate i to value and locks it; call GoToCurrentPosition next.
    void LockCoordinate(int i, int value) {
        if (i >= 0 && i < m_locked.GetSize()) {
            m_coords[i] = value;
            m_locked[i] = 1;
        }
    }
    void UnlockCoordinate(int i) {
        if (i >= 0 && i < m_locked.GetSize()) m_locked[i] = 0;
    }
    void UnlockAll() { m_locked.FillWith(0); }
    bool IsLocked(int i) const { return i >= 0 && i < m_locked.GetSize() && m_locked[i] != 0; }

    // Recomputes the index from the coordinates; -2 and a reset of every
    // coordinate to 0 when they are out of range.
    [[nodiscard]] int GoToCurrentPosition() {
        if (!m_matrix->Ok(m_coords)) {
            m_coords.FillWith(0);
            m_index = 0;
            return VEK_OUT_OF_RANGE;
        }
        m_index = m_matrix->CoordinatesToIndex(m_coords);
        return VEK_OKAY;
    }

    // Unlocked coordinates to 0 and the index to 0; locked coordinates are not
    // looked at, so a caller with a locked non-zero coordinate follows with
    // GoToCurrentPosition.
    void GoFirst() {
        const int nd = m_coords.GetSize();
        for (int i = 0; i < nd; ++i) {
            if (!m_locked[i]) m_coords[i] = 0;
        }
        m_index = 0;
    }

    // Unlocked coordinates to their maximum; the index follows all coordinates.
    void GoLast() {
        const VEK_intArray& dims = m_matrix->GetDimensions();
        const int nd = m_coords.GetSize();
        for (int i = 0; i < nd; ++i) {
            if (!m_locked[i]) m_coords[i] = dims[i] - 1;
        }
        m_index = m_matrix->CoordinatesToIndex(m_coords);
    }

    [[nodiscard]] int GoTo(int index) {
        VEK_intArray coords;
        int res = m_matrix->IndexToCoordinates(index, coords);
        if (res < 0) return res;
        m_coords = coords;
        m_index = index;
        return VEK_OKAY;
    }

    // Increases the last unlocked coordinate below its maximum and resets the
    // later unlocked ones to 0; -2, unchanged, when there is none.
    int Next() {
        const VEK_intArray& dims = m_matrix->GetDimensions();
        const VEK_intArray& prods = m_matrix->GetProducts();
        int i = m_coords.GetSize() - 1;
        while (i >= 0 && (m_locked[i] || m_coords[i] >= dims[i] - 1)) --i;
        if (i < 0) return VEK_OUT_OF_RANGE;
        ++m_coords[i];
        m_index += prods[i];
        for (int j = i + 1; j < m_coords.GetSize(); ++j) {
            if (m_locked[j]) continue;
            m_index -= m_coords[j] * prods[j];
            m_coords[j] = 0;
        }
        return VEK_OKAY;
    }

    // Mirror of Next: decreases, later unlocked coordinates go to their maximum.
    int Previous() {
        const VEK_intArray& dims = m_matrix->GetDimensions();
        const VEK_intArray& prods = m_matrix->GetProducts();
        int i = m_coords.GetSize() - 1;
        while (i >= 0 && (m_locked[i] || m_coords[i] <= 0)) --i;
        if (i < 0) return VEK_OUT_OF_RANGE;
        --m_coords[i];
        m_index -= prods[i];
        for (int j = i + 1; j < m_coords.GetSize(); ++j) {
            if (m_locked[j]) continue;
            m_index += (dims[j] - 1 - m_coords[j]) * prods[j];
            m_coords[j] = dims[j] - 1;
        }
        return VEK_OKAY;
    }

    // The item at the current position.
    Elem& CurrentValue() const { return m_matrix->Items()[m_index]; }
    Elem& operator*() const { return CurrentValue(); }

private:
    Matrix* m_matrix;
    VEK_intArray m_coords;
    VEK_numArray<unsigned char, 16> m_locked;
    int m_index = 0;
};

using VEK_sysCoordinates = VEK_sysCoordinatesT<VEK_Dmatrix, double>;
using VEK_constSysCoordinates = VEK_sysCoordinatesT<const VEK_Dmatrix, const double>;
