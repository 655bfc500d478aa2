# Warnings are errors in our own code (not in what idlc generates).
function(vantrel_strict target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror -Wno-missing-field-initializers)
  vantrel_sanitize(${target})
endfunction()

# Applies VANTREL_SANITIZE to a target (compile and link).
function(vantrel_sanitize target)
  if(VANTREL_SANITIZE)
    string(REPLACE ";" "," san "${VANTREL_SANITIZE}")
    target_compile_options(${target} PRIVATE -fsanitize=${san} -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${san})
  endif()
  if(VANTREL_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)  # coverage for the fuzzer
  endif()
endfunction()
