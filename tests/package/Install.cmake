# What an earlier installation left behind must not answer for this one.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(
    COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" --config "${CONFIG}"
    COMMAND_ERROR_IS_FATAL ANY)
