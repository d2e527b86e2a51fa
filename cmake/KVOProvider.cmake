# BLAS and LAPACK with 32-bit integers. Generic is the default, so that the library needs libblas.so.3 and liblapack.so.3, which the
# system's alternatives redirect at run time; a plain search would bind to one provider's own library.

if(NOT DEFINED BLA_VENDOR)
    set(BLA_VENDOR Generic)
endif()
set(BLA_SIZEOF_INTEGER 4)
find_package(BLAS REQUIRED)
find_package(LAPACK REQUIRED)
