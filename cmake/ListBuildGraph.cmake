# Prints what a configured build tree compiles, from CMake's file API:
#   cmake -DBUILD_DIR=<tree> -P cmake/ListBuildGraph.cmake
# The tree must have been configured with the query file
# <tree>/.cmake/api/v1/query/codemodel-v2 in place. One line per item:
#   target <name> <type>
#   source <target> <path>      compiled sources of the project, relative to
#                               the source root (files generated in the build
#                               tree left out)
#   flag <target> <flag>        each word of the compile command fragments
#   define <target> <definition>
if(NOT BUILD_DIR)
  message(FATAL_ERROR "usage: cmake -DBUILD_DIR=<tree> -P ListBuildGraph.cmake")
endif()
set(reply ${BUILD_DIR}/.cmake/api/v1/reply)
file(GLOB indexes ${reply}/index-*.json)
if(NOT indexes)
  message(FATAL_ERROR "no file API reply in ${reply}")
endif()
list(SORT indexes)
list(GET indexes -1 index_file)
file(READ ${index_file} index)
string(JSON codemodel_file GET "${index}" reply codemodel-v2 jsonFile)
file(READ ${reply}/${codemodel_file} codemodel)
string(JSON source_root GET "${codemodel}" paths source)
string(JSON build_root GET "${codemodel}" paths build)

set(out "")
string(JSON n_targets LENGTH "${codemodel}" configurations 0 targets)
math(EXPR last "${n_targets} - 1")
foreach(i RANGE ${last})
  string(JSON target_file GET "${codemodel}" configurations 0 targets ${i} jsonFile)
  file(READ ${reply}/${target_file} target)
  string(JSON name GET "${target}" name)
  string(JSON type GET "${target}" type)
  string(APPEND out "target ${name} ${type}\n")

  string(JSON n_sources ERROR_VARIABLE none LENGTH "${target}" sources)
  if(n_sources GREATER 0)
    math(EXPR last_source "${n_sources} - 1")
    foreach(s RANGE ${last_source})
      string(JSON path GET "${target}" sources ${s} path)
      string(JSON group ERROR_VARIABLE not_compiled GET "${target}" sources ${s} compileGroupIndex)
      string(JSON generated ERROR_VARIABLE not_generated GET "${target}" sources ${s} isGenerated)
      get_filename_component(full "${path}" ABSOLUTE BASE_DIR "${source_root}")
      string(FIND "${full}/" "${build_root}/" in_build_tree)
      if(not_compiled OR generated STREQUAL "ON" OR IS_ABSOLUTE "${path}"
         OR in_build_tree EQUAL 0)
        continue()
      endif()
      string(APPEND out "source ${name} ${path}\n")
    endforeach()
  endif()

  string(JSON n_groups ERROR_VARIABLE none LENGTH "${target}" compileGroups)
  if(n_groups GREATER 0)
    math(EXPR last_group "${n_groups} - 1")
    foreach(g RANGE ${last_group})
      string(JSON n_fragments ERROR_VARIABLE none
             LENGTH "${target}" compileGroups ${g} compileCommandFragments)
      if(n_fragments GREATER 0)
        math(EXPR last_fragment "${n_fragments} - 1")
        foreach(f RANGE ${last_fragment})
          string(JSON fragment GET "${target}" compileGroups ${g} compileCommandFragments ${f}
                 fragment)
          separate_arguments(words UNIX_COMMAND "${fragment}")
          foreach(word IN LISTS words)
            string(APPEND out "flag ${name} ${word}\n")
          endforeach()
        endforeach()
      endif()
      string(JSON n_defines ERROR_VARIABLE none LENGTH "${target}" compileGroups ${g} defines)
      if(n_defines GREATER 0)
        math(EXPR last_define "${n_defines} - 1")
        foreach(d RANGE ${last_define})
          string(JSON define GET "${target}" compileGroups ${g} defines ${d} define)
          string(APPEND out "define ${name} ${define}\n")
        endforeach()
      endif()
    endforeach()
  endif()
endforeach()
# message() goes to stderr; the list is for a pipe.
execute_process(COMMAND ${CMAKE_COMMAND} -E echo_append "${out}")
