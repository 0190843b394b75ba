# tessaly_generate_typelib(NAME IDL OUT_SOURCES [IMPORTS IDL...])
# Runs the IDL generator at build time, whenever the IDL, a library it imports (IMPORTS)
# or the generator changes, and
# returns the generated sources in OUT_SOURCES. Outputs land in TESSALY_GENERATED_DIR:
# NAME.h (interfaces, IIDs, CLSIDs, enumerations), NAMEDispatch.cpp (one thunk per member)
# and NAMETypeInfo.cpp (the run-time type information tables).
set(TESSALY_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated CACHE INTERNAL "")
set(TESSALY_GENERATOR_DIR ${CMAKE_CURRENT_LIST_DIR}/../typelib/generator)

function(tessaly_generate_typelib name idl out_sources)
  cmake_parse_arguments(PARSE_ARGV 3 _arg "" "" "IMPORTS")
  file(GLOB _generator_sources CONFIGURE_DEPENDS ${TESSALY_GENERATOR_DIR}/*.py)
  set(_outputs
    ${TESSALY_GENERATED_DIR}/${name}.h
    ${TESSALY_GENERATED_DIR}/${name}Dispatch.cpp
    ${TESSALY_GENERATED_DIR}/${name}TypeInfo.cpp)
  add_custom_command(
    OUTPUT ${_outputs}
    COMMAND ${Python3_EXECUTABLE} ${TESSALY_GENERATOR_DIR}/tlbgen.py
            --idl ${idl} --name ${name} --out ${TESSALY_GENERATED_DIR}
    DEPENDS ${idl} ${_arg_IMPORTS} ${_generator_sources}
    COMMENT "Generating type library ${name} from ${idl}"
    VERBATIM)
  set(${out_sources} ${TESSALY_GENERATED_DIR}/${name}Dispatch.cpp ${TESSALY_GENERATED_DIR}/${name}TypeInfo.cpp
      ${TESSALY_GENERATED_DIR}/${name}.h PARENT_SCOPE)
endfunction()
