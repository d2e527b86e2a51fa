#include "KVOSrvModesFailure.h"

KVOSrvModesFailure::KVOSrvModesFailure(Kind kind, std::string_view reason) : m_kind(kind), m_reason(reason) {}
KVOSrvModesFailure::~KVOSrvModesFailure() = default;

atr_String KVOSrvModesFailure::AsString() const
{
    return m_reason;
}

void KVOSrvModesFailure::Raise() const
{
    throw KVOSrvModesFailure(*this);
}

int KVOSrvModesFailure::ErrorNumber() const
{
    return 600;
}
