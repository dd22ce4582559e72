# The log commands of the tool, on the committed samples beside this file
# (a rotated pair with depth numbers, an advanced-user file) and on a trace
# the tool writes of its own work. Included from tests/CMakeLists.txt, where
# qimmisc_tool_test is defined.
set(_in "${CMAKE_CURRENT_SOURCE_DIR}/tool/data")
set(_work "${CMAKE_CURRENT_BINARY_DIR}/tool-log")
file(MAKE_DIRECTORY "${_work}")
set(_pair ${_in}/rotated.1.log ${_in}/rotated.2.log)

# The pair read as one: a call open across the two files, an assertion site
# hit in both, a host's line, a torn last line, calls whose return line is
# missing and a return whose ENTRY line came before the first file.
qimmisc_tool_test(tool_log_summary 0
  "Input: 2 files.*ENTRY depth shown as: numbers in brackets\r?\nCalls: 8 returned, 4 without a return line, 1 returns whose ENTRY line is not in the input.*Assertion failures: 2 at 1 site\r?\n  2x  Client:52 \\(Client::connect\\)  \"socket_ != 0\" : no socket\r?\n      first at [^\r\n]*rotated.1.log:8\r?\n        ENTRY calls open: QIM::ActionThread::run > Client::connect\r?\n        Stack trace for thread 0A3C\r?\n        \\[ 2\\] Client::connect\\(\\)    <Client:40>.*Throws: 1 at 1 site\r?\n  1x  EncryptionConfigurationFile:40 .*Lines not read: 1 \\(not from the library\\); torn last lines: 1\r?\n[^\r\n]*rotated.1.log:15: host application: connection retry scheduled\r?\n[^\r\n]*rotated.2.log:13 \\(torn\\): "
  ARGS log summary ${_pair})
qimmisc_tool_test(tool_log_summary_open 0
  "thread 0B10  depth 1  QIM::AsyncOpManager::runOperation, entered at [^\r\n]*rotated.1.log:16: still open at the end of the input.*Returns without their ENTRY line: 1\r?\n  thread 1F00  Client::ping  12 usec"
  ARGS log summary ${_pair})
qimmisc_tool_test(tool_log_summary_advanced_user 0
  "advanced.log: an advanced-user file \\(no headers\\): 3 lines" NO_MATCH "Lines not read: [1-9]"
  ARGS log summary ${_in}/advanced.log)
qimmisc_tool_test(tool_log_summary_missing 1 "cannot read [^\r\n]*no-such.log.*Input: 2 files"
  ARGS log summary ${_work}/no-such.log ${_in}/advanced.log)

qimmisc_tool_test(tool_log_calls_thread 0
  "Thread 0B10\r?\n  QIM::AsyncOpManager::runOperation \\(AsyncOpManager:60\\)  open: no return line before the end  op=7\r?\n    Download::fetch \\(Download:30\\)  open: no return line before the end  url=https://example.com/a\\?x=1&y=<2>\r?\n"
  NO_MATCH "Thread 0A3C" ARGS log calls ${_pair} --thread b10)
qimmisc_tool_test(tool_log_calls_min_usec 0
  "Thread 0A3C\r?\n  QIM::ActionThread::run \\(ActionThread:88\\)  20000 usec  name=main\r?\n    Client::connect \\(Client:40\\)  5000 usec  server=pbx.example.com\r?\n      Client::resolve \\(Client:77\\)  1500 usec.*fire \\(TimerScheduler:120\\)  open: its return line is missing"
  NO_MATCH " (250|300|420|80) usec" ARGS log calls ${_pair} --min-usec 1000)
qimmisc_tool_test(tool_log_calls_function 0
  "Thread 1F00\r?\n    Client::keepAlive<Sip::Ping&> \\(Client:90\\)  300 usec\r?\n    Client::keepAlive<Sip::Ping&> \\(Client:90\\)  open"
  NO_MATCH "ActionThread|fire" ARGS log calls ${_pair} --function keepAlive)

qimmisc_tool_test(tool_log_hot 0
  "calls +total usec +mean usec +max usec +self usec  function\r?\n +1 +20000 +20000.0 +20000 +8000  QIM::ActionThread::run\r?\n +1 +7000 +7000.0 +7000 +7000  Client::register\r?\n"
  NO_MATCH "Client::connect" ARGS log hot ${_pair} --top 2)
qimmisc_tool_test(tool_log_hot_self_and_open 0
  " +3 +750 +250.0 +420 +450  QIM::TimerScheduler::fire  \\(1 more without a return line\\)"
  ARGS log hot ${_pair})

