include("${CMAKE_CURRENT_LIST_DIR}/AllHeaders.cmake")

file(REMOVE_RECURSE "${OUT}")
ormek_all_headers("${OUT}/headers.cpp" "${ROOT}" model service cache)
file(GLOB sources RELATIVE "${ROOT}"
    "${ROOT}/model/*.cpp" "${ROOT}/service/*.cpp" "${ROOT}/cache/*.cpp")

execute_process(
    COMMAND "${COMPILER}" -std=c++17 -I. -Wall -Wextra -Wpedantic -Werror
        ${sources} tests/package/customer.cpp "${OUT}/headers.cpp" -o "${OUT}/customer"
    WORKING_DIRECTORY "${ROOT}"
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${OUT}/customer" COMMAND_ERROR_IS_FATAL ANY)
