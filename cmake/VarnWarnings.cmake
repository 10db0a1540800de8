# Warning flags shared by every target of the project.
function(varn_target_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  # Calls between the library's own exported functions bind locally, without
  # going through the PLT.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
endfunction()
