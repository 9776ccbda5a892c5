// Growable array of plain values with a small inline buffer.
//
// Short arrays (dimension lists, coordinates, small distributions) live in the
// inline buffer and never touch the heap; a heap block of new[] is taken only
// when the array outgrows it. Storage never shrinks.
#pragma once

#include <climits>
#include <cstring>
#include <initializer_list>
#include <type_traits>
#include <vector>

#include "network/status.h"

class VEK_intArray;

template <typename T, int N>
class VEK_numArray {
    static_assert(N > 0, "the inline buffer needs at least one element");
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved with memcpy");

public:
    using value_type = T;

    VEK_numArray() noexcept : m_items(m_buffer), m_capacity(N), m_count(0) {}

    // n zero-filled elements (none for n <= 0).
    explicit VEK_numArray(int n) : VEK_numArray() {
        if (n > 0) (void)SetSize(n);  // n > 0 cannot be refused
    }

    VEK_numArray(std::initializer_list<T> init) : VEK_numArray() {
        Assign(init.begin(), static_cast<int>(init.size()));
    }

    VEK_numArray(const std::vector<T>& v) : VEK_numArray() {
        Assign(v.data(), static_cast<int>(v.size()));
    }

    VEK_numArray(const VEK_numArray& other) : VEK_numArray() { Assign(other.m_items, other.m_count); }

    VEK_numArray(VEK_numArray&& other) noexcept : VEK_numArray() { TakeFrom(other); }

    VEK_numArray& operator=(const VEK_numArray& other) {
        if (this != &other) Assign(other.m_items, other.m_count);
        return *this;
    }

    VEK_numArray& operator=(VEK_numArray&& other) noexcept {
        if (this != &other) TakeFrom(other);
        return *this;
    }

    ~VEK_numArray() { FreeHeap(); }

    int GetSize() const { return m_count; }
    int GetCapacity() const { return m_capacity; }
    bool IsEmpty() const { return m_count == 0; }

    T* Items() { return m_items; }
    const T* Items() const { return m_items; }

    // No range checks: these sit in the innermost loops of the engine.
    T& operator[](int i) { return m_items[i]; }
    const T& operator[](int i) const { return m_items[i]; }
    T& Subscript(int i) { return m_items[i]; }
    const T& Subscript(int i) const { return m_items[i]; }

    T* begin() { return m_items; }
    T* end() { return m_items + m_count; }
    const T* begin() const { return m_items; }
    const T* end() const { return m_items + m_count; }

    // Growing past the capacity allocates exactly n elements; elements that
    // become visible are zero. Shrinking only changes the count.
    [[nodiscard]] int SetSize(int n) {
        if (n < 0) return VEK_NO_ITEM;
        if (n > m_capacity) Reallocate(n);
        if (n > m_count) std::memset(static_cast<void*>(m_items + m_count), 0, sizeof(T) * (n - m_count));
        m_count = n;
        return VEK_OKAY;
    }

    // Makes room for n elements without changing the count.
    [[nodiscard]] int Reserve(int n) {
        if (n < 0) return VEK_NO_ITEM;
        if (n > m_capacity) Reallocate(n);
        return VEK_OKAY;
    }

    int Add(T v) {
        if (m_count == m_capacity) Reallocate(GrownCapacity());
        m_items[m_count++] = v;
        return VEK_OKAY;
    }

    [[nodiscard]] int Insert(int pos, T v) {
        if (pos < 0 || pos > m_count) return VEK_OUT_OF_RANGE;
        if (m_count == m_capacity) Reallocate(GrownCapacity());
        std::memmove(static_cast<void*>(m_items + pos + 1), m_items + pos, sizeof(T) * (m_count - pos));
        m_items[pos] = v;
        ++m_count;
        return VEK_OKAY;
    }

    [[nodiscard]] int Delete(int pos) {
        if (pos < 0 || pos >= m_count) return VEK_OUT_OF_RANGE;
        std::memmove(static_cast<void*>(m_items + pos), m_items + pos + 1, sizeof(T) * (m_count - pos - 1));
        --m_count;
        return VEK_OKAY;
    }

    [[nodiscard]] int DeleteByContent(T v) {
        int pos = FindPosition(v);
        return pos < 0 ? VEK_OUT_OF_RANGE : Delete(pos);
    }

    int FindPosition(T v) const {
        for (int i = 0; i < m_count; ++i) {
            if (m_items[i] == v) return i;
        }
        return -1;
    }

    bool IsInList(T v) const { return FindPosition(v) >= 0; }

    void Flush() { m_count = 0; }

    void FillWith(T v) {
        T* p = m_items;
        for (int i = 0; i < m_count; ++i) p[i] = v;
    }

    // Element i becomes the old element perm[i]; perm must be a permutation
    // of 0..n-1 with n equal to the size, else nothing changes.
    [[nodiscard]] int ChangeOrder(const int* perm, int n) {
        if (n != m_count || (n > 0 && perm == nullptr)) return VEK_OUT_OF_RANGE;
        VEK_numArray<unsigned char, 64> seen(n);
        for (int i = 0; i < n; ++i) {
            int p = perm[i];
            if (p < 0 || p >= n || seen[p]) return VEK_OUT_OF_RANGE;
            seen[p] = 1;
        }
        VEK_numArray old(*this);
        for (int i = 0; i < n; ++i) m_items[i] = old.m_items[perm[i]];
        return VEK_OKAY;
    }

    // Defined in intArray.h, once VEK_intArray is complete.
    [[nodiscard]] int ChangeOrder(const VEK_intArray& perm);

    std::vector<T> ToVector() const { return std::vector<T>(m_items, m_items + m_count); }

    bool operator==(const VEK_numArray& other) const {
        if (m_count != other.m_count) return false;
        for (int i = 0; i < m_count; ++i) {
            if (!(m_items[i] == other.m_items[i])) return false;
        }
        return true;
    }

    // True while the elements sit in the inline buffer.
    bool UsesInlineBuffer() const { return m_items == m_buffer; }

private:
    int GrownCapacity() const { return m_capacity > INT_MAX / 2 ? INT_MAX : m_capacity * 2; }

    void Reallocate(int capacity) {
        T* block = new T[capacity];
        if (m_count > 0) std::memcpy(static_cast<void*>(block), m_items, sizeof(T) * m_count);
        FreeHeap();
        m_items = block;
        m_capacity = capacity;
    }

    void FreeHeap() {
        if (m_items != m_buffer) delete[] m_items;
        m_items = m_buffer;
        m_capacity = N;
    }

    void Assign(const T* src, int n) {
        if (n > m_capacity) {
            // Old contents are not needed: drop them before allocating.
            m_count = 0;
            Reallocate(n);
        }
        if (n > 0) std::memmove(static_cast<void*>(m_items), src, sizeof(T) * n);
        m_count = n;
    }

    void TakeFrom(VEK_numArray& other) {
        if (other.m_items != other.m_buffer) {
            FreeHeap();
            m_items = other.m_items;
            m_capacity = other.m_capacity;
            m_count = other.m_count;
            other.m_items = other.m_buffer;
            other.m_capacity = N;
        } else {
            Assign(other.m_items, other.m_count);
        }
        other.m_count = 0;
    }

    T m_buffer[N];
    T* m_items;
    int m_capacity;
    int m_count;
};

// Brings in VEK_intArray and the definition of ChangeOrder(const VEK_intArray&)
// for code that includes only this header.
#include "network/intArray.h"
