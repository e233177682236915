# Warnings are errors for every target the project owns.
function(vistrel_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wno-unused-parameter)
endfunction()
