#pragma once

#include "KVOBasException.h"
#include "KVOExport.h"

#include <string_view>

/// A factorization or a search for modes cannot give what was asked for; the text says why and what to do. Number 600.
class KVO_EXPORT KVOSrvModesFailure : public KVOBasException
{
public:
    /// What failed.
    enum Kind {
        Memory, ///< the memory granted, or there, is too small
        Disk,   ///< the factor or the basis cannot be written or read
        Pair,   ///< the matrices are none of a stiffness and a mass, or have not so many finite modes
        Shift,  ///< another shift is needed
        Missed, ///< there are eigenvalues that were not found
        Kept, ///< the file to keep a search in is there, or the kept one is none, damaged, or of another pair or other
              ///< settings
        Internal ///< an error of the factorization's own
    };

    /// @param reason  copied
    KVOSrvModesFailure(Kind kind, std::string_view reason);
    KVOSrvModesFailure(KVOSrvModesFailure const&) noexcept = default;
    KVOSrvModesFailure& operator=(KVOSrvModesFailure const&) noexcept = default;
    ~KVOSrvModesFailure() override;

    /// For programs; the text is for people.
    Kind WhatFailed() const noexcept { return m_kind; }
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

private:
    Kind m_kind;
    atr_String m_reason;
};
