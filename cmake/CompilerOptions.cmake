# Warnings and sanitizers apply to everything this project compiles.
add_compile_options(-Wall -Wextra -Wshadow -Wcast-align -Wunused -Wformat=2
                    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
                    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)
if(FPT_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(FPT_SANITIZE)
  set(FPT_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined
                          -fno-omit-frame-pointer)
  add_compile_options(${FPT_SANITIZER_FLAGS})
  add_link_options(${FPT_SANITIZER_FLAGS})
endif()

# Release programs carry no symbol table (see the install rules).
add_link_options($<$<OR:$<CONFIG:Release>,$<CONFIG:MinSizeRel>>:-s>)

# libFuzzer harnesses (scripts/fuzz.sh, clang only): every library is built
# with coverage and the sanitizers, and with the standard library's bounds
# checks (an index past a member array stays inside the object, where the
# address sanitizer cannot see it); only the harnesses link libFuzzer's main.
option(FPT_FUZZ "Build the libFuzzer harnesses in <module>/fuzz (clang)" OFF)
if(FPT_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined
                      -fno-sanitize-recover=undefined -fno-omit-frame-pointer
                      -D_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=address,undefined)
endif()
