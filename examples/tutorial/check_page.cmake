# cmake -P check_page.cmake: docs/tutorial.md shows the programs of this folder as they are.
file(READ ${CMAKE_CURRENT_LIST_DIR}/../../docs/tutorial.md page)
foreach(source tower.cpp tower.f90 tower.sh)
    file(READ ${CMAKE_CURRENT_LIST_DIR}/${source} text)
    string(FIND "${page}" "\n${text}```\n" place)
    if(place EQUAL -1)
        message(SEND_ERROR "docs/tutorial.md does not show ${source} as it is in examples/tutorial")
    endif()
endforeach()
