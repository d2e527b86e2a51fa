#include "KVOSrvInterrupt.h"

namespace
{

thread_local KVOSrvInterrupt::Check checkOfThread = nullptr;
thread_local void* contextOfThread = nullptr;

} // namespace

KVOSrvInterrupt::KVOSrvInterrupt(Check check, void* context) noexcept : m_formerCheck(checkOfThread), m_formerContext(contextOfThread)
{
    checkOfThread = check;
    contextOfThread = context;
}

KVOSrvInterrupt::~KVOSrvInterrupt()
{
    checkOfThread = m_formerCheck;
    contextOfThread = m_formerContext;
}

void KVOSrvInterrupt::Ask()
{
    if (checkOfThread != nullptr)
        checkOfThread(contextOfThread);
}
