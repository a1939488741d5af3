# What every target of this project has in common.

# ormek_sources(<sources> <headers> <folder>...)
# Lists the sources and headers that lie directly in the given folders below the root.
function(ormek_sources sources_variable headers_variable)
    set(sources)
    set(headers)
    foreach(folder IN LISTS ARGN)
        file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.cpp")
        list(APPEND sources ${found})
        file(GLOB found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.h")
        list(APPEND headers ${found})
    endforeach()
    set(${sources_variable} ${sources} PARENT_SCOPE)
    set(${headers_variable} ${headers} PARENT_SCOPE)
endfunction()

# ormek_own(<target> <C++ standard>)
# The language, the warnings and the include root of a target that is ours.
function(ormek_own target standard)
    target_compile_features(${target} PUBLIC cxx_std_${standard})
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD ${standard}
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF)
    target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(ORMEK_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # GCC 12 reports an overlap in plain std::string concatenation once it optimises.
        target_compile_options(${target} PRIVATE -Wno-restrict)
        if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
            # A sanitizer's instrumentation hides initialisations from this analysis.
            target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
        endif()
    endif()
endfunction()

# ormek_library(<target> <exported name> <C++ standard> <component> <export set> <file>...)
# A library that is installed: built from <file>..., known as Ormek::<exported name> in the tree and
# after installation alike.
function(ormek_library target name standard component export_set)
    add_library(${target} ${ARGN})
    add_library(Ormek::${name} ALIAS ${target})
    ormek_own(${target} ${standard})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
        # So that a static library can become part of somebody's shared one.
        POSITION_INDEPENDENT_CODE ON
        INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${target} EXPORT ${export_set}
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component}
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component}
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component}
        INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/ormek")
endfunction()
