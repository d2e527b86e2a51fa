#include "KVOSrvProductMemory.h"

#include "KVOSrvMatrixSupport.h"

namespace
{

constexpr KVOSrvMatrixSupport::RefusalCheck Require("mtx/impl/KVOSrvProductMemory", "KVOSrvProductMemory");

thread_local std::int64_t limitOfThread = 0;

} // namespace

KVOSrvProductMemory::KVOSrvProductMemory(std::int64_t bytes) : m_before(limitOfThread)
{
    Require(bytes > 0, "KVOSrvProductMemory", "a limit of memory is a positive number of bytes");
    limitOfThread = bytes;
}

KVOSrvProductMemory::~KVOSrvProductMemory()
{
    limitOfThread = m_before;
}

std::int64_t KVOSrvProductMemory::Bytes() noexcept
{
    return limitOfThread;
}
