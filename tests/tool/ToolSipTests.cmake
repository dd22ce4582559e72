# The sip commands of the tool and the SIP section of doctor. Included from
# tests/CMakeLists.txt, where qimmisc_tool_test is defined. The installed
# main settings of the build folder are missing, so only a settings file
# written here (prefixes "9;613", an unparsable proxy) cuts prefixes. A ';'
# cannot pass through a test's command line, so lists of several prefixes
# come from that file.
set(_in "${CMAKE_CURRENT_SOURCE_DIR}/tool")
set(_work "${CMAKE_CURRENT_BINARY_DIR}/tool-sip")
file(MAKE_DIRECTORY "${_work}/install/data")

qimmisc_tool_test(tool_sip_normalize_given 0 "^6135550100\r?\n$"
                  ARGS sip normalize "9 (613) 555.0100" --strip-prefix 9)
qimmisc_tool_test(tool_sip_normalize_given_first_only 0 "^96135550100\r?\n$"
                  ARGS sip normalize "9 (613) 555.0100" --strip-prefix 613)
qimmisc_tool_test(tool_sip_normalize_installed 0 "^96135550100\r?\n$"
                  ARGS sip normalize "9 (613) 555.0100")
qimmisc_tool_test(tool_sip_normalize_address_kept 0 "^9 \\(613\\)@host\r?\n$"
                  ARGS sip normalize "9 (613)@host" --strip-prefix 9)

qimmisc_tool_test(tool_sip_settings_encrypt 0 "wrote "
                  ARGS settings encrypt ${_in}/sip-velder.ini ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_sip_normalize_settings 0 "^5550100\r?\n$"
                  ARGS sip normalize "9 (613) 555.0100" --settings ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_sip_classify_settings 0 "PSTN number: no"
                  ARGS sip classify 9 --settings ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_sip_doctor 0
                  "SIP\r?\n +strip prefixes +9.613\r?\n  \\[warn\\] proxy +sip:a@b@c +\\(does not parse as a SIP address.*\r?\n  \\[ok\\]   domain +pbx.example.com"
                  ARGS doctor)
set_tests_properties(tool_sip_settings_encrypt PROPERTIES FIXTURES_SETUP tool_sip_dat)
set_tests_properties(tool_sip_normalize_settings tool_sip_classify_settings tool_sip_doctor PROPERTIES
                     FIXTURES_REQUIRED tool_sip_dat)
set_property(TEST tool_sip_doctor APPEND PROPERTY ENVIRONMENT
             "QIMMISC_INSTALL_DIR=${_work}/install")

qimmisc_tool_test(tool_sip_classify_pstn 0
                  "scheme: sip\r?\nPSTN number: yes\r?\ncall park: no\r?\nglobal tel URI: no\r?\nURL kind: sip \\(protocol 'sip'\\)"
                  ARGS sip classify "sip:+1 (613) 555-0100@host")
qimmisc_tool_test(tool_sip_classify_global_tel 0
                  "scheme: tel\r?\nPSTN number: yes\r?\ncall park: no\r?\nglobal tel URI: yes\r?\nURL kind: tel"
                  ARGS sip classify "tel:+1-613-555-0100" --strip-prefix 7)
qimmisc_tool_test(tool_sip_classify_callpark 0 "PSTN number: no\r?\ncall park: yes"
                  ARGS sip classify "sip:callpark@host")
qimmisc_tool_test(tool_sip_classify_web 0 "URL kind: web \\(protocol 'https'\\)"
                  ARGS sip classify "HTTPS://example.com")

qimmisc_tool_test(tool_sip_compare_equal 0 "equal: same protocol and user"
                  ARGS sip compare "sip:alice@PBX" "alice@pbx")
qimmisc_tool_test(tool_sip_compare_user_case 1 "not equal: the users differ"
                  ARGS sip compare "sip:Alice@pbx" "sip:alice@pbx")
qimmisc_tool_test(tool_sip_compare_protocol 1 "not equal: the protocols differ \\(sip and sips\\)"
                  ARGS sip compare "alice@pbx" "sips:alice@pbx")
qimmisc_tool_test(tool_sip_compare_unparsable 1 "not equal: A is not user or user@domain"
                  ARGS sip compare "a@b@c" "a@b")
qimmisc_tool_test(tool_sip_usage 2 "B is required" ARGS sip compare only-a)
unset(_in)
unset(_work)
