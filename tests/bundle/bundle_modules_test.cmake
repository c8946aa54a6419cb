# Runs one case: configures and builds project/ with a set of options in a fresh folder and looks
# at the resources. Files stand in for the adapter and the modules.
cmake_minimum_required(VERSION 3.25)

set(resources ${FOLDER}/build/Resources)
set(lindel libpkcs11qarn_Lindel_PCSC)
set(vumo libpkcs11qarn_Vumo_PCSC)

# Configures with the options; `status` is 0 or not, `messages` what CMake said, on one line.
function(configure)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -G ${GENERATOR} -S ${CMAKE_CURRENT_LIST_DIR}/project -B ${FOLDER}/build
      -D KELVRIN_RESOURCES=${RESOURCES} -D ADAPTER=${FOLDER}/adapter.so
      -D SECOND_NAME=${FOLDER}/second.so -D "READER_NAME=Reader B" ${ARGN}
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE messages)
  string(REGEX REPLACE "[ \n]+" " " messages "${messages}")
  set(status "${status}" PARENT_SCOPE)
  set(messages "${messages}" PARENT_SCOPE)
endfunction()

function(build)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${FOLDER}/build
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "building failed: ${output}")
  endif()
endfunction()

function(bundle)
  configure(${ARGN})
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "configuring failed: ${messages}")
  endif()
  build()
endfunction()

function(expect_refusal text)
  configure(${ARGN})
  if(status EQUAL 0)
    message(SEND_ERROR "accepted: ${ARGN}")
  endif()
  string(FIND "${messages}" "${text}" at)
  if(at EQUAL -1)
    message(SEND_ERROR "expected '${text}' of ${ARGN}, got: ${messages}")
  endif()
endfunction()

