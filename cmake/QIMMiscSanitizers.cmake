# QIMMISC_SANITIZE applies to every target so that the library, its tests
# and the tool are instrumented alike.
if(QIMMISC_SANITIZE)
  list(JOIN QIMMISC_SANITIZE "," _qim_sanitizers)
  add_compile_options(-fsanitize=${_qim_sanitizers} -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${_qim_sanitizers})
  if("undefined" IN_LIST QIMMISC_SANITIZE)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
# libFuzzer steers by the coverage of the code under test, the library's too.
if(QIMMISC_LIBFUZZER)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
