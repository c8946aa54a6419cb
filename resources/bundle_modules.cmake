# The PKCS#11 modules of the extension's bundle: under the first resource name the adapter, which
# has a configuration beside it and the module behind it, or a module that needs no adapter; under
# the second an empty library that re-exports the first.
include_guard()

set(KELVRIN_MODULE_IN_PLACE OFF CACHE BOOL
  "Leave KELVRIN_MODULE where it is and name its absolute path (for modules of several files)")
set(KELVRIN_MODULE_CONF "" CACHE FILEPATH
  "Text file with further lines for the adapter's configuration, such as reserved or rules-off")
set(KELVRIN_NATIVE_MODULE "" CACHE FILEPATH "Module that needs no adapter, in the adapter's place")
if("${KELVRIN_MODULE}" STREQUAL "")
  unset(KELVRIN_MODULE CACHE)
endif()
if(APPLE)
  # There is no module to be expected: the bundle takes the user's own later.
  set(KELVRIN_MODULE "" CACHE FILEPATH "PKCS#11 module that the bundle's adapter loads")
elseif(NOT KELVRIN_NATIVE_MODULE)
  find_library(KELVRIN_MODULE softhsm2 PATH_SUFFIXES softhsm
    DOC "PKCS#11 module that the bundle's adapter loads" REQUIRED)
endif()

# The file beside the adapter that its configuration names while nobody has chosen a module.
set(KELVRIN_MODULE_TO_COME pkcs11-module.dylib)

set(_kelvrin_first libpkcs11qarn_Lindel_PCSC)
set(_kelvrin_second libpkcs11qarn_Vumo_PCSC)

set(_kelvrin_conf_template ${CMAKE_CURRENT_LIST_DIR}/adapter.conf.in)
string(ASCII 1 _kelvrin_first_control)
string(ASCII 31 _kelvrin_last_control)
string(ASCII 127 _kelvrin_delete)
set(_kelvrin_controls "[${_kelvrin_first_control}-${_kelvrin_last_control}${_kelvrin_delete}]")

# Refuses a value that a line of the configuration cannot carry.
function(_kelvrin_check_value what value)
  if("${value}" MATCHES "${_kelvrin_controls}")
    message(FATAL_ERROR "${what} has a line end or another control character; "
                        "the adapter's configuration cannot carry it")
  elseif("${value}" MATCHES "^ | $")
    message(FATAL_ERROR "${what} begins or ends with a blank; "
                        "the adapter's configuration cannot carry it")
  endif()
endfunction()

# Refuses a path that names no file, or one that the build cannot handle.
function(_kelvrin_check_file option path)
  _kelvrin_check_value("The path ${option}" "${path}")
  if("${path}" MATCHES "[][;\\#<>]")
    message(FATAL_ERROR "${option}: the build cannot handle the path '${path}' with one of "
                        "; # [ ] < > \\ in it; copy the file to another name")
  elseif(NOT IS_ABSOLUTE "${path}")
    message(FATAL_ERROR "${option}: '${path}' is not an absolute path; name the file by one")
  elseif(NOT EXISTS "${path}")
    message(FATAL_ERROR "${option}: there is no file '${path}'; name the module's own file")
  elseif(IS_DIRECTORY "${path}")
    message(FATAL_ERROR "${option}: '${path}' is a folder; name the file in it")
  endif()
endfunction()

# Refuses a file that lies in the bundle: building would copy it onto itself or remove it.
function(_kelvrin_check_outside option path folder)
  file(REAL_PATH "${path}" real)
  file(REAL_PATH "${folder}" real_folder)
  cmake_path(IS_PREFIX real_folder "${real}" is_inside)
  if(is_inside)
    message(FATAL_ERROR "${option}: '${path}' is part of the bundle that is being built; "
                        "name the module that was copied there")
  endif()
endfunction()

# Refuses a module whose copy would take the place of another resource. Case counts for nothing, as
# on the disks that bundles are copied to.
function(_kelvrin_check_name option name)
  string(TOLOWER "${name}" lower)
  set(taken config.plist de.lproj en.lproj
      ${_kelvrin_first}.dylib ${_kelvrin_first}.conf ${_kelvrin_second}.dylib)
  string(TOLOWER "${taken}" taken)
  if(lower IN_LIST taken)
    message(FATAL_ERROR "${option}: the bundle has a resource of its own named '${name}'; copy the "
                        "module to another name, or set KELVRIN_MODULE_IN_PLACE")
  endif()
endfunction()

