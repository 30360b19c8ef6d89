# Targets behind the presets check-format and check-tidy. Both fail on the first finding.
find_program(CLANG_FORMAT clang-format)
file(GLOB_RECURSE OUR_SOURCES CONFIGURE_DEPENDS
    ${CMAKE_SOURCE_DIR}/MQTTClientManager/*.cpp ${CMAKE_SOURCE_DIR}/MQTTClientManager/*.h
    ${CMAKE_SOURCE_DIR}/Utils/*.cpp ${CMAKE_SOURCE_DIR}/Utils/*.h
    ${CMAKE_SOURCE_DIR}/Platform/*.cpp ${CMAKE_SOURCE_DIR}/Platform/*.h
    ${CMAKE_SOURCE_DIR}/Tools/*.cpp ${CMAKE_SOURCE_DIR}/Tools/*.h
    ${CMAKE_SOURCE_DIR}/tests/*.cpp ${CMAKE_SOURCE_DIR}/tests/*.h
    ${CMAKE_SOURCE_DIR}/bench/*.cpp ${CMAKE_SOURCE_DIR}/bench/*.h)
add_custom_target(check-format
    COMMAND ${CLANG_FORMAT} --dry-run --Werror ${OUR_SOURCES}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} COMMENT "Checking the format of our sources" VERBATIM)
add_custom_target(format
    COMMAND ${CLANG_FORMAT} -i ${OUR_SOURCES}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} COMMENT "Formatting our sources" VERBATIM)
add_custom_target(check-tidy
    COMMAND ${CMAKE_SOURCE_DIR}/scripts/tidy --build ${CMAKE_BINARY_DIR}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} COMMENT "Running clang-tidy" USES_TERMINAL VERBATIM)
