#pragma once

#include "mem_Allocator.h"

#include <cstdint>
#include <utility>

/// A holder of an object that it shares with its copies; the last one deletes the object. Not thread-safe.
///
/// The count lies in an allocation of its own, or beside the object if T has a member `std::int32_t& HolderCount()`:
/// that saves an allocation per object, and constructing a holder cannot fail then.
template<class T>
class cow_CountedHld : public mem_AllocationOperators
{
public:
    /// Takes `object`, not null and made with `new`; its count is 1. @throws mem_OutOfMemory, the object is deleted
    /// then
    explicit cow_CountedHld(T* object) : m_count(NewCount(object)), m_object(object) {}
    /// Shares the object of `other`.
    cow_CountedHld(cow_CountedHld const& other) noexcept : m_count(other.m_count), m_object(other.m_object)
    {
        ++*m_count;
    }
    ~cow_CountedHld() { Release(); }

    /// Shares the other's object. Assignment to itself is safe: the source is counted before the own object is
    /// released.
    cow_CountedHld& operator=(cow_CountedHld const& other) noexcept
    {
        ++*other.m_count;
        std::int32_t* const count = other.m_count;
        T* const object = other.m_object;
        Release();
        m_count = count;
        m_object = object;
        return *this;
    }

    /// Takes `object`, as the constructor does; holders that shared the former object keep it. The object already held
    /// changes nothing.
    /// @throws mem_OutOfMemory, this holder is as it was and `object` is deleted
    cow_CountedHld& operator=(T* object)
    {
        if (object == m_object)
            return *this;
        if (kCountBeside || *m_count != 1) {
            std::int32_t* const count = NewCount(object);
            Release();
            m_count = count;
        } else {
            delete m_object; // the count stays, it is 1
        }
        m_object = object;
        return *this;
    }

    /// The object itself, shared or not: changing it shows in every holder.
    T* GetPtr() const noexcept { return m_object; }
    /// The same as a reference.
    T& GetRef() const noexcept { return *m_object; }
    /// The object for reading.
    T const& ConstGet() const noexcept { return *m_object; }

    /// Number of holders that share the object, this one included.
    int Count() const noexcept { return *m_count; }

private:
    static constexpr bool kCountBeside = requires(T & object) { object.HolderCount(); };

    static std::int32_t* NewCount(T* object)
    {
        if constexpr (kCountBeside) {
            object->HolderCount() = 1;
            return &object->HolderCount();
        } else {
            try {
                return new (mem_OperatorNewThrow(sizeof(std::int32_t))) std::int32_t(1);
            } catch (...) {
                delete object;
                throw;
            }
        }
    }

    void Release() noexcept
    {
        if (--*m_count != 0)
            return;
        delete m_object;
        if constexpr (!kCountBeside)
            mem_Free(m_count);
    }

    std::int32_t* m_count;
    T* m_object;
};