qimmisc_tool_test(tool_log_folded 0
  "QIM::ActionThread::run 8000\r?\nQIM::ActionThread::run.Client::connect 3500\r?\nQIM::TimerScheduler::fire 450\r?\nQIM::ActionThread::run.Client::connect.Client::resolve 1500\r?\n"
  ARGS log folded ${_pair})

qimmisc_tool_test(tool_log_flame 0 "wrote [^\r\n]*calls.svg \\(8 returned calls, 4 without a return line\\)"
  ARGS log flame ${_pair} -o ${_work}/calls.svg)
add_test(NAME tool_log_flame_svg
         COMMAND ${CMAKE_COMMAND} "-DCOMMAND=${CMAKE_COMMAND}|-E|cat|${_work}/calls.svg" -DEXIT_CODE=0
                 "-DMATCH=^<\\?xml .*<svg .*<title>Client::keepAlive&lt.Sip::Ping&amp.&gt.\ncalls: 1, 300 usec \\(self 300 usec, 1.45%\\)\nwithout a return line: 1</title><rect .*</svg>\n$"
                 -P ${PROJECT_SOURCE_DIR}/cmake/ExpectRun.cmake)
set_tests_properties(tool_log_flame PROPERTIES FIXTURES_SETUP tool_log_svg)
set_tests_properties(tool_log_flame_svg PROPERTIES FIXTURES_REQUIRED tool_log_svg)
qimmisc_tool_test(tool_log_flame_unwritable 1 "cannot write /no/such/dir/x.svg"
  ARGS log flame ${_pair} -o /no/such/dir/x.svg)

# Damage: depths and times no writer could give, bytes that are not UTF-8.
qimmisc_tool_test(tool_log_damaged_calls 0
  "\r?\n +\\[depth 2147483647\\] deep \\(F:1\\)  9223372036854775807 usec  x\r?\n"
  ARGS log calls ${_in}/damaged.log)
qimmisc_tool_test(tool_log_damaged_hot 0 "\r?\n +2 +9223372036854775807 +[0-9.e+]+ +9223372036854775807 +9223372036854775807  deep\r?\n"
  ARGS log hot ${_in}/damaged.log)
qimmisc_tool_test(tool_log_damaged_flame 0 "wrote [^\r\n]*damaged.svg \\(2 returned calls"
  ARGS log flame ${_in}/damaged.log -o ${_work}/damaged.svg --thread 0B10)
add_test(NAME tool_log_damaged_svg
         COMMAND ${CMAKE_COMMAND} "-DCOMMAND=${CMAKE_COMMAND}|-E|cat|${_work}/damaged.svg" -DEXIT_CODE=0
                 "-DMATCH=<title>bad\\?\\?name&lt.&amp.&gt.\\?\ncalls: 1, 5 usec"
                 -P ${PROJECT_SOURCE_DIR}/cmake/ExpectRun.cmake)
set_tests_properties(tool_log_damaged_flame PROPERTIES FIXTURES_SETUP tool_log_damaged_svg)
set_tests_properties(tool_log_damaged_svg PROPERTIES FIXTURES_REQUIRED tool_log_damaged_svg)

qimmisc_tool_test(tool_log_bad_thread 2 "--thread: 'xyz' is not a thread id" ARGS log folded ${_pair} --thread xyz)
qimmisc_tool_test(tool_log_usage 2 "FILE is required" ARGS log calls)

# No pattern holds a ';' (a path separator of folded stacks, the end of an
# XML entity): CMake would split the argument there; '.' stands in for it.

# A trace the library wrote: the tool's own work, arrows and all.
qimmisc_tool_test(tool_log_self_trace 0 "PSTN number: yes"
  ARGS --trace +all --log ${_work}/self.log sip classify "sip:+1 (613) 555-0100@host")
qimmisc_tool_test(tool_log_self_summary 0
  "ENTRY depth shown as: arrows\r?\nCalls: [1-9][0-9]* returned, 0 without a return line, 0 returns.*Lines not read: 0 \\(not from the library\\); torn last lines: 0"
  ARGS log summary ${_work}/self.log)
qimmisc_tool_test(tool_log_self_calls 0
  "\r?\n  [^ ]*runClassify \\(SipCommand:[0-9]+\\)  [0-9]+ usec  text=sip:\\+1 \\(613\\) 555-0100@host\r?\n    QIM::"
  ARGS log calls ${_work}/self.log --function runClassify)
set_tests_properties(tool_log_self_trace PROPERTIES FIXTURES_SETUP tool_log_self)
set_tests_properties(tool_log_self_summary tool_log_self_calls PROPERTIES FIXTURES_REQUIRED tool_log_self)
unset(_in)
unset(_work)
unset(_pair)
