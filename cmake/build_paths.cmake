# SPDX-License-Identifier: ISC
# What tests and benchmarks link to know where things lie (tests/support/build_paths.h). As definitions on
# the command line the paths would keep a compiler cache from serving one folder with another's objects.
set(content "#include \"tests/support/build_paths.h\"\nnamespace quillworks::paths {\n")
string(APPEND content "const std::string source = \"${CMAKE_SOURCE_DIR}\";\n"
                      "const std::string lv2Folder = \"${CMAKE_BINARY_DIR}/lv2\";\n")
# Empty where the target is left out.
foreach(pair quillhost:quillhost module:quillworks clapFile:quillworks_clap vst3File:quillworks_vst3
             bareHost:bare_host probeModule:probe_module moduleWithoutExports:module_WITHOUT_EXPORTS
             moduleWithoutFactory:module_WITHOUT_FACTORY moduleThatRefuses:module_THAT_REFUSES)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 name)
  list(GET pair 1 target)
  string(APPEND content
    "const std::string ${name} = \"$<$<TARGET_EXISTS:${target}>:$<TARGET_FILE:${target}>>\";\n")
endforeach()
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/build_paths.cpp CONTENT "${content}}\n")
add_library(build_paths OBJECT EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/build_paths.cpp)
target_link_libraries(build_paths PUBLIC quillworks_options)