# The lines of KELVRIN_MODULE_CONF.
function(_kelvrin_further_lines result)
  set(lines "")
  if(KELVRIN_MODULE_CONF)
    _kelvrin_check_file(KELVRIN_MODULE_CONF "${KELVRIN_MODULE_CONF}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${KELVRIN_MODULE_CONF}")
    file(READ "${KELVRIN_MODULE_CONF}" lines)
    string(ASCII 239 187 191 byte_order_mark)
    string(REGEX REPLACE "^${byte_order_mark}" "" lines "${lines}")
    if("${lines}" MATCHES "(^|\n)[ \t]*(module|reader-name)[ \t]*=")
      message(FATAL_ERROR "KELVRIN_MODULE_CONF: '${KELVRIN_MODULE_CONF}' has a line for the key "
                          "'${CMAKE_MATCH_2}', which the build writes itself; remove it")
    endif()
  endif()
  set(${result} "${lines}" PARENT_SCOPE)
endfunction()

# Removes what an earlier configuration put among the resources and this one does not, and notes
# what this one does.
function(_kelvrin_remove_stale folder manifest files)
  if(EXISTS "${manifest}")
    file(STRINGS "${manifest}" earlier ENCODING UTF-8)
    list(REMOVE_ITEM earlier ${files})
    foreach(name ${earlier})
      file(REMOVE "${folder}/${name}")
    endforeach()
  endif()
  list(JOIN files "\n" lines)
  file(WRITE "${manifest}" "${lines}\n")
endfunction()

# Has the build copy a file to where a bundle's resource belongs, again when the file changes or
# another one takes its place.
function(_kelvrin_copy source target)
  add_custom_command(OUTPUT "${target}"
    COMMAND ${CMAKE_COMMAND} -E copy "${source}" "${target}"
    DEPENDS "${source}"
    VERBATIM)
endfunction()

# kelvrin_bundle_modules(FOLDER ADAPTER SECOND_NAME READER_NAME OUTPUTS): checks the options above,
# writes the configuration into FOLDER, the bundle's resources, and has the build copy the modules
# there. ADAPTER is the adapter's library, SECOND_NAME the one that re-exports the first name,
# READER_NAME the name that the adapter shows its slot under, unless empty. OUTPUTS receives the
# files that the build makes.
function(kelvrin_bundle_modules folder adapter second_name reader_name outputs)
  file(MAKE_DIRECTORY "${folder}")
  set(first "${adapter}")
  set(files ${_kelvrin_first}.dylib ${_kelvrin_second}.dylib) # names in the folder
  set(copied)                                                 # the module's among them
  if(KELVRIN_NATIVE_MODULE)
    _kelvrin_check_file(KELVRIN_NATIVE_MODULE "${KELVRIN_NATIVE_MODULE}")
    _kelvrin_check_outside(KELVRIN_NATIVE_MODULE "${KELVRIN_NATIVE_MODULE}" "${folder}")
    set(first "${KELVRIN_NATIVE_MODULE}")
  else()
    list(APPEND files ${_kelvrin_first}.conf)
    if(KELVRIN_MODULE OR NOT APPLE)
      _kelvrin_check_file(KELVRIN_MODULE "${KELVRIN_MODULE}")
      _kelvrin_check_outside(KELVRIN_MODULE "${KELVRIN_MODULE}" "${folder}")
    endif()
    _kelvrin_check_value(KELVRIN_READER_NAME "${reader_name}")
    string(LENGTH "${reader_name}" reader_name_size)
    if(reader_name_size GREATER 64)
      message(FATAL_ERROR "KELVRIN_READER_NAME has more than 64 bytes; shorten it")
    endif()
    set(reader_name_line "# none")
    if(NOT "${reader_name}" STREQUAL "")
      set(reader_name_line "reader-name = ${reader_name}")
    endif()
    _kelvrin_further_lines(further_lines)
    set(module "${KELVRIN_MODULE}")
    if(NOT KELVRIN_MODULE)
      set(module ${KELVRIN_MODULE_TO_COME})
    elseif(NOT KELVRIN_MODULE_IN_PLACE)
      get_filename_component(module "${KELVRIN_MODULE}" NAME)
      _kelvrin_check_value("The file name in KELVRIN_MODULE" "${module}")
      _kelvrin_check_name(KELVRIN_MODULE "${module}")
      set(copied "${module}")
    endif()
  endif()

  # Nothing above has touched the bundle, so that a refusal leaves it as it was.
  _kelvrin_remove_stale("${folder}" "${CMAKE_CURRENT_BINARY_DIR}/bundled_modules.txt"
                        "${files};${copied}")
  _kelvrin_copy("${first}" "${folder}/${_kelvrin_first}.dylib")
  _kelvrin_copy("${second_name}" "${folder}/${_kelvrin_second}.dylib")
  set(copies "${folder}/${_kelvrin_first}.dylib" "${folder}/${_kelvrin_second}.dylib")
  if(NOT KELVRIN_NATIVE_MODULE)
    configure_file("${_kelvrin_conf_template}" "${folder}/${_kelvrin_first}.conf" @ONLY)
  endif()
  if(copied)
    _kelvrin_copy("${KELVRIN_MODULE}" "${folder}/${copied}")
    list(APPEND copies "${folder}/${copied}")
  endif()
  set(${outputs} "${copies}" PARENT_SCOPE)
endfunction()
