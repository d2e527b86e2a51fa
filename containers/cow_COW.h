#pragma once

#include "cow_CountedHld.h"

/// The plain way to copy an object: by its copy constructor.
template<class T>
struct cow_Direct {
    /// A new object, made with `new`; it belongs to the caller.
    static T* Copy(T const& source) { return new T(source); }
};

/// A holder whose object is copied before it is changed while shared.
template<class T, class CopyPolicy = cow_Direct<T>>
class cow_COW : public cow_CountedHld<T>
{
public:
    using cow_CountedHld<T>::cow_CountedHld;
    using cow_CountedHld<T>::operator=;

    /// The object for changing: the held one if no other holder shares it, otherwise a copy that this holder takes
    /// first.
    /// @throws whatever copying throws; the holder is as it was
    T& Get()
    {
        if (this->Count() != 1)
            *this = CopyPolicy::Copy(this->ConstGet());
        return this->GetRef();
    }
};
