# Warnings for every target of the project: -Wall -Wextra everywhere, and clang's
# thread-safety analysis where the compiler offers it.
function(cmutil_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
endfunction()
