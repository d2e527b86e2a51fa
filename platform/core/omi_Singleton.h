#pragma once

#include "KVOExport.h"

/// The one object of a class T in the process; T's base. Constructing a T registers it, destroying it takes it off.
///
/// A library that exports a singleton declares `extern template class omi_SingletonBase<T>` in T's header and
/// instantiates it in one source file: otherwise every library that uses T has an instance of its own. Not locked: the
/// host's main thread makes it.
template<class T>
class KVO_EXPORT omi_SingletonBase
{
public:
    /// The object, null when there is none; it is not made.
    static T* Instance() noexcept { return s_instance; }

    omi_SingletonBase(omi_SingletonBase const&) = delete;
    omi_SingletonBase& operator=(omi_SingletonBase const&) = delete;

protected:
    omi_SingletonBase() noexcept { s_instance = static_cast<T*>(this); }
    ~omi_SingletonBase()
    {
        if (s_instance == this)
            s_instance = nullptr;
    }

private:
    static T* s_instance;
};

template<class T>
T* omi_SingletonBase<T>::s_instance = nullptr;

/// Access that makes the object on first use.
template<class T>
class KVO_EXPORT omi_Singleton : public omi_SingletonBase<T>
{
public:
    /// The object; it is made when there is none. Deleting it is allowed, the next call makes another.
    static T& Instance()
    {
        T* const instance = omi_SingletonBase<T>::Instance();
        return instance != nullptr ? *instance : *new T; // the constructor registers it
    }
};
