# Makes the locales that the text tests run in, once, inside the build directory: the tests with LOCALES
# run in each of Z_TEST_LOCALES, and find the others by name. A row is what localedef compiles, the
# codeset, and a name unless it is LANGUAGE.CODESET.

set(Z_TEST_LOCALES C C.UTF-8)
set(z_locale_dir ${PROJECT_BINARY_DIR}/locales)
file(MAKE_DIRECTORY ${z_locale_dir})
string(REPEAT "long-" 40 z_long_name)
foreach(row "de_DE;ISO-8859-1" "ja_JP;EUC-JP" "ps_AF;UTF-8;BY_NAME" "hy_AM;ARMSCII-8;BY_NAME"
            "ka_GE;GEORGIAN-PS;BY_NAME" "tg_TJ;KOI8-T;BY_NAME" "kk_KZ;PT154;BY_NAME"
            "kk_KZ;RK1048;BY_NAME" "de_DE;UTF-8;BY_NAME;company.utf8@X"
            "de_DE;UTF-8;BY_NAME;Our own: site" "de_DE;UTF-8;BY_NAME;${z_long_name}"
            "tr_TR;UTF-8;BY_NAME;tr_TR.utf8@Ours" "de_DE;ISO-8859-1;BY_NAME;de_DE.latin1"
            "en_US;UTF-8;BY_NAME" "de_DE;UTF-8;BY_NAME")
    list(GET row 0 language)
    list(GET row 1 codeset)
    set(name ${language}.${codeset})
    list(LENGTH row columns)
    if(columns EQUAL 4)
        list(GET row 3 name)
    endif()
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
