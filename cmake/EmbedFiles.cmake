# Files compiled into a target as byte arrays, found at run time by their
# path below a base folder (findPanelFile("www/panel.css")), so that a
# program serves its page with nothing beside it on disk.
#
#   logo_embed_files(TARGET FUNCTION BASE_DIR FILE...)
#
# host/embedded_file.h declares EmbeddedFile and each FUNCTION in namespace
# logohost. The same file, run with cmake -P, writes the source.
if(CMAKE_SCRIPT_MODE_FILE)
  set(source "// Written by cmake/EmbedFiles.cmake from the files below ${BASE}; do not edit.\n")
  string(APPEND source "#include \"host/embedded_file.h\"\n\n#include <cstring>\n\nnamespace logohost {\nnamespace {\n\n")
  set(table "")
  set(index 0)
  foreach(path ${FILES})
    file(READ "${path}" hex HEX)
    string(LENGTH "${hex}" digits)
    math(EXPR size "${digits} / 2")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
    file(RELATIVE_PATH name "${BASE}" "${path}")
    # One array element per byte, and a NUL after them so the text can be
    # read as a C string too.
    string(APPEND source "const char kFile${index}[] = {${bytes}'\\0'};\n")
    string(APPEND table "    {\"${name}\", kFile${index}, ${size}},\n")
    math(EXPR index "${index} + 1")
  endforeach()
  string(APPEND source "\nconst EmbeddedFile kFiles[] = {\n${table}};\n\n}  // namespace\n\n")
  string(APPEND source "const EmbeddedFile* ${FUNCTION}(const std::string& name)\n{\n")
  string(APPEND source "    for (const EmbeddedFile& file : kFiles)\n        if (name == file.name)\n            return &file;\n")
  string(APPEND source "    return nullptr;\n}\n\n}  // namespace logohost\n")
  file(WRITE "${OUTPUT}.tmp" "${source}")
  # Unchanged content keeps its time stamp: nothing recompiles for nothing.
  execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different "${OUTPUT}.tmp" "${OUTPUT}")
  file(REMOVE "${OUTPUT}.tmp")
  return()
endif()

set(LOGO_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_FILE})

function(logo_embed_files target function base)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${target}_embedded_files.cpp)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${output} -DFUNCTION=${function} -DBASE=${base} "-DFILES=${ARGN}" -P ${LOGO_EMBED_SCRIPT}
    DEPENDS ${ARGN} ${LOGO_EMBED_SCRIPT}
    COMMENT "Embedding the files of ${target}"
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
endfunction()
