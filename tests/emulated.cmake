# Tests in the emulation of another processor (./dev arm).

# z_runnable(variable target): sets the variable to the path of a program that runs the target. A
# script can start it: for another processor it is a wrapper that calls the emulator.
function(z_runnable variable target)
    if(NOT CMAKE_CROSSCOMPILING)
        set(${variable} $<TARGET_FILE:${target}> PARENT_SCOPE)
        return()
    endif()
    set(wrapper ${PROJECT_BINARY_DIR}/emulated/bin/$<TARGET_FILE_NAME:${target}>)
    file(GENERATE OUTPUT ${wrapper}
         CONTENT "#!/bin/sh\nexec ${CMAKE_CROSSCOMPILING_EMULATOR} -0 \"$0\" $<TARGET_FILE:${target}> \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                          WORLD_READ WORLD_EXECUTE)
    set(${variable} ${wrapper} PARENT_SCOPE)
endfunction()

if(NOT CMAKE_CROSSCOMPILING)
    return()
endif()

# z_not_emulated(program [TESTS Suite.Name…] REASON reason): leaves out a test program, or single tests
# of a GoogleTest program.
function(z_not_emulated program)
    cmake_parse_arguments(arg "" "REASON" "TESTS" ${ARGN})
    if(arg_TESTS)
        list(JOIN arg_TESTS ":" filter)
        set_property(GLOBAL PROPERTY z_filter_${program} "GTEST_FILTER=-${filter}")
    else()
        file(APPEND ${PROJECT_BINARY_DIR}/CTestCustom.cmake
             "list(APPEND CTEST_CUSTOM_TESTS_IGNORE ${program})\n")
    endif()
    list(PREPEND arg_TESTS ${program})
    list(JOIN arg_TESTS " " names)
    message(STATUS "tests: without ${names}: ${arg_REASON}")
endfunction()

file(WRITE ${PROJECT_BINARY_DIR}/CTestCustom.cmake "")
z_not_emulated(crash REASON "a tracer would see the calls of the emulator, not of the program")
z_not_emulated(package.install REASON "it compiles and runs programs for this machine")
z_not_emulated(docs REASON "it compiles and runs programs for this machine")
z_not_emulated(models.process_lock REASON "it checks a model, no program")
