# Fails when a source under src/ includes a folder above its own. The folders, top to bottom:
#   api > dialogs > card        (the exported functions, the dialogs, the card object layer)
#   dialogs > framework > services
# A folder includes itself and the folders listed for it below; headers outside a folder
# (include/, resources/) are for everyone.
# Run: cmake -DSOURCE_DIR=<repository> -P check_layering.cmake
cmake_minimum_required(VERSION 3.25)

set(ALLOWED_api       api dialogs card framework services)
set(ALLOWED_dialogs   dialogs card framework services)
set(ALLOWED_card      card services)
set(ALLOWED_framework framework services)
set(ALLOWED_services  services)

file(GLOB_RECURSE sources RELATIVE "${SOURCE_DIR}/src" "${SOURCE_DIR}/src/*.h" "${SOURCE_DIR}/src/*.cpp")
set(violations "")
foreach(source IN LISTS sources)
    string(REGEX MATCH "^[^/]+" folder "${source}")
    if(NOT DEFINED ALLOWED_${folder})
        continue()
    endif()
    file(STRINGS "${SOURCE_DIR}/src/${source}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"[^\"/]+/")
    foreach(line IN LISTS includes)
        string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]+)\".*" "\\1" target "${line}")
        string(REGEX MATCH "^[^/]+" target_folder "${target}")
        if(NOT DEFINED ALLOWED_${target_folder})
            continue()
        endif()
        if(NOT target_folder IN_LIST ALLOWED_${folder})
            string(APPEND violations "\n  src/${source}: #include \"${target}\" (${folder}/ may not include ${target_folder}/)")
        endif()
    endforeach()
endforeach()

if(violations)
    message(FATAL_ERROR "Includes against the layering:${violations}")
endif()
