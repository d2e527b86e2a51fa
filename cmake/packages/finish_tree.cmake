# Run by CPack before it packs: takes the run paths off. They serve trees that are moved; a package's libraries lie where the loader looks.
file(GLOB_RECURSE files LIST_DIRECTORIES false ${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/* ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/*.so.*
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/python3/*.so)
foreach(file IN LISTS files)
    if(NOT IS_SYMLINK ${file})
        file(RPATH_REMOVE FILE ${file})
    endif()
endforeach()