function(expect_files)
  file(GLOB found RELATIVE ${resources} ${resources}/*)
  list(SORT found)
  list(SORT ARGN)
  if(NOT found STREQUAL ARGN)
    message(SEND_ERROR "expected ${ARGN}, found ${found}")
  endif()
endfunction()

function(expect_contents name contents)
  file(READ "${resources}/${name}" found)
  if(NOT found STREQUAL contents)
    message(SEND_ERROR "${name}: expected '${contents}', found '${found}'")
  endif()
endfunction()

# The lines of a configuration that say something.
function(expect_lines name)
  file(STRINGS "${resources}/${name}.conf" found REGEX "^[^#]" ENCODING UTF-8)
  if(NOT found STREQUAL ARGN)
    message(SEND_ERROR "${name}.conf: expected ${ARGN}, found ${found}")
  endif()
endfunction()

function(write name contents)
  file(WRITE "${FOLDER}/${name}" "${contents}")
endfunction()

# --- cases ---------------------------------------------------------------------------------------

function(carries_the_module_behind_the_adapter)
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so)
  expect_files(card.so ${lindel}.conf ${lindel}.dylib ${vumo}.dylib)
  expect_contents(card.so "module")
  expect_contents(${lindel}.dylib "adapter")
  expect_lines(${lindel} "module = card.so" "reader-name = Reader B")
  expect_contents(${vumo}.dylib "second")
endfunction()

function(leaves_a_module_in_place)
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so -D KELVRIN_MODULE_IN_PLACE=ON)
  expect_files(${lindel}.conf ${lindel}.dylib ${vumo}.dylib)
  expect_lines(${lindel} "module = ${FOLDER}/card.so" "reader-name = Reader B")
endfunction()

function(carries_a_native_module_without_adapter)
  bundle(-D KELVRIN_NATIVE_MODULE=${FOLDER}/native.so)
  expect_files(${lindel}.dylib ${vumo}.dylib)
  expect_contents(${lindel}.dylib "native")
  expect_contents(${vumo}.dylib "second")
endfunction()

function(follows_links_and_changes_of_the_module)
  file(CREATE_LINK card.so ${FOLDER}/link.so SYMBOLIC)
  bundle(-D KELVRIN_MODULE=${FOLDER}/link.so)
  if(IS_SYMLINK ${resources}/link.so)
    message(SEND_ERROR "the link itself was copied")
  endif()
  expect_contents(link.so "module")
  execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 1)  # file times of whole seconds
  write(card.so "newer module")
  write(adapter.so "newer adapter")
  build()
  expect_contents(link.so "newer module")
  expect_contents(${lindel}.dylib "newer adapter")
endfunction()

function(keeps_unusual_names)
  set(name "Möbius & @card@ \$x 'y'.so")
  write("${name}" "module")
  bundle(-D "KELVRIN_MODULE=${FOLDER}/${name}")
  expect_contents("${name}" "module")
  expect_lines(${lindel} "module = ${name}" "reader-name = Reader B")
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so)
  expect_files(card.so ${lindel}.conf ${lindel}.dylib ${vumo}.dylib)
endfunction()

function(leaves_nothing_stale)
  set(all ${lindel}.dylib ${vumo}.dylib)
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so)
  write(build/Resources/config.plist "somebody else's")
  bundle(-D KELVRIN_MODULE=${FOLDER}/native.so)
  expect_files(config.plist native.so ${lindel}.conf ${all})
  expect_lines(${lindel} "module = native.so" "reader-name = Reader B")
  bundle(-D KELVRIN_MODULE_IN_PLACE=ON)
  expect_files(config.plist ${lindel}.conf ${all})
  # An older file under the name of a newer one.
  bundle(-D KELVRIN_NATIVE_MODULE=${FOLDER}/native.so)
  expect_files(config.plist ${all})
  expect_contents(${lindel}.dylib "native")
  bundle(-D KELVRIN_NATIVE_MODULE= -D KELVRIN_MODULE_IN_PLACE=OFF)
  expect_files(config.plist native.so ${lindel}.conf ${all})
  expect_contents(${lindel}.dylib "adapter")
endfunction()

function(appends_further_lines)
  string(ASCII 239 187 191 byte_order_mark)
  write(more.conf "${byte_order_mark}reserved = configdir='a;b' \\ @x@ [y\nrules-off = ecdsa")
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so -D KELVRIN_MODULE_CONF=${FOLDER}/more.conf)
  file(READ ${resources}/${lindel}.conf found)
  string(FIND "${found}" "\nreader-name = Reader B\nreserved = configdir='a;b' \\ @x@ [y\n" at)
  if(at EQUAL -1 OR NOT found MATCHES "\nrules-off = ecdsa\n$")
    message(SEND_ERROR "${lindel}.conf is '${found}'")
  endif()
endfunction()

function(follows_changes_of_the_further_lines)
  write(more.conf "any-reader = no\n")
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so -D KELVRIN_MODULE_CONF=${FOLDER}/more.conf)
  execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 1)  # file times of whole seconds
  write(more.conf "any-reader = yes\n")
  build()
  expect_lines(${lindel} "module = card.so" "reader-name = Reader B" "any-reader = yes")
endfunction()

function(omits_an_empty_reader_name)
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so -D READER_NAME=)
  expect_lines(${lindel} "module = card.so")
endfunction()

function(refuses_paths_that_name_no_file)
  set(needed KELVRIN_MODULE=${FOLDER}/card.so)
  foreach(option KELVRIN_MODULE KELVRIN_NATIVE_MODULE KELVRIN_MODULE_CONF)
    set(path ${FOLDER}/none.so)
    expect_refusal("${option}: there is no file '${path}'" -D ${needed} -D ${option}=${path})
    set(path ${FOLDER})
    expect_refusal("${option}: '${path}' is a folder" -D ${needed} -D ${option}=${path})
    set(path card.so)
    expect_refusal("${option}: '${path}' is not an absolute path"
                   -D ${needed} -D ${option}:STRING=${path})
    foreach(odd "a[b.so" "a#b.so")
      expect_refusal("${option}: the build cannot handle the path '${FOLDER}/${odd}'"
                     -D ${needed} -D "${option}=${FOLDER}/${odd}")
    endforeach()
    file(REMOVE_RECURSE ${FOLDER}/build)
  endforeach()
endfunction()

function(refuses_names_of_other_resources)
  foreach(name ${lindel}.conf ${vumo}.dylib LIBPKCS11QARN_lindel_pcsc.dylib config.plist
               Config.plist de.lproj)
    write(${name} "module")
    expect_refusal("KELVRIN_MODULE: the bundle has a resource of its own named '${name}'"
                   -D KELVRIN_MODULE=${FOLDER}/${name})
  endforeach()
  # Without a copy there is nothing to collide; and a native module gets another name.
  bundle(-D KELVRIN_MODULE=${FOLDER}/config.plist -D KELVRIN_MODULE_IN_PLACE=ON)
  bundle(-D KELVRIN_NATIVE_MODULE=${FOLDER}/de.lproj)
endfunction()

function(refuses_files_of_the_bundle_itself)
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so)
  file(CREATE_LINK ${resources}/card.so ${FOLDER}/link.so SYMBOLIC)
  foreach(path ${resources}/card.so ${FOLDER}/link.so)
    expect_refusal("KELVRIN_MODULE: '${path}' is part of the bundle"
                   -D KELVRIN_MODULE=${path} -D KELVRIN_NATIVE_MODULE=)
    expect_refusal("KELVRIN_NATIVE_MODULE: '${path}' is part of the bundle"
                   -D KELVRIN_NATIVE_MODULE=${path})
  endforeach()
endfunction()

function(refuses_what_the_configuration_cannot_carry)
  set(module ${FOLDER}/card.so)
  write("card\n.so" "module")
  expect_refusal("The path KELVRIN_MODULE has a line end" -D "KELVRIN_MODULE=${FOLDER}/card\n.so")
  write(" card.so" "module")
  expect_refusal("The file name in KELVRIN_MODULE begins or ends with a blank"
                 -D "KELVRIN_MODULE=${FOLDER}/ card.so")
  expect_refusal("KELVRIN_READER_NAME has a line end"
                 -D KELVRIN_MODULE=${module} -D "READER_NAME=Reader\nB")
  expect_refusal("KELVRIN_READER_NAME begins or ends with a blank"
                 -D KELVRIN_MODULE=${module} -D "READER_NAME= Reader")
  string(REPEAT r 65 long)
  expect_refusal("KELVRIN_READER_NAME has more than 64 bytes"
                 -D KELVRIN_MODULE=${module} -D READER_NAME=${long})
endfunction()

function(refuses_further_lines_for_the_builds_own_keys)
  foreach(key module reader-name)
    write(more.conf "# lines\n\t${key} = x\n")
    expect_refusal("has a line for the key '${key}'"
                   -D KELVRIN_MODULE=${FOLDER}/card.so -D KELVRIN_MODULE_CONF=${FOLDER}/more.conf)
  endforeach()
endfunction()

function(leaves_the_bundle_alone_when_it_refuses)
  bundle(-D KELVRIN_MODULE=${FOLDER}/card.so)
  expect_refusal("there is no file" -D KELVRIN_NATIVE_MODULE=${FOLDER}/none.so)
  expect_files(card.so ${lindel}.conf ${lindel}.dylib ${vumo}.dylib)
endfunction()

# -------------------------------------------------------------------------------------------------

file(REMOVE_RECURSE ${FOLDER})
write(card.so "module")
write(native.so "native")
write(adapter.so "adapter")
write(second.so "second")
cmake_language(CALL ${CASE})
