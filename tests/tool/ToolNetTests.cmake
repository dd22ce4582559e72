# The net commands of the tool and the network section of doctor. Included
# from tests/CMakeLists.txt, where qimmisc_tool_test is defined. The machine
# may have no route at all (a container, CI): only the loopback destination
# is sure to have one. The settings written here put the proxy on loopback
# and the port ranges on privileged ports nothing binds, so the answers do
# not depend on what else runs.
set(_in "${CMAKE_CURRENT_SOURCE_DIR}/tool")
set(_work "${CMAKE_CURRENT_BINARY_DIR}/tool-net")
file(MAKE_DIRECTORY "${_work}/install/data")

qimmisc_tool_test(tool_net_help 0 "route +Show the local interface.*ports +List UDP ports"
                  ARGS net --help)
qimmisc_tool_test(tool_net_route_loopback 0
                  "destination: 127.0.0.1:5060 \\(127.0.0.1\\)\r?\nbest interface: [0-9.]+\r?\nMTU: [0-9a-z]+\r?\nUDP bearer size: (5[4-9][0-9]|[6-9][0-9][0-9]|1[0-2][0-9][0-9])\r?\n"
                  ARGS net route 127.0.0.1)
qimmisc_tool_test(tool_net_route_port 0 "destination: 127.0.0.1:80 \\(127.0.0.1\\)"
                  ARGS net route 127.0.0.1:80)
qimmisc_tool_test(tool_net_route_bad_port 2 "net route: port '65536' is not a number from 0 to 65535"
                  ARGS net route 127.0.0.1:65536)
qimmisc_tool_test(tool_net_route_no_host 2 "net route: no host in ':5060'" ARGS net route :5060)
qimmisc_tool_test(tool_net_route_missing 2 "DEST is required" ARGS net route)

qimmisc_tool_test(tool_net_settings_encrypt 0 "wrote "
                  ARGS settings encrypt ${_in}/net-velder.ini ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_net_ports_settings 0
                  "UDP ports in use \\([0-9]+ sockets\\): .*\r?\nRTP port range 1-2: no port in use\r?\ncollaboration port range 3-4: no port in use"
                  ARGS net ports --settings ${_work}/install/data/VELDer.dat)
qimmisc_tool_test(tool_net_doctor 0
                  "Network\r?\n +route to +127.0.0.1:5070\r?\n  \\[ok\\]   best interface +[0-9.]+\r?\n +MTU +[0-9a-z]+, UDP bearer size [0-9]+\r?\n  \\[ok\\]   RTP ports +1-2 free\r?\n  \\[ok\\]   collab ports +3-4 free"
                  ARGS doctor)
set_tests_properties(tool_net_settings_encrypt PROPERTIES FIXTURES_SETUP tool_net_dat)
set_tests_properties(tool_net_ports_settings tool_net_doctor PROPERTIES FIXTURES_REQUIRED tool_net_dat)
set_property(TEST tool_net_doctor APPEND PROPERTY ENVIRONMENT "QIMMISC_INSTALL_DIR=${_work}/install")

# Without settings the client's own ranges apply, and no proxy means the
# default route, which a machine without one only notes.
qimmisc_tool_test(tool_net_doctor_defaults 0
                  "Network\r?\n +route to +\\(no proxy set: the default route\\)\r?\n.*RTP ports +50000-50089.*collab ports +50090-50100"
                  ARGS doctor)
unset(_in)
unset(_work)
