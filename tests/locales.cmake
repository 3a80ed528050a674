# Makes the locales that the text tests run in, once, inside the build folder: the tests with LOCALES
# run in each of Z_TEST_LOCALES, and find the others by name.

set(Z_TEST_LOCALES C C.UTF-8)
set(z_locale_dir ${PROJECT_BINARY_DIR}/locales)
file(MAKE_DIRECTORY ${z_locale_dir})
foreach(row "de_DE;ISO-8859-1" "ja_JP;EUC-JP" "ps_AF;UTF-8;BY_NAME")
    list(GET row 0 language)
    list(GET row 1 codeset)
    set(name ${language}.${codeset})
    if(NOT EXISTS ${z_locale_dir}/${name}/LC_CTYPE)
        execute_process(COMMAND localedef -i ${language} -f ${codeset} ${z_locale_dir}/${name}
                        OUTPUT_QUIET ERROR_QUIET)
    endif()
    if(NOT EXISTS ${z_locale_dir}/${name}/LC_CTYPE)
        message(FATAL_ERROR "localedef could not make ${name}; the Debian package locales is needed")
    endif()
    if(NOT BY_NAME IN_LIST row)
        list(APPEND Z_TEST_LOCALES ${name})
    endif()
endforeach()
