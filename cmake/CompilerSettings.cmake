# One place for what every target of ours is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow)
if(WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()
# What ships holds no path of the machine that built it: the same sources give the same package everywhere.
if(CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo AND NOT SANITIZERS)
    add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
endif()
if(SANITIZERS)
    add_compile_options(-fsanitize=${SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${SANITIZERS})
endif()

# A target of tests. Translating the tests' own code takes longest, and nothing there is worth optimizing.
function(translate_tests_quickly target)
    target_compile_options(${target} PRIVATE -O0)
endfunction()
