# "qimmisc net watch". Included from tests/CMakeLists.txt, where
# qimmisc_tool_test is defined. A short watch starts, shows the best
# interface it starts from, and ends by itself.
qimmisc_tool_test(tool_net_watch_seconds 0
                  "Watching the route to 0.0.0.0 for 1 s\r?\n[0-9:.]+ start \\(best interface: [^)]+\\)"
                  ARGS net watch --seconds 1)
qimmisc_tool_test(tool_net_watch_destination 0
                  "Watching the route to 127.0.0.1:5061 for 1 s\r?\n[0-9:.]+ start \\(best interface: "
                  ARGS net watch 127.0.0.1:5061 --seconds 1)
qimmisc_tool_test(tool_net_watch_zero_seconds 2 "--seconds: Value 0 not in range"
                  ARGS net watch --seconds 0)
qimmisc_tool_test(tool_net_watch_bad_seconds 2 "--seconds"
                  ARGS net watch --seconds soon)
qimmisc_tool_test(tool_net_watch_bad_port 2 "net watch: port '65536' is not a number from 0 to 65535"
                  ARGS net watch host:65536 --seconds 1)
