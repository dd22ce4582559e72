# Warnings every target of the project is built with.
add_library(qimmisc_warnings INTERFACE)
target_compile_options(qimmisc_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Woverloaded-virtual -Wnull-dereference -Wdouble-promotion -Wformat=2)
