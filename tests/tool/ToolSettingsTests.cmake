# The settings commands of the tool, run on the files beside this one and on
# files the earlier cases write into a work folder of the build. Included
# from tests/CMakeLists.txt, where qimmisc_tool_test is defined.
set(_in "${CMAKE_CURRENT_SOURCE_DIR}/tool")
set(_work "${CMAKE_CURRENT_BINARY_DIR}/tool-settings")
file(MAKE_DIRECTORY "${_work}/install/data")
# The unwritable-target case must show that its input is left alone: it gets
# a copy of its own to compare afterwards.
configure_file("${_in}/plain.ini" "${_work}/kept.ini" COPYONLY)

# Round trip: plain -> enciphered -> plain file and text, and the plain file
# enciphered again deciphers to the same bytes.
qimmisc_tool_test(tool_settings_encrypt 0 "wrote .*plain.dat"
                  ARGS settings encrypt ${_in}/plain.ini ${_work}/plain.dat)
qimmisc_tool_test(tool_settings_decrypt_text 0
                  "^\\[Audio\\]\r?\nDevice=Headset \\(USB\\)\r?\nVolume=7\r?\n\\[Network\\]\r?\nproxy=sip.example.com\r?\n$"
                  ARGS settings decrypt ${_work}/plain.dat)
qimmisc_tool_test(tool_settings_decrypt_file 0 "wrote .*plain.txt"
                  ARGS settings decrypt ${_work}/plain.dat ${_work}/plain.txt)
qimmisc_tool_test(tool_settings_reencrypt 0 "wrote .*again.dat"
                  ARGS settings encrypt ${_work}/plain.txt ${_work}/again.dat)
qimmisc_tool_test(tool_settings_redecrypt 0 "wrote .*again.txt"
                  ARGS settings decrypt ${_work}/again.dat ${_work}/again.txt)
add_test(NAME tool_settings_round_trip_equal
         COMMAND ${CMAKE_COMMAND} -E compare_files ${_work}/plain.txt ${_work}/again.txt)
set_tests_properties(tool_settings_encrypt PROPERTIES FIXTURES_SETUP tool_plain_dat)
set_tests_properties(tool_settings_decrypt_text PROPERTIES FIXTURES_REQUIRED tool_plain_dat)
set_tests_properties(tool_settings_decrypt_file PROPERTIES FIXTURES_REQUIRED tool_plain_dat
                     FIXTURES_SETUP tool_plain_txt)
set_tests_properties(tool_settings_reencrypt PROPERTIES FIXTURES_REQUIRED tool_plain_txt
                     FIXTURES_SETUP tool_again_dat)
set_tests_properties(tool_settings_redecrypt PROPERTIES FIXTURES_REQUIRED tool_again_dat
                     FIXTURES_SETUP tool_again_txt)
set_tests_properties(tool_settings_round_trip_equal PROPERTIES
                     FIXTURES_REQUIRED "tool_plain_txt;tool_again_txt")

# A byte-order mark is noted and left out: the first header survives.
qimmisc_tool_test(tool_settings_bom_note 0 "byte-order mark; it is left out.*wrote .*bom.dat"
                  ARGS settings encrypt ${_in}/bom.ini ${_work}/bom.dat)
qimmisc_tool_test(tool_settings_bom_dropped 0 "^\\[Audio\\]\r?\nVolume=7"
                  ARGS settings decrypt ${_work}/bom.dat)
set_tests_properties(tool_settings_bom_note PROPERTIES FIXTURES_SETUP tool_bom_dat)
set_tests_properties(tool_settings_bom_dropped PROPERTIES FIXTURES_REQUIRED tool_bom_dat)

# Errors: exit 1 with the reason; a wrong command line exits 2.
qimmisc_tool_test(tool_settings_missing_input 1 "cannot read .*no-such.ini: File not found"
                  ARGS settings encrypt ${_work}/no-such.ini ${_work}/never.dat)
qimmisc_tool_test(tool_settings_damaged 1 "damaged.dat is damaged: invalid padding count"
                  ARGS settings decrypt ${_in}/damaged.dat)
qimmisc_tool_test(tool_settings_unwritable 1
                  "cannot write /no/such/dir/out.dat: .*could not be opened for writing"
                  ARGS settings encrypt ${_work}/kept.ini /no/such/dir/out.dat)
qimmisc_tool_test(tool_settings_same_file 1 "is the input itself"
                  ARGS settings encrypt ${_work}/kept.ini ${_work}/kept.ini)
add_test(NAME tool_settings_input_kept
         COMMAND ${CMAKE_COMMAND} -E compare_files ${_work}/kept.ini ${_in}/plain.ini)
set_tests_properties(tool_settings_unwritable tool_settings_same_file PROPERTIES
                     FIXTURES_SETUP tool_kept)
set_tests_properties(tool_settings_input_kept PROPERTIES FIXTURES_REQUIRED tool_kept)
qimmisc_tool_test(tool_settings_usage 2 "OUT is required" ARGS settings encrypt only-in.ini)

# Main settings: a clamped value is marked and its line shown; doctor sees
# the same file in an installation folder.
qimmisc_tool_test(tool_settings_encrypt_main 0 "wrote "
                  ARGS settings encrypt ${_in}/velder.ini ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_settings_show 0
                  "\\(found\\).*\n\\* proxy=sip.example.com  \\(default: \\).*\n\\* TLSPort=5062  \\(default: 5061\\).*\n\\* IPChangeReConnectDelay=301000  \\(default: 0\\).*Rejected or clamped values: 1\r?\n  VELDer flag IPChangeReConnectDelay should be up to 301000 msecs, so 301000 is used instead"
                  ARGS settings show ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_settings_show_missing 1 "not found: every setting has its default.*  TLSPort=5061"
                  ARGS settings show ${_work}/no-such.dat)
qimmisc_tool_test(tool_doctor_main_settings 0
                  "Main settings\r?\n  \\[ok\\]   main settings file +[^\n]*VELDer.dat\r?\n  \\[warn\\] rejected or clamped +1\r?\n +VELDer flag IPChangeReConnectDelay"
                  ARGS doctor)
set_tests_properties(tool_settings_encrypt_main PROPERTIES FIXTURES_SETUP tool_main_dat)
set_tests_properties(tool_settings_show tool_doctor_main_settings PROPERTIES
                     FIXTURES_REQUIRED tool_main_dat)
set_property(TEST tool_doctor_main_settings APPEND PROPERTY ENVIRONMENT
             "QIMMISC_INSTALL_DIR=${_work}/install")

qimmisc_tool_test(tool_ringtones 0
                  "boss\r?\n  ringtonePath += C:.Sounds.boss.wav\r?\n  ringtoneLoop += yes\r?\n  ringtoneDevice += yes\r?\n  cwtPath += C:.Sounds.beep.wav\r?\n  cwtLoop += no\r?\n  cwtDevice += no"
                  ARGS ringtones ${_in}/Ringtone.ini)
qimmisc_tool_test(tool_ringtones_missing 1 "cannot read .*no-such.ini: File not found"
                  ARGS ringtones ${_work}/no-such.ini)
unset(_in)
unset(_work)
