# The PKCS#11 modules of the extension's bundle: under each of the two resource names either the
# adapter, which has a configuration beside it and the module behind it, or a module that needs no
# adapter.
include_guard()

set(KELVRIN_MODULE_IN_PLACE OFF CACHE BOOL
  "Leave KELVRIN_MODULE where it is and name its absolute path (for modules of several files)")
set(KELVRIN_MODULE_CONF "" CACHE FILEPATH
  "Text file with further lines for the adapter's configuration, such as reserved or rules-off")
set(KELVRIN_NATIVE_MODULE_LINDEL "" CACHE FILEPATH
  "Module that needs no adapter, under the first resource name")
set(KELVRIN_NATIVE_MODULE_VUMO "" CACHE FILEPATH
  "Module that needs no adapter, under the second resource name")
if("${KELVRIN_MODULE}" STREQUAL "")
  unset(KELVRIN_MODULE CACHE)
endif()
if(APPLE)
  # There is no module to be expected: the bundle takes the user's own later.
  set(KELVRIN_MODULE "" CACHE FILEPATH "PKCS#11 module that the bundle's adapter loads")
elseif(NOT (KELVRIN_NATIVE_MODULE_LINDEL AND KELVRIN_NATIVE_MODULE_VUMO))
  find_library(KELVRIN_MODULE softhsm2 PATH_SUFFIXES softhsm
    DOC "PKCS#11 module that the bundle's adapter loads" REQUIRED)
endif()

# The file beside the adapter that its configuration names while nobody has chosen a module.
set(KELVRIN_MODULE_TO_COME pkcs11-module.dylib)

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
function(_kelvrin_check_name option name names)
  string(TOLOWER "${name}" lower)
  set(taken config.plist de.lproj en.lproj)
  foreach(resource ${names})
    list(APPEND taken ${resource}.dylib ${resource}.conf)
  endforeach()
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
  set(earlier libpkcs11qarn_Lindel_PCSC.conf libpkcs11qarn_Vumo_PCSC.conf)
  if(EXISTS "${manifest}")
    file(READ "${manifest}" noted)
    string(REPLACE "\n" ";" noted "${noted}")
    list(APPEND earlier ${noted})
  endif()
  list(REMOVE_ITEM earlier ${files})
  foreach(name ${earlier})
    file(REMOVE "${folder}/${name}")
  endforeach()
  list(JOIN files "\n" lines)
  file(WRITE "${manifest}" "${lines}\n")
endfunction()

# Has the build copy a file to where a bundle's resource belongs, again when the file changes or
# another one takes its place.
function(_kelvrin_copy source target dependency)
  add_custom_command(OUTPUT "${target}"
    COMMAND ${CMAKE_COMMAND} -E copy "${source}" "${target}"
    DEPENDS "${dependency}"
    VERBATIM)
endfunction()

# kelvrin_bundle_modules(FOLDER ADAPTER DEPENDENCY READER_NAME OUTPUTS): checks the options above,
# writes the configurations into FOLDER, the bundle's resources, and has the build copy the modules
# there. ADAPTER is the adapter's library, DEPENDENCY the target or file that it comes from,
# READER_NAME the name that the adapters show their slot under, unless empty. OUTPUTS receives the
# files that the build makes.
function(kelvrin_bundle_modules folder adapter dependency reader_name outputs)
  set(names libpkcs11qarn_Lindel_PCSC libpkcs11qarn_Vumo_PCSC)
  file(MAKE_DIRECTORY "${folder}")
  set(files)      # names in the folder
  set(copies)     # what the build makes of them
  set(adapted)    # the resource names that the adapter has
  foreach(name ${names})
    list(APPEND files ${name}.dylib)
    list(APPEND copies "${folder}/${name}.dylib")
    string(REGEX MATCH "Lindel|Vumo" which ${name})
    string(TOUPPER KELVRIN_NATIVE_MODULE_${which} option)
    set(native_${name} "${${option}}")
    if("${native_${name}}" STREQUAL "")
      list(APPEND adapted ${name})
      list(APPEND files ${name}.conf)
    else()
      _kelvrin_check_file(${option} "${native_${name}}")
      _kelvrin_check_outside(${option} "${native_${name}}" "${folder}")
    endif()
  endforeach()

  if(adapted)
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
      _kelvrin_check_name(KELVRIN_MODULE "${module}" "${names}")
      list(APPEND files "${module}")
      list(APPEND copies "${folder}/${module}")
      _kelvrin_copy("${KELVRIN_MODULE}" "${folder}/${module}" "${KELVRIN_MODULE}")
    endif()
  endif()

  # Nothing above has touched the bundle, so that a refusal leaves it as it was.
  _kelvrin_remove_stale("${folder}" "${CMAKE_CURRENT_BINARY_DIR}/bundled_modules.txt" "${files}")
  foreach(name ${names})
    if(name IN_LIST adapted)
      configure_file("${_kelvrin_conf_template}" "${folder}/${name}.conf" @ONLY)
      _kelvrin_copy("${adapter}" "${folder}/${name}.dylib" "${dependency}")
    else()
      _kelvrin_copy("${native_${name}}" "${folder}/${name}.dylib" "${native_${name}}")
    endif()
  endforeach()
  set(${outputs} "${copies}" PARENT_SCOPE)
endfunction()
