#include "atr_String.h"

#include "mem_Allocator.h"

#include <atomic>
#include <cstring>
#include <memory>

namespace
{

std::atomic_ref<std::int32_t> Atomic(std::int32_t& count) noexcept
{
    return std::atomic_ref<std::int32_t>(count);
}

} // namespace

atr_StringBase::atr_StringBase(std::string_view text)
{
    if (text.empty())
        return;
    std::unique_ptr<void, mem_Deleter> count(mem_OperatorNewThrow(sizeof(std::int32_t)));
    m_text = static_cast<char*>(mem_OperatorNewThrow(text.size() + 1));
    std::memcpy(m_text, text.data(), text.size());
    m_text[text.size()] = '\0';
    m_count = new (count.release()) std::int32_t(1);
}

atr_StringBase::atr_StringBase(atr_StringBase const& other) noexcept : m_text(other.m_text), m_count(other.m_count)
{
    if (m_count != nullptr)
        Atomic(*m_count).fetch_add(1, std::memory_order_relaxed);
}

atr_StringBase& atr_StringBase::operator=(atr_StringBase const& other) noexcept
{
    if (other.m_count != nullptr) // first, so that a string may be assigned to itself
        Atomic(*other.m_count).fetch_add(1, std::memory_order_relaxed);
    Release();
    m_text = other.m_text;
    m_count = other.m_count;
    return *this;
}

atr_StringBase::~atr_StringBase()
{
    Release();
}

void atr_StringBase::Release() noexcept
{
    if (m_count != nullptr && Atomic(*m_count).fetch_sub(1, std::memory_order_acq_rel) == 1)
        Delete(m_text, m_count);
}

void atr_StringBase::Delete(char* text, std::int32_t* count) noexcept
{
    mem_Free(text);
    mem_Free(count);
}
