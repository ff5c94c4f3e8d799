# Every file of SHOWN stands in README as it is.
file(READ ${README} readme)
foreach(file ${SHOWN})
    file(READ ${file} text)
    string(FIND "${readme}" "${text}" position)
    if(position EQUAL -1)
        message(FATAL_ERROR "README.md does not show ${file} as it is")
    endif()
endforeach()
