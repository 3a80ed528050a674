# The two interface targets that every target of the project links privately: language level and
# hardening (z_build), warnings (z_warnings).

find_package(Threads REQUIRED)

add_library(z_build INTERFACE)
target_compile_features(z_build INTERFACE cxx_std_20 c_std_99)
target_compile_options(z_build INTERFACE -fstack-protector-strong -fexceptions)
target_link_options(z_build INTERFACE -Wl,-z,relro,-z,now)
target_link_libraries(z_build INTERFACE Threads::Threads)
if(Z_SANITIZE)
    target_compile_options(z_build INTERFACE -fsanitize=${Z_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(z_build INTERFACE -fsanitize=${Z_SANITIZE})
else()
    target_compile_definitions(z_build INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

if(Z_COVERAGE)
    target_compile_options(z_build INTERFACE --coverage -fprofile-abs-path -fprofile-update=atomic)
    target_link_options(z_build INTERFACE --coverage)
endif()

if(Z_FUZZ)
    # Coverage of the library's code guides the fuzzer.
    target_compile_options(z_build INTERFACE -fsanitize=fuzzer-no-link)
endif()

add_library(z_warnings INTERFACE)
target_compile_options(z_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
    $<$<BOOL:${Z_WERROR}>:-Werror>)
