#pragma once

#include "KVOSimException.h"

#include <utility>
#include <vector>

/// A list that goes in or comes out of the database interface; copies its elements.
template<class T>
class KVOSimArray
{
public:
    KVOSimArray() = default;
    /// Copies elements[0 .. count-1]; `elements` may be null when `count` is 0.
    /// @throws KVOSimException for a negative count and for a missing list
    KVOSimArray(T const* elements, int count)
    {
        if (count < 0 || (count > 0 && elements == nullptr))
            KVOSimException("Cannot make an array", "", "its count is negative or the list is missing")
                .Throw("platform/sim/KVOSimArray", __LINE__);
        m_elements.assign(elements, elements + count);
    }
    /// Takes the elements of a vector.
    explicit KVOSimArray(std::vector<T> elements) : m_elements(std::move(elements)) {}

    /// Number of elements.
    int Size() const noexcept { return static_cast<int>(m_elements.size()); }
    /// Whether there are no elements.
    bool IsEmpty() const noexcept { return m_elements.empty(); }

    /// Element `i`, 0-based, below Size(); not checked.
    T const& operator[](int i) const noexcept { return m_elements[static_cast<std::size_t>(i)]; }
    /// The same for writing.
    T& operator[](int i) noexcept { return m_elements[static_cast<std::size_t>(i)]; }

    /// Adds a copy of `element` behind the last one.
    void Append(T const& element) { m_elements.push_back(element); }

    /// The first element, for loops over all.
    T const* begin() const noexcept { return m_elements.data(); }
    /// One past the last element.
    T const* end() const noexcept { return m_elements.data() + m_elements.size(); }

private:
    static_assert(!std::is_same_v<T, bool>, "a vector of bool has no elements to point at");
    std::vector<T> m_elements;
};
