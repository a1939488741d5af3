include("${CMAKE_CURRENT_LIST_DIR}/AllHeaders.cmake")

set(rooms model service cache)
set(standard -std=c++17)
if(COMPONENT STREQUAL "client")
    list(APPEND rooms backend client)
    set(standard -std=c++20)
endif()

file(REMOVE_RECURSE "${OUT}")
ormek_all_headers("${OUT}/headers.cpp" "${PREFIX}/include/ormek" ${rooms})

set(ENV{PKG_CONFIG_PATH} "${LIBDIR}/pkgconfig")
if(STATIC)
    set(static --static)
endif()

function(ask_pkg_config result)
    execute_process(
        COMMAND "${PKG_CONFIG}" ${ARGN} ${MODULE}
        OUTPUT_VARIABLE answer
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(answer UNIX_COMMAND "${answer}")
    set(${result} ${answer} PARENT_SCOPE)
endfunction()

ask_pkg_config(cflags --cflags)
ask_pkg_config(libs --libs ${static})
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")

# Whole, so that a dependency which the files forgot to name is missed here and not by a customer.
execute_process(
    COMMAND "${COMPILER}" ${standard} ${FLAGS} ${cflags}
        "${CMAKE_CURRENT_LIST_DIR}/customer.cpp" "${OUT}/headers.cpp" -o "${OUT}/customer"
        -Wl,--whole-archive ${libs} -Wl,--no-whole-archive "-Wl,-rpath,${LIBDIR}"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${OUT}/customer" COMMAND_ERROR_IS_FATAL ANY)
