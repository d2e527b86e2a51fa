# The factorization of modes/: MUMPS in its sequential build, with the stand-ins for MPI that it brings, linked beforehand into one object
# that shows a single name. A host that runs under a real MPI, or has a MUMPS of its own, never meets these names. METIS stays shared.

set(kvo_mumps_archives "")
foreach(name dmumps_seq mumps_common_seq mpiseq_seq pord_seq esmumps scotch scotcherr)
    string(TOUPPER KVO_${name}_ARCHIVE variable)
    find_library(${variable} lib${name}.a DOC "Static ${name}, position-independent" REQUIRED)
    mark_as_advanced(${variable})
    list(APPEND kvo_mumps_archives ${${variable}})
endforeach()
find_path(KVO_MUMPS_INCLUDE_DIR dmumps_c.h DOC "Folder of MUMPS's headers" REQUIRED)
find_path(KVO_METIS_INCLUDE_DIR metis.h DOC "Folder of METIS's header" REQUIRED)
find_library(KVO_METIS_LIBRARY metis DOC "METIS, shared" REQUIRED)
mark_as_advanced(KVO_MUMPS_INCLUDE_DIR KVO_METIS_INCLUDE_DIR KVO_METIS_LIBRARY)
