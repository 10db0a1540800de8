# Warning flags shared by every target of the project.
function(varn_target_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
endfunction()
