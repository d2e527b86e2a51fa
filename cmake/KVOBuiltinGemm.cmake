# The built-in DGEMM: the serial static BLIS and a small wrapper, linked beforehand into one object that shows a single name. Linked the
# usual way, the archive's own dgemm_ and xerbla_ would satisfy the forwards, and the provider would never be called.

find_library(KVO_BLIS_LIBRARY libblis.a PATH_SUFFIXES blis-serial DOC "Static BLIS 0.9, serial, position-independent" REQUIRED)
find_path(KVO_BLIS_INCLUDE_DIR blis.h PATH_SUFFIXES blis-serial DOC "Folder of that library's blis.h" REQUIRED)
mark_as_advanced(KVO_BLIS_LIBRARY KVO_BLIS_INCLUDE_DIR)

# kvo_add_kernel_object(TARGET FUNCTION source ...): the object holds the sources and what they need of BLIS.
function(kvo_add_kernel_object target function)
    kvo_add_local_object(${target} ${function} SOURCES ${ARGN} ARCHIVES ${KVO_BLIS_LIBRARY} INCLUDES ${KVO_BLIS_INCLUDE_DIR})
    target_link_libraries(${target} INTERFACE m)
endfunction()
