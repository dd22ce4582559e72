# The key of the enciphered settings files: 32 hexadecimal digits, the 16
# key bytes in order (each 8 digits are one big-endian key word). Supply the
# product's key privately, never in the source tree.
set(QIMMISC_SETTINGS_KEY "" CACHE STRING
    "Key of the enciphered settings files: 32 hexadecimal digits (private)")
set(QIMMISC_SETTINGS_KEY_FILE "" CACHE FILEPATH
    "File holding the 32 hexadecimal digits of the settings key (private)")
set(_qim_dev_key "5145494D4D697363204465764B657921")  # development only
set(_qim_key "${QIMMISC_SETTINGS_KEY}")
if(_qim_key STREQUAL "" AND NOT QIMMISC_SETTINGS_KEY_FILE STREQUAL "")
  if(NOT EXISTS "${QIMMISC_SETTINGS_KEY_FILE}")
    message(FATAL_ERROR "QIMMISC_SETTINGS_KEY_FILE names no file: ${QIMMISC_SETTINGS_KEY_FILE}")
  endif()
  file(REAL_PATH "${QIMMISC_SETTINGS_KEY_FILE}" _qim_key_path)
  file(REAL_PATH "${PROJECT_SOURCE_DIR}" _qim_source_path)
  string(FIND "${_qim_key_path}/" "${_qim_source_path}/" _qim_inside)
  if(_qim_inside EQUAL 0)
    message(WARNING "QIMMISC_SETTINGS_KEY_FILE lies inside the source tree: keep the key out of the repository")
  endif()
  file(READ "${QIMMISC_SETTINGS_KEY_FILE}" _qim_key)
  string(STRIP "${_qim_key}" _qim_key)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${QIMMISC_SETTINGS_KEY_FILE}")
endif()
if(_qim_key STREQUAL "")
  message(WARNING
    "\n*** QIMMISC_SETTINGS_KEY / QIMMISC_SETTINGS_KEY_FILE not set: the enciphered "
    "settings files use the fixed DEVELOPMENT key. Files written by this build can be "
    "read by anyone with the source. Never ship it. ***\n")
  set(_qim_key "${_qim_dev_key}")
  set(QIMMISC_SETTINGS_DEVELOPMENT_KEY true)
else()
  set(QIMMISC_SETTINGS_DEVELOPMENT_KEY false)
endif()
if(NOT _qim_key MATCHES "^[0-9A-Fa-f]+$")
  message(FATAL_ERROR "The settings key must be 32 hexadecimal digits (it is not shown here)")
endif()
string(LENGTH "${_qim_key}" _qim_key_length)
if(NOT _qim_key_length EQUAL 32)
  message(FATAL_ERROR "The settings key must be 32 hexadecimal digits, not ${_qim_key_length}")
endif()
string(REGEX REPLACE "([0-9A-Fa-f][0-9A-Fa-f])" "0x\\1, " QIMMISC_SETTINGS_KEY_BYTES "${_qim_key}")
configure_file(SettingsKeyBytes.h.in "${CMAKE_CURRENT_BINARY_DIR}/generated/SettingsKeyBytes.h" @ONLY)
target_include_directories(qimmisc PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/generated")
unset(_qim_key)
unset(QIMMISC_SETTINGS_KEY_BYTES)
